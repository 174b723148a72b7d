// CDriverMessageSendPort: the coordinator's handle on one other process that receives event
// packets, a tablet driver or a touch programming-interface client.
//
// The route table keeps these ports by shared ownership and sends every packet through the
// one virtual operation SendKeltoEvent, which returns a KELSTATUS and leaves the answer
// (status, keys and data) in the same packet. CMacDriverMessageSendPort implements it over a
// message port; tests substitute their own ports.
#pragma once

#include "Common/KelStatus.h"

#include <memory>
#include <string>

class CEventPacket;

class CDriverMessageSendPort : public std::enable_shared_from_this<CDriverMessageSendPort>
{
public:
    virtual ~CDriverMessageSendPort() = default;

    // Sends the packet and waits for the answer, which replaces the packet's contents.
    virtual KELSTATUS SendKeltoEvent(CEventPacket* packet_IO) = 0;

    // A port to the process serving the message port called `name` (UTF-8), with 500 second
    // send and receive time-outs, connected at once. The flag is accepted and ignored: the
    // connection is always made. Used for touch programming-interface clients, whose
    // identifier is the name of their port. Empty when the port could not be made.
    static std::shared_ptr<CDriverMessageSendPort> New(const std::string& name, bool connect);
};
