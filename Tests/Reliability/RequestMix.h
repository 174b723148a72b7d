// The requests that the reliability tests send to a coordinator with two simulated drivers,
// and the check of each answer.
//
// Request number n of a client is one of four kinds, in turn:
//   n % 4 == 0  tablet count by index      answered by the coordinator from its table
//   n % 4 == 1  protocol version           answered by the coordinator from its bundle
//   n % 4 == 2  touch API version query    answered by the coordinator from the value sent
//   n % 4 == 3  a parameter of one tablet  routed to the driver that owns the tablet
// Every request carries its client and number in its request word, and the answers that
// depend on what was asked (the query's value, the tablet, the parameter) change from one
// request to the next, so an answer given to the wrong request or the wrong client, or
// coming from the wrong driver, does not pass the check.
#pragma once

#include "Common/CEventPacket.h"
#include "Common/KelStatus.h"

#include <cstdint>
#include <string>
#include <vector>

namespace reliability
{
// What a right answer holds, learnt from the drivers and the bundle before the load starts.
struct SExpectations
{
    unsigned int mTabletCount = 0;
    std::uint32_t mProtocolVersion = 0;
    // Driver name ("Name" of its configuration) by tablet system ID.
    std::vector<std::string> mDriverOfTablet;
    // Routed requests go to the tablets of the other drivers only (one that is stopped).
    std::string mAvoidedDriver;
};

// The packet of request `sequence_I` of client `client_I` (0 to 255).
CEventPacket MakeRequest(unsigned int client_I, unsigned int sequence_I,
                         const SExpectations& expected_I);

// Empty when `answer_IO` (the packet after the exchange, whose status was `status_I`) is
// the right answer to that request; otherwise what is wrong with it.
std::string CheckAnswer(unsigned int client_I, unsigned int sequence_I,
                        const SExpectations& expected_I, KELSTATUS status_I,
                        CEventPacket& answer_IO);

// A request for a parameter of the tablet with that system ID, answered by its driver.
CEventPacket TabletRequest(unsigned int systemID_I, EEventIdentifier parameter_I);
// The "Driver" of a simulated driver's generic answer in the packet; empty when none.
std::string DriverOfAnswer(CEventPacket& answer_IO);
} // namespace reliability
