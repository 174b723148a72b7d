// Test doubles of the route table's ports: a port that records every packet it is sent
// (copied at send time) and answers as the test says, and a scripted tablet driver that
// answers the requests of a synchronisation from a list of tablets.
#pragma once

#include "Common/CEventPacket.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"
#include "Tests/Support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace route_test
{
using test_support::Capture;
using test_support::Output;

inline std::string Report(unsigned line, const std::string& condition)
{
    return "Common/Coordinator/CRouteTable:" + std::to_string(line) +
           ": failed assertion: " + condition + "\n";
}

inline bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

struct SKey
{
    EEventIdentifier mID;
    std::uint32_t mRef = 0;
    EAddressingMode mMode = EAddrModeByIndex;
    bool operator==(const SKey&) const = default;
};

using Ids = std::vector<EEventIdentifier>;

inline void Fill(CEventPacket& packet, ECommand command, const std::vector<SKey>& keys)
{
    packet.SetCommand(command);
    for (const SKey& key : keys)
    {
        packet.AddKeyInt(key.mID, key.mRef, key.mMode);
    }
}

// One packet as a port received it.
struct SSentPacket
{
    ECommand mCommand;
    std::vector<SKey> mKeys; // up to the sentinel
    std::vector<unsigned char> mData;

    Ids KeyIDs() const
    {
        Ids ids;
        for (const SKey& key : mKeys)
        {
            ids.push_back(key.mID);
        }
        return ids;
    }
};

// The command and key identifiers of each packet, in order.
using Trace = std::vector<std::pair<ECommand, Ids>>;

inline Trace TraceOf(const std::vector<SSentPacket>& sent)
{
    Trace trace;
    for (const SSentPacket& packet : sent)
    {
        trace.emplace_back(packet.mCommand, packet.KeyIDs());
    }
    return trace;
}

inline SSentPacket Snapshot(CEventPacket& packet)
{
    SSentPacket sent{packet.Command(), {}, {}};
    for (unsigned i = 0; packet.ObjectKey(i)->Identifier() != EObjectIDNothing; ++i)
    {
        const OBJECT_KEY* key = packet.ObjectKey(i);
        sent.mKeys.push_back(
            {key->Identifier(),
             static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(key->mReference)),
             key->mAddressingMode});
    }
    const auto* data = static_cast<const unsigned char*>(packet.Buffer());
    if (data != nullptr)
    {
        sent.mData.assign(data, data + packet.SizeOfData());
    }
    return sent;
}

// Records every packet and answers with `mAnswer` (success and nothing else by default).
// Like a real port that copies the reply's keys back, it leaves the current key on the
// first key after answering, so the table has to put it back.
class ScriptedPort : public CDriverMessageSendPort
{
public:
    using Answer = std::function<KELSTATUS(CEventPacket&)>;
    explicit ScriptedPort(Answer answer) : mAnswer(std::move(answer)) {}

    KELSTATUS SendKeltoEvent(CEventPacket* packet) override
    {
        mSent.push_back(Snapshot(*packet));
        const KELSTATUS status = mAnswer ? mAnswer(*packet) : KELSTATUS_SUCCESS;
        packet->ResetCurrentKey();
        return status;
    }

    Answer mAnswer;
    std::vector<SSentPacket> mSent;
};

inline std::shared_ptr<ScriptedPort> Port(ScriptedPort::Answer answer = nullptr)
{
    return std::make_shared<ScriptedPort>(std::move(answer));
}

inline std::shared_ptr<ScriptedPort> PortAnswering(KELSTATUS status)
{
    return Port([status](CEventPacket&) { return status; });
}

// A port that answers with a 16-bit value and success.
inline std::shared_ptr<ScriptedPort> PortReplying(std::uint16_t value)
{
    return Port(
        [value](CEventPacket& packet)
        {
            packet.PackData_<std::uint16_t>(value);
            return KELSTATUS_SUCCESS;
        });
}

// A tablet driver as a synchronisation sees it: the system ID it believes each of its
// tablets has (by index), the last tablet block it was sent, and the touch capabilities
// its tablets report (a map {"MaxFingers": 10 + index}).
class ScriptedDriver
{
public:
    std::vector<std::uint16_t> mTabletIDs;
    std::vector<unsigned char> mTabletBlock;
    std::uint32_t mReportedBlockSize = 0; // 0: the size of mTabletBlock
    std::shared_ptr<ScriptedPort> mPort =
        Port([this](CEventPacket& packet) { return Answer(packet); });

    ScriptedDriver() = default;
    ScriptedDriver(const ScriptedDriver&) = delete; // its port answers for this object
    const std::vector<SSentPacket>& Sent() const { return mPort->mSent; }

private:
    KELSTATUS Answer(CEventPacket& packet)
    {
        const SSentPacket request = Snapshot(packet);
        const bool get = request.mCommand == ECommandGet;
        const Ids ids = request.KeyIDs();
        const std::uint32_t index = ids.size() > 1 ? request.mKeys[1].mRef : 0;
        if (ids == Ids{EObjectIDDriver, EObjectIDTablet, EParameterIDTabletSystemID})
        {
            if (get)
            {
                packet.PackData_<std::uint16_t>(index < mTabletIDs.size() ? mTabletIDs[index]
                                                                          : 0xFFFF);
            }
            else if (index < mTabletIDs.size())
            {
                mTabletIDs[index] = packet.UnPackData_<std::uint16_t>(0xFFFF);
            }
        }
        else if (ids ==
                 Ids{EObjectIDDriver, EObjectIDTablet, EParameterIDTabletMultiTouchCapabilities})
        {
            std::shared_ptr<CSettingsMap> capabilities = CSettingsMap::New();
            capabilities->SetKeyAndInteger("MaxFingers", 10 + index);
            packet.PackData_<std::shared_ptr<CSettingsObject>>(capabilities);
        }
        else if (ids == Ids{EObjectIDDriver, EParameterIDSize})
        {
            packet.PackData_<std::uint32_t>(mReportedBlockSize ? mReportedBlockSize
                                                               : mTabletBlock.size());
        }
        else if (ids == Ids{EObjectIDDriver, EParameterIDTabletBlock})
        {
            get ? packet.PackData_<std::vector<unsigned char>>(mTabletBlock)
                : void(mTabletBlock = request.mData);
        }
        else if (ids == Ids{EObjectIDDriver, EParameterIDCount})
        {
            packet.PackData_<std::uint16_t>(static_cast<std::uint16_t>(mTabletIDs.size()));
        }
        else
        {
            return KELSTATUS_OBJECT_NOT_FOUND;
        }
        return KELSTATUS_SUCCESS;
    }
};
} // namespace route_test
