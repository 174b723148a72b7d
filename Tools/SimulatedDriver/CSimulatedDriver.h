// The tablets and answers of one simulated tablet driver, as the coordinator sees them.
//
// It answers each request in the packet that brought it (status and data), whatever wire
// form the request came in; the port (CSimDriverPort) does the wire. What it answers, by
// request kind (SSimRequest.h):
//
//   file-version        get: the driver's FileVersion, its five bytes
//   system-id           get: the tablet's system ID (2 bytes), 0xFFFF when there is no
//                       tablet at that index; set: takes the 2-byte ID as the tablet's own
//   touch-capabilities  get: the tablet's capabilities map as a settings archive
//   tablet-block-size   get: the stored tablet block's size (4 bytes)
//   tablet-block        set: stores the block as given; get: the stored block
//   tablet-count        the number of tablets (2 bytes), or the configured fixed answer for
//                       that addressing mode (EAddrModeByID or any other)
//   last-tablet-used    get: the system ID of the tablet used last (2 bytes), 0xFFFF: none
//   last-tablet-used-timestamp  get: the configured timestamp (4 bytes)
//   touch-client        get: every registration recorded so far, as a settings array of
//                       maps {"Command": n, "Registration": map} ("Registration" left out
//                       when the packet carried no map); any other command records
//                       the packet's settings map, and the data is left as it came
//   create, index       the configured status; on success the generic answer
//   destroy-tablet      the 2-byte system ID in the data names the tablet to drop
//   other               the generic answer when the request names one of its tablets, or
//                       none; KELSTATUS_OBJECT_NOT_FOUND for a tablet it does not have
//
// The generic answer is a settings map {"Driver": name, "Command": n, "Parameter": id of the
// last key, "TabletIndex": i, "SystemID": s} (the tablet entries only when one is named), so
// that whoever sent the request can tell which driver it reached.
//
// Nothing is kept on disk: the tablet block and the IDs the coordinator set live as long as
// the process, so they outlast any number of coordinator restarts.
//
// Multi-byte values in answers are written in the coordinator's order whatever order the
// driver presents: the data area is opaque to every header and nobody reverses it.
#pragma once

#include "Common/KelStatus.h"
#include "Tools/SimulatedDriver/SSimDriverConfig.h"
#include "Tools/SimulatedDriver/SSimRequest.h"

#include <cstdint>
#include <memory>
#include <vector>

class CEventPacket;
class CSettingsMap;

struct SSimTouchClientRegistration
{
    int command = 0;
    // Null when the packet carried no settings map.
    std::shared_ptr<CSettingsMap> registration;
};

class CSimulatedDriver
{
public:
    explicit CSimulatedDriver(SSimDriverConfig config_I);

    // Answers one request in place; returns the status, which is also the packet's.
    KELSTATUS Process(CEventPacket& packet_IO, const SSimRequest& request_I);

    // Takes a new configuration (the file was read again). Tablets keep the system ID the
    // coordinator gave them unless the file changes that tablet's "SystemID"; tablets beyond
    // the old count appear, tablets beyond the new count are gone. The tablet block and the
    // touch-client registrations stay.
    void Reload(SSimDriverConfig config_I);

    const SSimDriverConfig& Config() const { return mConfig; }
    // The tablets with their current system IDs.
    const std::vector<SSimTablet>& Tablets() const { return mTablets; }
    bool HasTabletBlock() const { return mHasTabletBlock; }
    const std::vector<std::uint8_t>& TabletBlock() const { return mTabletBlock; }
    const std::vector<SSimTouchClientRegistration>& TouchClients() const { return mTouchClients; }

private:
    // The index of the tablet the request names, or -1 (none named, or not one of ours).
    int FindTablet(const SSimRequest& request_I) const;
    KELSTATUS Answer(CEventPacket& packet_IO, KELSTATUS status_I);
    KELSTATUS GenericAnswer(CEventPacket& packet_IO, const SSimRequest& request_I);
    KELSTATUS SystemID(CEventPacket& packet_IO, const SSimRequest& request_I);
    KELSTATUS TouchCapabilities(CEventPacket& packet_IO, const SSimRequest& request_I);
    KELSTATUS TabletText(CEventPacket& packet_IO, const SSimRequest& request_I);
    KELSTATUS TabletBlock(CEventPacket& packet_IO, const SSimRequest& request_I);
    KELSTATUS TouchClient(CEventPacket& packet_IO, const SSimRequest& request_I);
    KELSTATUS DestroyTablet(CEventPacket& packet_IO);

    SSimDriverConfig mConfig;
    std::vector<SSimTablet> mTablets;
    bool mHasTabletBlock = false;
    std::vector<std::uint8_t> mTabletBlock;
    std::vector<SSimTouchClientRegistration> mTouchClients;
};
