#include "Common/CStringifyEnums.h"

#include "Tests/Support/CapturedOutput.h"

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
    return test_support::Capture([] { CStringifyEnums<T>::GetInstance()->Dump(); }).out;
}
} // namespace

TEST(CStringifyEnums, LaterNameOfASharedValueWins)
{
    static_assert(EObjectIDMenuArea == 23 && EObjectIDTabletControls == 23);
    auto& table = Fresh<EEventIdentifier>();
    EXPECT_EQ(table.GetString(static_cast<EEventIdentifier>(23), true), "EObjectIDTabletControls");
    EXPECT_EQ(table.GetString(EObjectIDMenuItem, true), "EObjectIDControlPosition");
}

TEST(CStringifyEnums, UnknownValueGrowsTheTableOnceAndGetsAMadeUpNameThatIsNotStored)
{
    auto& ids = Fresh<EEventIdentifier>();
    const size_t known = ids.NumStrings();
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(999), true), "_16EEventIdentifier_999");
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(999), false), "");
    EXPECT_EQ(ids.NumStrings(), known + 1);
    EXPECT_EQ(ids.GetString(static_cast<EEventIdentifier>(998), false), "");
    EXPECT_EQ(ids.NumStrings(), known + 2);

    // Every table; the transducer types have no names at all yet.
    EXPECT_EQ(Fresh<unsigned short>().GetString(7, true), "_t_7");
    EXPECT_EQ(Fresh<ECommand>().GetString(static_cast<ECommand>(77), true), "_8ECommand_77");
    EXPECT_EQ(Fresh<EAddressingMode>().GetString(static_cast<EAddressingMode>(77), true),
              "_15EAddressingMode_77");
    EXPECT_EQ(Fresh<ELanguage>().GetString(static_cast<ELanguage>(77), true), "_9ELanguage_77");
    EXPECT_EQ(Fresh<ETransducerType>().GetString(static_cast<ETransducerType>(-1), true),
              "_15ETransducerType_-1");
    EXPECT_EQ(Fresh<ETabletOrientation>().GetString(static_cast<ETabletOrientation>(77), true),
              "_18ETabletOrientation_77");
    EXPECT_EQ(Fresh<EAppGesture>().GetString(static_cast<EAppGesture>(10), true),
              "_11EAppGesture_10");
    EXPECT_EQ(Fresh<EGestureMethod>().GetString(static_cast<EGestureMethod>(77), true),
              "_14EGestureMethod_77");
    EXPECT_EQ(Fresh<_ECommandType>().GetString(static_cast<_ECommandType>(60), true),
              "_13_ECommandType_60");
    EXPECT_EQ(Fresh<EInputAreaType>().GetString(static_cast<EInputAreaType>(77), true),
              "_14EInputAreaType_77");
}

TEST(CStringifyEnums, DumpListsNamesInAscendingValueOrderWithUnknownsAsEmptyLines)
{
    Fresh<EDisplayAreaType>();
    EXPECT_EQ(DumpText<EDisplayAreaType>(), "Type: [16EDisplayAreaType]\n"
                                            "eDisplayAreaTypeFullDisplay\n"
                                            "eDisplayAreaTypePortionDisplay\n"
                                            "\n");
    // The status list is filled group by group, not by value.
    Fresh<unsigned short>();
    const std::string text = DumpText<unsigned short>();
    EXPECT_EQ(text.rfind("Type: [t]\nKELSTATUS_SUCCESS\nKELSTATUS_MEMORY_BAD\n", 0), 0u);
    EXPECT_NE(text.find("KELSTATUS_XSETTINGS_EXPORT_ERR\nKELSTATUS_FAILURE\n\n"),
              std::string::npos);

    Fresh<ETabletOrientation>().GetString(static_cast<ETabletOrientation>(2000), false);
    EXPECT_EQ(DumpText<ETabletOrientation>(), "Type: [18ETabletOrientation]\n"
                                              "eTabletOrientationPortrait\n"
                                              "eTabletOrientationLandscape\n"
                                              "eTabletOrientationPortraitFlipped\n"
                                              "eTabletOrientationLandscapeFlipped\n"
                                              "\n"
                                              "\n");
}
