// Fuzz target for the simulated driver's configuration reader: any text. Besides never
// crashing, an accepted configuration holds only what the reader promises.
#include "Fuzz/FuzzCheck.h"
#include "Tools/SimulatedDriver/SimDriverConfigReader.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    SSimDriverConfig config;
    std::string error;
    if (!ReadSimDriverConfigText(text, config, error))
    {
        Check(!error.empty() && error.find('\n') == std::string::npos);
        return 0;
    }
    Check(!config.portName.empty());
    Check(config.version.IsValid());
    Check(config.lastTabletUsed >= -1 &&
          config.lastTabletUsed < static_cast<int>(config.tablets.size()));
    Check(config.endiannessCode >= -1 && config.endiannessCode <= 255);
    for (const SSimFault& fault : config.faults)
    {
        Check(fault.exitCode >= 0 && fault.exitCode <= 255);
    }
    return 0;
}
