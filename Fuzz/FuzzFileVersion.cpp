// Fuzz target for FileVersion's text parser (bundle versions come from files) and for its
// five-byte wire form. Whatever the parser makes of a text, the full form prints it in a way
// the parser reads back to the same value.
#include "Common/FileVersion.h"
#include "Fuzz/FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const FileVersion parsed(text, false);
    Check(FileVersion(parsed.AsString(FileVersion::EVersionStyleFull), false) == parsed);

    if (size >= sizeof(FileVersion))
    {
        FileVersion wire;
        std::memcpy(&wire, data, sizeof(wire));
        // Any release byte prints; a release outside the known ones prints as '?'.
        const std::string full = wire.AsString(FileVersion::EVersionStyleFull);
        const FileVersion back(full, false);
        Check(back.Major() == wire.Major() && back.Minor() == wire.Minor() &&
              back.Variation() == wire.Variation() && back.Build() == wire.Build());
        (void)(wire < parsed);
    }
    return 0;
}
