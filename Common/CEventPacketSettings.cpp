// The members of CEventPacket's typed family that carry settings objects as their ASN.1
// archive.
#include "Common/CEventPacket.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsObject.h"

#include <cstdint>
#include <vector>

template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsObject>>(
    const std::shared_ptr<CSettingsObject>& value_I)
{
    if (!value_I)
    {
        PackData(0, nullptr);
        return;
    }
    const std::vector<std::uint8_t> archive = value_I->GetASN1Binary();
    PackData(static_cast<unsigned int>(archive.size()), archive.data());
}

template <>
std::shared_ptr<CSettingsObject> CEventPacket::UnPackData_<std::shared_ptr<CSettingsObject>>(
    const std::shared_ptr<CSettingsObject>& defaultValue_I)
{
    if (mpBuffer == nullptr)
    {
        mStatus = kStatusNoDataBuffer;
        return defaultValue_I;
    }
    if (mSizeOfData == 0)
    {
        return defaultValue_I;
    }
    const auto* bytes = static_cast<const std::uint8_t*>(mpBuffer);
    std::shared_ptr<CSettingsObject> object =
        CSettingsObject::ReadFromASN1Binary(std::vector<std::uint8_t>(bytes, bytes + mSizeOfData));
    return object ? object : defaultValue_I;
}

namespace
{
// Unpacks a settings object and casts it with `cast`; the default when either gives null.
template <class T, class Cast>
std::shared_ptr<T> UnPackAs(CEventPacket& packet, const std::shared_ptr<T>& defaultValue, Cast cast)
{
    std::shared_ptr<T> value = cast(
        packet.UnPackData_<std::shared_ptr<CSettingsObject>>(std::shared_ptr<CSettingsObject>()));
    return value ? value : defaultValue;
}
} // namespace

template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsMap>>(
    const std::shared_ptr<CSettingsMap>& value_I)
{
    PackData_<std::shared_ptr<CSettingsObject>>(value_I);
}

template <>
std::shared_ptr<CSettingsMap> CEventPacket::UnPackData_<std::shared_ptr<CSettingsMap>>(
    const std::shared_ptr<CSettingsMap>& defaultValue_I)
{
    return UnPackAs(*this, defaultValue_I,
                    [](const std::shared_ptr<CSettingsObject>& object)
                    { return CSettingsMap::CastToMap(object, true); });
}

template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsArray>>(
    const std::shared_ptr<CSettingsArray>& value_I)
{
    PackData_<std::shared_ptr<CSettingsObject>>(value_I);
}

template <>
std::shared_ptr<CSettingsArray> CEventPacket::UnPackData_<std::shared_ptr<CSettingsArray>>(
    const std::shared_ptr<CSettingsArray>& defaultValue_I)
{
    return UnPackAs(*this, defaultValue_I,
                    [](const std::shared_ptr<CSettingsObject>& object)
                    { return CSettingsArray::CastToArray(object, true); });
}

template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsInteger>>(
    const std::shared_ptr<CSettingsInteger>& value_I)
{
    PackData_<std::shared_ptr<CSettingsObject>>(value_I);
}

template <>
std::shared_ptr<CSettingsInteger> CEventPacket::UnPackData_<std::shared_ptr<CSettingsInteger>>(
    const std::shared_ptr<CSettingsInteger>& defaultValue_I)
{
    return UnPackAs(*this, defaultValue_I, &CSettingsInteger::CastToInteger);
}

template <>
void CEventPacket::PackData_<std::shared_ptr<CSettingsBool>>(
    const std::shared_ptr<CSettingsBool>& value_I)
{
    PackData_<std::shared_ptr<CSettingsObject>>(value_I);
}

template <>
std::shared_ptr<CSettingsBool> CEventPacket::UnPackData_<std::shared_ptr<CSettingsBool>>(
    const std::shared_ptr<CSettingsBool>& defaultValue_I)
{
    return UnPackAs(*this, defaultValue_I, &CSettingsBool::CastToBool);
}
