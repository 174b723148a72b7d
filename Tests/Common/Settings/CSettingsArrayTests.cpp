#include "SettingsTestSupport.h"

using namespace SettingsTest;

TEST(CSettingsArray, AddSetAndLookUp)
{
    auto array = CSettingsArray::New();
    array->AddBool(true);
    array->AddInteger(-4);
    array->AddDouble(0.25);
    array->AddString("s");
    array->AddObject(nullptr);
    EXPECT_EQ(array->ObjectCount(), 5u);
    EXPECT_EQ(array->GetIndexes(), (std::vector<size_t>{0, 1, 2, 3, 4}));
    EXPECT_TRUE(array->BoolForIndexWithDefault(0, false));
    EXPECT_EQ(array->IntegerForIndexWithDefault(1, 0), -4);
    EXPECT_EQ(array->DoubleForIndexWithDefault(2, 0), 0.25);
    EXPECT_EQ(array->StringForIndexWithDefault(3, ""), "s");
    // A stored null and an index past the end both read as absent.
    EXPECT_EQ(array->ObjectForIndex(4), nullptr);
    EXPECT_EQ(array->TypeNameForIndexOrEmpty(4), "");
    EXPECT_EQ(array->ObjectForIndex(99), nullptr);
    EXPECT_EQ(array->TypeNameForIndexOrEmpty(1), "integer");

    auto replacement = CSettingsString::New("r");
    array->SetObjectAtIndex(9, replacement);
    EXPECT_EQ(array->ObjectCount(), 5u);
    array->SetObjectAtIndex(5, replacement);
    EXPECT_EQ(array->ObjectCount(), 6u);
    EXPECT_EQ(array->ObjectForIndex(5), replacement);
    array->SetObjectAtIndex(0, nullptr);
    EXPECT_EQ(array->ObjectCount(), 6u);
    EXPECT_EQ(array->TypeNameForIndexOrEmpty(0), "");
    EXPECT_EQ(array->GetTraceString(),
              "array[0:null[], 1:integer[-4], 2:double[0.250000], 3:string[s], 4:null[], "
              "5:string[r]]");
}

TEST(CSettingsArray, TypedLookupReportsMismatchAndFallsBack)
{
    auto array = CSettingsArray::New();
    array->AddInteger(1);
    double value = 0;
    SOutput output = Capture([&] { value = array->DoubleForIndexWithDefault(0, 1.5); });
    EXPECT_EQ(value, 1.5);
    EXPECT_EQ(
        output.err,
        "CSettingsArray::ObjectForIndex got a integer and failed to cast to 15CSettingsDouble\n");
    output = Capture([&] { EXPECT_EQ(array->ObjectForIndex<CSettingsString>(3), nullptr); });
    EXPECT_EQ(output.err, "");
}

TEST(CSettingsArray, IsStringPresentLooksOnlyAtPlainStrings)
{
    auto array = CSettingsArray::New();
    EXPECT_FALSE(array->IsStringPresent("abc", true));
    array->AddString("");
    array->AddObject(CSettingsKEString::New("kes"));
    array->AddInteger(1);
    array->AddString("abc");
    EXPECT_TRUE(array->IsStringPresent("ABC", true));
    EXPECT_FALSE(array->IsStringPresent("ABC", false));
    EXPECT_TRUE(array->IsStringPresent("abc", false));
    EXPECT_FALSE(array->IsStringPresent("kes", true));
    EXPECT_FALSE(array->IsStringPresent("1", true));
    EXPECT_FALSE(array->IsStringPresent("", true));
}

TEST(CSettingsArray, DeepCopyEqualityCastAndTrace)
{
    EXPECT_EQ(CSettingsArray::New()->GetTraceString(), "arra]");
    auto map = CSettingsMap::New();
    map->SetKeyAndInteger("n", 1);
    auto array = CSettingsArray::New();
    array->AddObject(map);
    array->AddObject(nullptr);
    auto copy = array->DeepCopy();
    EXPECT_TRUE(array->IsEqualTo(copy));
    map->SetKeyAndInteger("n", 2);
    EXPECT_FALSE(array->IsEqualTo(copy));

    auto shorter = CSettingsArray::New();
    shorter->AddObject(map);
    EXPECT_FALSE(array->IsEqualTo(shorter));
    EXPECT_FALSE(shorter->IsEqualTo(map));

    // Shared children change in every container that holds them.
    auto holder = CSettingsMap::New();
    holder->SetKeyAndObject("m", map);
    map->SetKeyAndInteger("n", 3);
    EXPECT_EQ(
        CSettingsMap::CastToMap(holder->ObjectForKey("m"), true)->IntegerForKeyWithDefault("n", 0),
        3);

    SOutput output = Capture([&] { EXPECT_EQ(CSettingsArray::CastToArray(map, true), nullptr); });
    EXPECT_EQ(output.err,
              "CSettingsArray::CastToArray got a map and failed to cast to CSettingsArray\n");
    EXPECT_EQ(CSettingsArray::CastToArray(array, false), array);
    EXPECT_EQ(CSettingsArray::CastToArray(nullptr, true), nullptr);

    // The array's own readers take only an array node.
    std::vector<uint8_t> mapNode = Hex("60 80 00 00");
    size_t pos = 0;
    EXPECT_EQ(CSettingsArray::ReadFromASN1Node(mapNode, pos), nullptr);
    pos = 0;
    EXPECT_EQ(CSettingsArray::ReadFromJSONNode("{}", pos), nullptr);
}
