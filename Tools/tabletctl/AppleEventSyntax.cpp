#include "Tools/tabletctl/AppleEventSyntax.h"

#include "Tools/tabletctl/CCommandError.h"
#include "Tools/tabletctl/RawReplyOutput.h"
#include "Tools/tabletctl/RequestSyntax.h"

#include <Carbon/Carbon.h>

#include <cstring>
#include <limits>

namespace AppleEventSyntax
{
namespace
{
bool IsCodeType(std::uint32_t type_I)
{
    return type_I == typeType || type_I == typeEnumerated || type_I == typeKeyword ||
           type_I == typeProperty;
}

bool IsTextType(std::uint32_t type_I)
{
    return type_I == typeChar || type_I == typeUTF8Text;
}

template <typename T> std::vector<unsigned char> Bytes(T value_I)
{
    std::vector<unsigned char> bytes(sizeof value_I);
    std::memcpy(bytes.data(), &value_I, sizeof value_I);
    return bytes;
}

template <typename T> bool Read(const std::vector<unsigned char>& data_I, T& value_O)
{
    if (data_I.size() != sizeof value_O)
    {
        return false;
    }
    std::memcpy(&value_O, data_I.data(), sizeof value_O);
    return true;
}

// A number of the type's width, written as RequestSyntax's data types are.
std::vector<unsigned char> NumberBytes(std::uint32_t type_I, const std::string& value_I)
{
    const char* width = type_I == typeSInt16   ? "i16"
                        : type_I == typeSInt32 ? "i32"
                        : type_I == typeUInt32 ? "u32"
                                               : "i64";
    return RequestSyntax::ParseData(std::string(width) + ":" + value_I);
}
} // namespace

CKeltoClient::SAppleEventParameter ParseParameter(const std::string& text_I)
{
    const std::size_t first = text_I.find(':');
    const std::size_t second = first == std::string::npos ? first : text_I.find(':', first + 1);
    if (second == std::string::npos)
    {
        throw CCommandError("an Apple Event parameter is KEYWORD:TYPE:VALUE: '" + text_I + "'");
    }
    CKeltoClient::SAppleEventParameter parameter;
    parameter.mKeyword = RequestSyntax::ParseFourCharCode(text_I.substr(0, first));
    parameter.mType =
        RequestSyntax::ParseFourCharCode(text_I.substr(first + 1, second - first - 1));
    const std::string value = text_I.substr(second + 1);
    if (IsCodeType(parameter.mType))
    {
        parameter.mData = Bytes(RequestSyntax::ParseFourCharCode(value));
    }
    else if (parameter.mType == typeSInt16 || parameter.mType == typeSInt32 ||
             parameter.mType == typeUInt32 || parameter.mType == typeSInt64)
    {
        parameter.mData = NumberBytes(parameter.mType, value);
    }
    else if (parameter.mType == typeBoolean)
    {
        parameter.mData = RequestSyntax::ParseData("bool:" + value);
    }
    else if (IsTextType(parameter.mType))
    {
        parameter.mData.assign(value.begin(), value.end());
    }
    else
    {
        parameter.mData = RequestSyntax::ParseData("hex:" + value);
    }
    return parameter;
}

nlohmann::ordered_json Value(const CKeltoClient::SAppleEventParameter& parameter_I)
{
    const std::vector<unsigned char>& data = parameter_I.mData;
    const std::uint32_t type = parameter_I.mType;
    std::uint32_t code = 0;
    std::int16_t shortValue = 0;
    std::int32_t longValue = 0;
    std::uint32_t unsignedValue = 0;
    std::int64_t wideValue = 0;
    std::uint8_t boolValue = 0;
    if (IsCodeType(type) && Read(data, code))
    {
        return RequestSyntax::FourCharCodeText(code);
    }
    if (type == typeSInt16 && Read(data, shortValue))
    {
        return shortValue;
    }
    if (type == typeSInt32 && Read(data, longValue))
    {
        return longValue;
    }
    if (type == typeUInt32 && Read(data, unsignedValue))
    {
        return unsignedValue;
    }
    if (type == typeSInt64 && Read(data, wideValue))
    {
        return wideValue;
    }
    if (type == typeBoolean && Read(data, boolValue))
    {
        return boolValue != 0;
    }
    if (IsTextType(type))
    {
        return std::string(data.begin(), data.end());
    }
    return RawReplyOutput::Hex(data);
}
} // namespace AppleEventSyntax
