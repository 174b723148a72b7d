#include "Common/CStringifyEnums.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
// A freshly filled table, whatever earlier tests asked of the singleton.
template <typename T> CStringifyEnums<T>& Fresh()
{
    CStringifyEnums<T>::GetInstance(true);
    return *CStringifyEnums<T>::GetInstance();
}

template <typename T> std::string DumpText()
{
    testing::internal::CaptureStdout();
    CStringifyEnums<T>::GetInstance()->Dump();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}
} // namespace

TEST(CStringifyEnums, EveryTableHasItsFullCount)
{
    EXPECT_EQ(Fresh<EEventIdentifier>().NumStrings(), 558u);
    EXPECT_EQ(Fresh<ECommand>().NumStrings(), 10u);
    EXPECT_EQ(Fresh<EAddressingMode>().NumStrings(), 8u);
    EXPECT_EQ(Fresh<unsigned short>().NumStrings(), 126u);
    EXPECT_EQ(Fresh<ELanguage>().NumStrings(), 25u);
    EXPECT_EQ(Fresh<ETransducerType>().NumStrings(), 0u);
    EXPECT_EQ(Fresh<ETabletOrientation>().NumStrings(), 4u);
    EXPECT_EQ(Fresh<EAppGesture>().NumStrings(), 11u);
    EXPECT_EQ(Fresh<EGestureMethod>().NumStrings(), 12u);
    EXPECT_EQ(Fresh<_ECommandType>().NumStrings(), 65u);
    EXPECT_EQ(Fresh<EInputAreaType>().NumStrings(), 11u);
    EXPECT_EQ(Fresh<EDisplayAreaType>().NumStrings(), 2u);
}

TEST(CStringifyEnums, EventIdentifierGroupsKeepTheirSizesAndRanges)
{
    // A mistyped value that lands on another name hides a name; a value outside its group's
    // range shows up here too.
    auto& table = Fresh<EEventIdentifier>();
    int objects = 0, parameters = 0, filters = 0;
    for (int value = 0; value < MAX_KEY_ID; ++value)
    {
        std::string name = table.GetString(static_cast<EEventIdentifier>(value), false);
        if (name.rfind("EObjectID", 0) == 0)
        {
            ++objects;
        }
        else if (name.rfind("EParameterID", 0) == 0)
        {
            ++parameters;
            EXPECT_TRUE(value >= 27 && value <= 616) << name;
        }
        else if (name.rfind("EFilterID", 0) == 0)
        {
            ++filters;
            EXPECT_TRUE(value >= 321 && value <= 539) << name;
        }
        else
        {
            EXPECT_EQ(name, "") << value;
        }
    }
    EXPECT_EQ(objects, 63); // 65 names, two of them hidden by a later name of the same value
    EXPECT_EQ(parameters, 468);
    EXPECT_EQ(filters, 26);
    EXPECT_EQ(table.GetString(MAX_KEY_ID, false), "MAX_KEY_ID");
}

TEST(CStringifyEnums, LaterNameOfASharedValueWins)
{
    static_assert(EObjectIDMenuArea == 23 && EObjectIDTabletControls == 23);
    static_assert(EObjectIDMenuItem == 24 && EObjectIDControlPosition == 24);
    auto& table = Fresh<EEventIdentifier>();
    EXPECT_EQ(table.GetString(static_cast<EEventIdentifier>(23), true), "EObjectIDTabletControls");
    EXPECT_EQ(table.GetString(EObjectIDMenuItem, true), "EObjectIDControlPosition");
}

TEST(CStringifyEnums, NamesMatchTheirValuesAcrossTables)
{
    EXPECT_EQ(Fresh<ECommand>().GetString(ECommandGet, true), "ECommandGet");
    EXPECT_EQ(Fresh<ECommand>().GetString(static_cast<ECommand>(9), true), "MAX_COMMAND");
    auto& ids = Fresh<EEventIdentifier>();
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(0), true), "EObjectIDNothing");
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(611), true),
              "EParameterIDStandAloneDevice");
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(539), true), "EFilterIDTouchRejection");
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(586), true),
              "EObjectIDOnScreenPanelControl");
    auto& status = Fresh<unsigned short>();
    EXPECT_EQ(status.GetString(0x050B, true), "KELSTATUS_TABLET_TIMEOUT");
    EXPECT_EQ(status.GetString(0x031B, true), "KELSTATUS_PREFS_MISSING");
    EXPECT_EQ(status.GetString(0x0802, true), "KELSTATUS_DATA_SUPRESSED");
    EXPECT_EQ(status.GetString(0xFFFF, true), "KELSTATUS_FAILURE");
    EXPECT_EQ(Fresh<EAddressingMode>().GetString(EAddrModeByString, true), "EAddrModeByString");
    EXPECT_EQ(Fresh<_ECommandType>().GetString(static_cast<_ECommandType>(1011), true),
              "ETabletPCGroup");
    EXPECT_EQ(Fresh<_ECommandType>().GetString(static_cast<_ECommandType>(69), true),
              "EButtonTypeMax");
    EXPECT_EQ(Fresh<ELanguage>().GetString(static_cast<ELanguage>(24), true), "LAST_ELANGUAGE");
    EXPECT_EQ(Fresh<EAppGesture>().GetString(static_cast<EAppGesture>(11), true), "eAppGestureMax");
}

TEST(CStringifyEnums, UnknownValueGrowsTheTableAndGetsAMadeUpName)
{
    auto& ids = Fresh<EEventIdentifier>();
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(999), true), "_16EEventIdentifier_999");
    EXPECT_EQ(ids.NumStrings(), 559u);
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(999), false), "");
    EXPECT_EQ(ids.NumStrings(), 559u); // the same unknown value is not added twice
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(998), false), "");
    EXPECT_EQ(ids.NumStrings(), 560u);
    // The made-up name is not stored: the entry stays empty.
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(999), false), "");

    EXPECT_EQ(Fresh<unsigned short>().GetString(7, true), "_t_7");
    EXPECT_EQ(Fresh<EAppGesture>().GetString(static_cast<EAppGesture>(10), true),
              "_11EAppGesture_10");
    EXPECT_EQ(Fresh<_ECommandType>().GetString(static_cast<_ECommandType>(60), true),
              "_13_ECommandType_60");
    EXPECT_EQ(Fresh<ETransducerType>().GetString(static_cast<ETransducerType>(-1), true),
              "_15ETransducerType_-1");
}

TEST(CStringifyEnums, DestroyThenGetBuildsAFreshTable)
{
    auto* first = CStringifyEnums<ECommand>::GetInstance();
    first->GetString(static_cast<ECommand>(42), false);
    EXPECT_EQ(first->NumStrings(), 11u);
    EXPECT_EQ(CStringifyEnums<ECommand>::GetInstance(true), nullptr);
    auto* second = CStringifyEnums<ECommand>::GetInstance(false);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->NumStrings(), 10u);
    EXPECT_EQ(second->GetString(ECommandUnsubscribe, false), "ECommandUnsubscribe");
    EXPECT_EQ(CStringifyEnums<ECommand>::GetInstance(), second);
}

TEST(CStringifyEnums, DumpListsNamesInAscendingValueOrder)
{
    Fresh<EDisplayAreaType>();
    EXPECT_EQ(DumpText<EDisplayAreaType>(), "Type: [16EDisplayAreaType]\n"
                                            "eDisplayAreaTypeFullDisplay\n"
                                            "eDisplayAreaTypePortionDisplay\n"
                                            "\n");

    // The status list is filled group by group, not by value; Dump goes by value.
    Fresh<unsigned short>();
    std::string text = DumpText<unsigned short>();
    EXPECT_EQ(text.rfind("Type: [t]\nKELSTATUS_SUCCESS\nKELSTATUS_MEMORY_BAD\n", 0), 0u);
    EXPECT_LT(text.find("KELSTATUS_PREFS_BAD_FATAL\nKELSTATUS_PREFS_MISSING\nKELSTATUS_OS_"),
              std::string::npos);
    EXPECT_LT(text.find("KELSTATUS_XSETTINGS_EXPORT_ERR\nKELSTATUS_FAILURE\n\n"),
              std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 2), "\n\n");

    // An unknown value asked for shows as an empty line in its place.
    Fresh<ETabletOrientation>().GetString(static_cast<ETabletOrientation>(2000), false);
    EXPECT_EQ(DumpText<ETabletOrientation>(), "Type: [18ETabletOrientation]\n"
                                              "eTabletOrientationPortrait\n"
                                              "eTabletOrientationLandscape\n"
                                              "eTabletOrientationPortraitFlipped\n"
                                              "eTabletOrientationLandscapeFlipped\n"
                                              "\n"
                                              "\n");
}
