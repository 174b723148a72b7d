// Fuzz target for the text decoders of StringUtilities that read text from files: base64,
// UTF-8, remote identifiers, and the splitting and case-insensitive replacement used on
// settings text. Checks the invariants the decoders promise, besides staying in bounds.
#include "Common/StringUtilities.h"
#include "Fuzz/FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    // Whatever decodes encodes back to text that decodes to the same bytes.
    const std::vector<uint8_t> bytes = StringUtilities::GetBytesFromBase64(text);
    Check(StringUtilities::GetBytesFromBase64(StringUtilities::GetBase64(bytes)) == bytes);

    // The decoder always moves forward and never past the end; the whole-text check agrees
    // with decoding sequence by sequence.
    std::size_t pos = 0;
    bool allOk = true;
    while (pos < text.size())
    {
        const std::size_t before = pos;
        bool ok = false;
        StringUtilities::DecodeUTF8ToUnicodePoint(text, pos, &ok);
        Check(pos > before && pos <= text.size());
        allOk = allOk && ok;
    }
    Check(StringUtilities::IsValidUTF8(text) == allOk);

    const uint32_t id = StringUtilities::StringToRemoteID(text);
    Check(id == 0 || text.size() == 11);

    // The first byte, if any, serves as the delimiter and as the text to replace.
    const std::string first = text.substr(0, 1);
    for (const std::string& token : StringUtilities::Tokenize(text, first, true))
    {
        Check(!token.empty() && token.find_first_of(first) == std::string::npos);
    }
    std::string replaced = text;
    StringUtilities::IReplaceAll(replaced, first, "<>");
    Check(first.empty() || !StringUtilities::IContains(replaced, first) ||
          StringUtilities::IContains("<>", first));
    StringUtilities::Trim(replaced);
    return 0;
}
