// Packets and configurations for the simulated driver's tests.
#pragma once

#include "Common/CEventPacket.h"
#include "Common/Settings/CSettingsMap.h"
#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include <cstdint>
#include <cstring>
#include <vector>

namespace SimDriverTest
{
struct SKey
{
    EEventIdentifier identifier;
    std::uint32_t reference = 0;
    EAddressingMode mode = EAddrModeByIndex;
};

inline void Build(CEventPacket& packet, ECommand command, const std::vector<SKey>& keys,
                  const std::vector<std::uint8_t>& data = {})
{
    packet.ClearEvent();
    packet.SetCommand(command);
    for (const SKey& key : keys)
    {
        packet.AddKeyInt(key.identifier, key.reference, key.mode);
    }
    packet.PackData(static_cast<unsigned int>(data.size()), data.empty() ? nullptr : data.data());
}

template <typename T> std::vector<std::uint8_t> Bytes(T value)
{
    std::vector<std::uint8_t> bytes(sizeof(T));
    std::memcpy(bytes.data(), &value, sizeof(T));
    return bytes;
}

inline std::vector<std::uint8_t> Data(const CEventPacket& packet)
{
    const auto* bytes = static_cast<const std::uint8_t*>(packet.Buffer());
    return bytes == nullptr ? std::vector<std::uint8_t>()
                            : std::vector<std::uint8_t>(bytes, bytes + packet.SizeOfData());
}

// The tablet key the coordinator's sync uses: the driver's own index of the tablet.
inline SKey LocalTablet(std::uint32_t index)
{
    return {EObjectIDTablet, index, EAddrModeByLocalIndex};
}

// The Kelto driver with two tablets (own IDs 5 and 7, the first with capabilities).
inline SSimDriverConfig TwoTabletConfig()
{
    SSimDriverConfig config;
    config.name = "Kelto test";
    config.portName = kSimKeltoDriverPortName;
    config.version = FileVersion(6, 3, 0, FileVersion::EFinalVersion, 0);
    SSimTablet first;
    first.systemID = 5;
    first.touchCapabilities = CSettingsMap::New();
    first.touchCapabilities->SetKeyAndInteger("MultiTouchMaxFingers", 10);
    first.touchCapabilities->SetKeyAndString("MultiTouchDeviceName", "Pro M");
    SSimTablet second;
    second.systemID = 7;
    config.tablets = {first, second};
    config.lastTabletUsed = 1;
    config.lastTabletUsedTimestamp = 1234;
    return config;
}
} // namespace SimDriverTest
