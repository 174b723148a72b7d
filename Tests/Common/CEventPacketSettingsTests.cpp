#include "Common/CEventPacket.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsString.h"

#include "ParamTestSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

namespace
{
std::shared_ptr<CSettingsMap> Capabilities()
{
    auto map = CSettingsMap::New();
    map->SetKeyAndInteger("fingers", 10);
    map->SetKeyAndString("name", "touch");
    auto gestures = CSettingsArray::New();
    gestures->AddBool(true);
    gestures->AddInteger(-1);
    map->SetKeyAndObject("gestures", gestures);
    return map;
}
} // namespace

TEST(CEventPacketSettings, ObjectsTravelAsTheirArchiveAndComeBackEqual)
{
    CEventPacket packet;
    const auto map = Capabilities();
    packet.PackData_(map);
    const std::vector<std::uint8_t> archive = map->GetASN1Binary();
    ASSERT_EQ(packet.SizeOfData(), archive.size());
    EXPECT_EQ(std::memcmp(packet.Buffer(), archive.data(), archive.size()), 0);

    const auto back = packet.UnPackData_<std::shared_ptr<CSettingsMap>>(nullptr);
    ASSERT_TRUE(back);
    EXPECT_NE(back, map);
    EXPECT_TRUE(back->IsEqualTo(map));
    EXPECT_TRUE(packet.UnPackData_<std::shared_ptr<CSettingsObject>>(nullptr)->IsEqualTo(map));

    auto array = CSettingsArray::New();
    array->AddString("a");
    packet.PackData_(array);
    EXPECT_TRUE(packet.UnPackData_<std::shared_ptr<CSettingsArray>>(nullptr)->IsEqualTo(array));
    packet.PackData_(CSettingsInteger::New(-7));
    EXPECT_EQ(packet.UnPackData_<std::shared_ptr<CSettingsInteger>>(nullptr)->GetValue(), -7);
    packet.PackData_(CSettingsBool::New(true));
    EXPECT_TRUE(packet.UnPackData_<std::shared_ptr<CSettingsBool>>(nullptr)->GetValue());

    packet.PackData_(std::shared_ptr<CSettingsObject>());
    EXPECT_EQ(packet.Buffer(), nullptr) << "a null object drops the buffer";
}
