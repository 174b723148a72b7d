// What the client library's tests share: a stand-in coordinator served on this thread's run
// loop through the project's own message server, which answers each request with a function
// the test gives and keeps a copy of every request it saw.
//
// The library waits for its replies in the messaging client's private mode, to which the
// server's port is attached too, so a request from the test is served on the same thread
// while the test waits for it; no second thread or process is needed.
#pragma once

#include "Client/CKeltoClient.h"
#include "Common/CEventPacket.h"
#include "Mac/Common/Communication/CMacMessagingServer.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace client_test
{
class CFakeCoordinator
{
public:
    using Answer = std::function<void(CEventPacket&)>;

    explicit CFakeCoordinator(Answer answer_I,
                              const std::string& portName_I = CKeltoClient::kCoordinatorPortName)
        : mAnswer(std::move(answer_I))
    {
        CFStringRef name =
            CFStringCreateWithCString(nullptr, portName_I.c_str(), kCFStringEncodingUTF8);
        mServer = std::make_unique<CMacMessagingServer>();
        EXPECT_EQ(mServer->Init(name, PortCallBack, mServer.get()), KELSTATUS_SUCCESS);
        mServer->SetProcessEventCallback(Process, this);
        CFRelease(name);
    }

    // Every request as it arrived, current key on the first key.
    const std::vector<CEventPacket>& Requests() const { return mRequests; }

private:
    static CFDataRef PortCallBack(CFMessagePortRef, SInt32 messageID_I, CFDataRef data_I,
                                  void* info_I)
    {
        return static_cast<CMacMessagingServer*>(info_I)->ProcessRequest(data_I, messageID_I);
    }

    static KELSTATUS Process(CEventPacket* packet_IO, void* self_I)
    {
        auto* self = static_cast<CFakeCoordinator*>(self_I);
        self->mRequests.push_back(*packet_IO);
        if (self->mAnswer)
        {
            self->mAnswer(*packet_IO);
        }
        return packet_IO->Status();
    }

    Answer mAnswer;
    std::unique_ptr<CMacMessagingServer> mServer;
    std::vector<CEventPacket> mRequests;
};

// The identifiers of a packet's keys, outermost first.
inline std::vector<int> KeyIdentifiers(const CEventPacket& packet_I)
{
    std::vector<int> identifiers;
    for (unsigned int index = 0; index <= MAX_KEY; ++index)
    {
        const OBJECT_KEY* key = packet_I.ObjectKey(index);
        if (key->Identifier() == EObjectIDNothing)
        {
            break;
        }
        identifiers.push_back(key->Identifier());
    }
    return identifiers;
}
} // namespace client_test
