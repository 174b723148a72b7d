#include "Tools/tabletctl/RawReplyOutput.h"

#include "Common/Settings/CSettingsObject.h"
#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/SettingsOutput.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace RawReplyOutput
{
namespace
{
template <typename T> SShown Number(const std::vector<unsigned char>& data_I, const char* type_I)
{
    if (data_I.size() != sizeof(T))
    {
        throw CCommandError("the reply holds " + std::to_string(data_I.size()) +
                            " bytes, not the " + std::to_string(sizeof(T)) + " of " + type_I);
    }
    T value{};
    std::memcpy(&value, data_I.data(), sizeof value);
    return {type_I, value, std::to_string(value)};
}

bool IsText(const std::vector<unsigned char>& data_I)
{
    return !data_I.empty() && data_I.back() == 0 &&
           std::all_of(data_I.begin(), data_I.end() - 1,
                       [](unsigned char c) { return c >= 0x20 && c != 0x7F; });
}

SShown String(const std::vector<unsigned char>& data_I)
{
    if (data_I.empty() || data_I.back() != 0)
    {
        throw CCommandError("the reply holds no text with its terminating 0");
    }
    std::string text(data_I.begin(), data_I.end() - 1);
    return {"string", text, text};
}

std::shared_ptr<CSettingsObject> Settings(const std::vector<unsigned char>& data_I,
                                          std::string& failure_O)
{
    if (data_I.empty())
    {
        failure_O = "no data";
        return nullptr;
    }
    return CSettingsObject::ReadFromASN1Binary(data_I, failure_O);
}

SShown FromSettings(const std::shared_ptr<CSettingsObject>& settings_I)
{
    std::string text = SettingsOutput::ToText(settings_I, 2);
    return {"settings", SettingsOutput::ToJSON(settings_I), text};
}
} // namespace

SShown Show(const std::vector<unsigned char>& data_I, const std::string& type_I)
{
    if (type_I == "auto")
    {
        std::string failure;
        if (std::shared_ptr<CSettingsObject> settings = Settings(data_I, failure))
        {
            return FromSettings(settings);
        }
        if (IsText(data_I))
        {
            return String(data_I);
        }
        switch (data_I.size())
        {
        case 1:
            return Number<std::uint8_t>(data_I, "u8");
        case 2:
            return Number<std::uint16_t>(data_I, "u16");
        case 4:
            return Number<std::uint32_t>(data_I, "u32");
        case 8:
            return Number<std::uint64_t>(data_I, "u64");
        default:
            return {};
        }
    }
    if (type_I == "hex")
    {
        return {};
    }
    if (type_I == "u8")
    {
        return Number<std::uint8_t>(data_I, "u8");
    }
    if (type_I == "u16")
    {
        return Number<std::uint16_t>(data_I, "u16");
    }
    if (type_I == "u32")
    {
        return Number<std::uint32_t>(data_I, "u32");
    }
    if (type_I == "u64")
    {
        return Number<std::uint64_t>(data_I, "u64");
    }
    if (type_I == "i8")
    {
        return Number<std::int8_t>(data_I, "i8");
    }
    if (type_I == "i16")
    {
        return Number<std::int16_t>(data_I, "i16");
    }
    if (type_I == "i32")
    {
        return Number<std::int32_t>(data_I, "i32");
    }
    if (type_I == "i64")
    {
        return Number<std::int64_t>(data_I, "i64");
    }
    if (type_I == "bool")
    {
        Number<std::uint8_t>(data_I, "bool"); // the size check
        const bool value = data_I[0] != 0;
        return {"bool", value, value ? "true" : "false"};
    }
    if (type_I == "string")
    {
        return String(data_I);
    }
    if (type_I == "settings")
    {
        std::string failure;
        std::shared_ptr<CSettingsObject> settings = Settings(data_I, failure);
        if (!settings)
        {
            throw CCommandError("the reply holds no settings archive: " + failure);
        }
        return FromSettings(settings);
    }
    throw CCommandError("unknown answer type '" + type_I + "'");
}

std::string Hex(const std::vector<unsigned char>& data_I)
{
    std::string text;
    for (unsigned char byte : data_I)
    {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += (text.empty() ? "" : " ") + std::string(digits);
    }
    return text;
}
} // namespace RawReplyOutput
