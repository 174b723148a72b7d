// Random trees through the archive and through JSON text.
#include "SettingsTestSupport.h"

using namespace SettingsTest;

namespace
{
// What a tree becomes after a trip through JSON text: kestrings come back as strings and
// doubles keep the six decimals they were written with.
std::shared_ptr<CSettingsObject> AsJSONKeepsIt(const std::shared_ptr<CSettingsObject>& object)
{
    if (auto map = CSettingsMap::CastToMap(object, false))
    {
        auto copy = CSettingsMap::New();
        for (const std::string& key : map->GetKeys())
        {
            copy->SetKeyAndObject(key, AsJSONKeepsIt(map->ObjectForKey(key)));
        }
        return copy;
    }
    if (auto array = CSettingsArray::CastToArray(object, false))
    {
        auto copy = CSettingsArray::New();
        for (size_t i = 0; i < array->ObjectCount(); ++i)
        {
            copy->AddObject(AsJSONKeepsIt(array->ObjectForIndex(i)));
        }
        return copy;
    }
    if (!object)
    {
        return nullptr;
    }
    if (object->GetTypeName() == "kestring")
    {
        return CSettingsString::New(object->GetStringValue());
    }
    if (object->GetTypeName() == "double")
    {
        return CSettingsDouble::New(std::stod(object->GetStringValue()));
    }
    return object->DeepCopy();
}
} // namespace

TEST(CSettingsRoundTrip, RandomTreesThroughTheArchiveComeBackExactly)
{
    for (uint64_t seed = 1; seed <= 300; ++seed)
    {
        CRandomTree random(seed, false);
        std::shared_ptr<CSettingsObject> tree = random.Container(4);
        std::vector<uint8_t> archive = tree->GetASN1Binary();
        std::shared_ptr<CSettingsObject> back = CSettingsObject::ReadFromASN1Binary(archive);
        ASSERT_TRUE(back) << "seed " << seed;
        EXPECT_TRUE(back->IsEqualTo(tree)) << "seed " << seed;
        EXPECT_EQ(back->GetASN1Binary(), archive) << "seed " << seed;
        EXPECT_EQ(back->GetTraceString(), tree->GetTraceString()) << "seed " << seed;
    }
}

TEST(CSettingsRoundTrip, RandomTreesThroughJSONLoseOnlyWhatTheFormatDrops)
{
    for (uint64_t seed = 1; seed <= 300; ++seed)
    {
        CRandomTree random(seed, true);
        std::shared_ptr<CSettingsObject> tree = random.Container(4);
        std::string text = tree->GetJSONString();
        std::shared_ptr<CSettingsObject> back;
        SOutput output = Capture([&] { back = CSettingsObject::ReadFromJSONBuffer(text); });
        ASSERT_TRUE(back) << "seed " << seed << "\n" << text;
        // Stray characters or bad numbers would have been reported.
        EXPECT_EQ(output.err, "") << "seed " << seed;
        EXPECT_TRUE(back->IsEqualTo(AsJSONKeepsIt(tree))) << "seed " << seed << "\n" << text;
        EXPECT_EQ(back->GetJSONString(), text) << "seed " << seed;
    }
}

TEST(CSettingsRoundTrip, DeepCopiesOfRandomTreesAreEqualAndIndependent)
{
    for (uint64_t seed = 1; seed <= 50; ++seed)
    {
        CRandomTree random(seed, false);
        auto tree = random.Map(3);
        auto copy = CSettingsMap::CastToMap(tree->DeepCopy(), true);
        ASSERT_TRUE(copy);
        EXPECT_TRUE(copy->IsEqualTo(tree));
        EXPECT_EQ(copy->GetASN1Binary(), tree->GetASN1Binary());
        tree->SetKeyAndInteger("\x01 added", 1);
        EXPECT_FALSE(copy->IsEqualTo(tree));
        EXPECT_FALSE(copy->IsKeyPresent("\x01 added"));
    }
}
