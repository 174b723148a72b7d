#include "Common/Settings/CSettingsObject.h"

#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsMap.h"

namespace
{
// Rectangles and points are 32-bit records: their arithmetic wraps like the machine's.
int32_t Wrap32(uint64_t value)
{
    return static_cast<int32_t>(static_cast<uint32_t>(value));
}

int32_t Add32(int32_t a, int32_t b)
{
    return Wrap32(static_cast<uint64_t>(static_cast<int64_t>(a)) +
                  static_cast<uint64_t>(static_cast<int64_t>(b)));
}

int32_t Sub32(int32_t a, int32_t b)
{
    return Wrap32(static_cast<uint64_t>(static_cast<int64_t>(a)) -
                  static_cast<uint64_t>(static_cast<int64_t>(b)));
}
} // namespace

void CSettingsObject::SetPlatformIDFilter(const std::string& platform_I)
{
    mPlatformID = platform_I;
}

void CSettingsObject::SetLanguageIDFilter(const std::string& language_I)
{
    mLanguageID = language_I;
}

std::string CSettingsObject::PlatformIDFilter()
{
    return mPlatformID;
}

std::string CSettingsObject::LanguageIDFilter()
{
    return mLanguageID;
}

bool CSettingsObject::ValidForCurrentLangAndPlat(const std::string& language_I,
                                                 const std::string& platform_I)
{
    if (!language_I.empty() && !mLanguageID.empty() && language_I != mLanguageID)
    {
        return false;
    }
    if (platform_I.empty() || mPlatformID.empty())
    {
        return true;
    }
    return platform_I == mPlatformID;
}

template <>
std::shared_ptr<CSettingsObject> CSettingsObject::FromComplexType<SRect>(const SRect& value_I)
{
    const SRect& r = value_I;
    int32_t top = r.height < r.epsilon ? Add32(Add32(r.y, r.height), r.epsilon) : r.y;
    int32_t left = r.width < r.epsilon ? Add32(Add32(r.x, r.width), r.epsilon) : r.x;
    int32_t heightToEdge = Sub32(r.height, r.epsilon);
    int32_t widthToEdge = Sub32(r.width, r.epsilon);
    int32_t bottom = heightToEdge >= 0 ? Add32(r.y, heightToEdge) : r.y;
    int32_t right = widthToEdge >= 0 ? Add32(r.x, widthToEdge) : r.x;
    std::shared_ptr<CSettingsMap> map = CSettingsMap::New();
    map->SetKeyAndInteger("Top", top);
    map->SetKeyAndInteger("Left", left);
    map->SetKeyAndInteger("Bottom", bottom);
    map->SetKeyAndInteger("Right", right);
    map->SetKeyAndInteger("Epsilon", Sub32(Add32(r.width, left), right));
    return map;
}

template <>
std::shared_ptr<CSettingsObject> CSettingsObject::FromComplexType<SPoint>(const SPoint& value_I)
{
    std::shared_ptr<CSettingsMap> map = CSettingsMap::New();
    map->SetKeyAndInteger("x", value_I.x);
    map->SetKeyAndInteger("y", value_I.y);
    return map;
}

template <> SRect CSettingsObject::ToComplexType<SRect>()
{
    std::shared_ptr<CSettingsMap> map = CSettingsMap::CastToMap(shared_from_this(), false);
    KelAssert(map && "This isn't a frozen SRect");
    if (!map)
    {
        return SRect();
    }
    KelAssert(map->IsKeyPresent("Top"));
    KelAssert(map->IsKeyPresent("Left"));
    KelAssert(map->IsKeyPresent("Bottom"));
    KelAssert(map->IsKeyPresent("Right"));
    auto top = static_cast<uint64_t>(map->IntegerForKeyWithDefault("Top", 0));
    auto left = static_cast<uint64_t>(map->IntegerForKeyWithDefault("Left", 0));
    auto bottom = static_cast<uint64_t>(map->IntegerForKeyWithDefault("Bottom", 0));
    auto right = static_cast<uint64_t>(map->IntegerForKeyWithDefault("Right", 0));
    auto epsilon = static_cast<uint64_t>(map->IntegerForKeyWithDefault("Epsilon", 0));
    SRect rect;
    rect.x = Wrap32(left);
    rect.y = Wrap32(top);
    rect.width = Wrap32(right - left + epsilon);
    rect.height = Wrap32(bottom - top + epsilon);
    rect.epsilon = Wrap32(epsilon);
    return rect;
}

template <> SPoint CSettingsObject::ToComplexType<SPoint>()
{
    std::shared_ptr<CSettingsMap> map = CSettingsMap::CastToMap(shared_from_this(), false);
    KelAssert(map && "This isn't a frozen SPoint");
    if (!map)
    {
        return SPoint();
    }
    KelAssert(map->IsKeyPresent("x"));
    KelAssert(map->IsKeyPresent("y"));
    SPoint point;
    point.x = Wrap32(static_cast<uint64_t>(map->IntegerForKeyWithDefault("x", 0)));
    point.y = Wrap32(static_cast<uint64_t>(map->IntegerForKeyWithDefault("y", 0)));
    return point;
}

void CSettingsObject::ReleaseWithoutRecursion(ChildList& children_IO)
{
    while (!children_IO.empty())
    {
        std::shared_ptr<CSettingsObject> child = std::move(children_IO.back());
        children_IO.pop_back();
        child->MoveChildrenInto(children_IO);
    }
}
