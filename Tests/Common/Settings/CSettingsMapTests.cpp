#include "SettingsTestSupport.h"

#include <regex>

using namespace SettingsTest;

TEST(CSettingsMap, TypedLookupsNeverConvertAndNameTheWrongType)
{
    auto map = CSettingsMap::New();
    map->SetKeyAndDouble("d", 2.5);
    map->SetKeyAndString("s", "true");
    map->SetKeyAndKEString("k", "ke");

    long long integer = 0;
    SOutput output = Capture([&] { integer = map->IntegerForKeyWithDefault("d", 7); });
    EXPECT_EQ(integer, 7);
    EXPECT_EQ(output.err,
              "CSettingsMap::ObjectForKey got a double and failed to cast to 16CSettingsInteger\n");

    bool flag = false;
    output = Capture([&] { flag = map->BoolForKeyWithDefault("s", false); });
    EXPECT_FALSE(flag);
    EXPECT_NE(output.err.find("got a string and failed to cast to 13CSettingsBool"),
              std::string::npos);

    output = Capture([&] { EXPECT_EQ(map->StringForKeyWithDefault("k", "dflt"), "dflt"); });
    EXPECT_NE(output.err.find("15CSettingsString"), std::string::npos);

    // Right types and absent keys are silent.
    output = Capture(
        [&]
        {
            EXPECT_EQ(map->KEStringForKeyWithDefault("k", ""), "ke");
            EXPECT_EQ(map->DoubleForKeyWithDefault("d", 0), 2.5);
            EXPECT_EQ(map->ObjectForKey<CSettingsBool>("absent"), nullptr);
            auto fallback = CSettingsString::New("f");
            EXPECT_EQ(map->ObjectForKeyWithDefault<CSettingsString>("absent", fallback), fallback);
        });
    EXPECT_EQ(output.err, "");
}

TEST(CSettingsMap, MergeSharesValuesAndOverwrites)
{
    auto target = CSettingsMap::New();
    target->SetKeyAndInteger("a", 1);
    target->SetKeyAndInteger("b", 1);
    auto source = CSettingsMap::New();
    source->SetKeyAndInteger("b", 2);
    source->SetKeyAndObject("n", nullptr);
    target->MergeMapObject(source);
    target->MergeMapObject(nullptr);
    EXPECT_EQ(target->GetKeys(), (std::vector<std::string>{"a", "b", "n"}));
    EXPECT_EQ(target->TypeNameForKeyOrEmpty("n"), "");
    EXPECT_TRUE(target->IsKeyPresent("n"));
    source->ObjectForKey<CSettingsInteger>("b")->SetValue(3);
    EXPECT_EQ(target->IntegerForKeyWithDefault("b", 0), 3);
}

TEST(CSettingsMap, DeepCopyEqualityAndCast)
{
    auto inner = CSettingsArray::New();
    inner->AddString("x");
    auto map = CSettingsMap::New();
    map->SetKeyAndObject("list", inner);
    map->SetKeyAndObject("none", nullptr);

    auto copy = CSettingsMap::CastToMap(map->DeepCopy(), true);
    ASSERT_TRUE(copy);
    EXPECT_TRUE(map->IsEqualTo(copy));
    inner->AddString("y");
    EXPECT_FALSE(map->IsEqualTo(copy));
    EXPECT_EQ(CSettingsArray::CastToArray(copy->ObjectForKey("list"), true)->ObjectCount(), 1u);

    auto other = CSettingsMap::New();
    other->SetKeyAndInteger("a", 1);
    auto renamed = CSettingsMap::New();
    renamed->SetKeyAndInteger("b", 1);
    EXPECT_FALSE(other->IsEqualTo(renamed));
    EXPECT_FALSE(other->IsEqualTo(CSettingsArray::New()));
    EXPECT_TRUE(CSettingsMap::New()->IsEqualTo(CSettingsMap::New()));

    SOutput output = Capture([&] { EXPECT_EQ(CSettingsMap::CastToMap(inner, false), nullptr); });
    EXPECT_EQ(output.err, "");
    output = Capture([&] { EXPECT_EQ(CSettingsMap::CastToMap(inner, true), nullptr); });
    EXPECT_EQ(output.err,
              "CSettingsMap::CastToMap got a array and failed to cast to CSettingsMap\n");
    EXPECT_EQ(CSettingsMap::CastToMap(nullptr, true), nullptr);
}

TEST(CSettingsComplexType, RectanglesSurviveTheMapForm)
{
    auto map =
        CSettingsMap::CastToMap(CSettingsObject::FromComplexType(SRect{10, 20, 100, 50, 1}), true);
    ASSERT_TRUE(map);
    EXPECT_EQ(map->GetTraceString(), "map[Bottom:integer[69], Epsilon:integer[1], "
                                     "Left:integer[10], Right:integer[109], Top:integer[20]]");
    EXPECT_EQ(map->ToComplexType<SRect>(), (SRect{10, 20, 100, 50, 1}));

    const SRect rects[] = {
        {0, 0, 0, 0, 0}, {-5, 7, 3, 4, 0}, {1, 2, 3, 4, 1}, {INT32_MAX, INT32_MIN, 9, 9, 1}};
    for (const SRect& r : rects)
    {
        EXPECT_EQ(CSettingsObject::FromComplexType(r)->ToComplexType<SRect>(), r);
    }
    // A size below epsilon moves the near edge instead: Left = x + width + epsilon.
    auto small =
        CSettingsMap::CastToMap(CSettingsObject::FromComplexType(SRect{10, 20, 0, 0, 1}), true);
    EXPECT_EQ(small->IntegerForKeyWithDefault("Left", 0), 11);
    EXPECT_EQ(small->IntegerForKeyWithDefault("Right", 0), 10);
    EXPECT_EQ(small->IntegerForKeyWithDefault("Epsilon", 0), 1);
}

TEST(CSettingsComplexType, PointsAndBrokenRecords)
{
    auto point = CSettingsObject::FromComplexType(SPoint{-3, 4});
    EXPECT_EQ(point->GetTraceString(), "map[x:integer[-3], y:integer[4]]");
    EXPECT_EQ(point->ToComplexType<SPoint>(), (SPoint{-3, 4}));

    SRect rect{1, 1, 1, 1, 1};
    SOutput output = Capture([&] { rect = CSettingsInteger::New(3)->ToComplexType<SRect>(); });
    EXPECT_EQ(rect, SRect());
    EXPECT_TRUE(std::regex_match(output.out, std::regex("Common/Settings/CSettingsObject:[0-9]+: "
                                                        "failed assertion: map && \"This isn't a "
                                                        "frozen SRect\"\n")))
        << output.out;

    auto partial = CSettingsMap::New();
    partial->SetKeyAndInteger("Left", 5);
    partial->SetKeyAndInteger("Right", 8);
    output = Capture([&] { rect = partial->ToComplexType<SRect>(); });
    EXPECT_EQ(rect, (SRect{5, 0, 3, 0, 0}));
    EXPECT_NE(output.out.find("failed assertion: map->IsKeyPresent(\"Top\")\n"), std::string::npos);
    EXPECT_NE(output.out.find("failed assertion: map->IsKeyPresent(\"Bottom\")\n"),
              std::string::npos);
    EXPECT_EQ(output.out.find("Left"), std::string::npos);

    SPoint p{1, 1};
    output = Capture([&] { p = CSettingsMap::New()->ToComplexType<SPoint>(); });
    EXPECT_EQ(p, SPoint());
    EXPECT_NE(output.out.find("map->IsKeyPresent(\"x\")"), std::string::npos);
    output = Capture([&] { p = CSettingsArray::New()->ToComplexType<SPoint>(); });
    EXPECT_NE(output.out.find("map && \"This isn't a frozen SPoint\""), std::string::npos);
}
