// The root of the settings tree: a small, closed family of typed values (null, bool, 64-bit
// integer, double, string, kestring, bytes, map, array) that travel between processes as a
// binary archive (ASN1Coding.h) and are kept in files as JSON text.
//
// Objects are created only through the static New factories of the concrete classes and
// always held by std::shared_ptr, so shared_from_this() is always valid; a null pointer is
// the universal result for absence or failure. Children are shared between containers until
// DeepCopy separates them.
//
// Reading is bounded for untrusted input: see CSettingsNestingGuard.h for the nesting limit.
#pragma once

#include "Common/Settings/SPoint.h"
#include "Common/Settings/SRect.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

class CSettingsObject : public std::enable_shared_from_this<CSettingsObject>
{
public:
    // A new, independent object of the same class with an equal value.
    virtual std::shared_ptr<CSettingsObject> DeepCopy() const = 0;
    virtual ~CSettingsObject() = default;
    // "null", "bool", "integer", "double", "string", "kestring", "bytes", "map" or "array".
    virtual std::string GetTypeName() const = 0;
    // The value as plain text; empty for null and the containers.
    virtual std::string GetStringValue() const = 0;
    // A one-line description for diagnostics: type[value].
    virtual std::string GetTraceString() const = 0;
    virtual void AppendASN1Node(std::vector<uint8_t>& archive_IO) const = 0;
    // True only for an object of exactly this class with an equal value.
    virtual bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const = 0;
    // This object as JSON text; containers indent their children with tabs (negative: none).
    virtual std::string CreateJSONNode(int indent) const = 0;

    // This object viewed as a T, or null when it is not one; prints nothing.
    template <class T> std::shared_ptr<T> CastTo()
    {
        return std::dynamic_pointer_cast<T>(shared_from_this());
    }

    // Process-wide language and platform filters, empty at start.
    static void SetPlatformIDFilter(const std::string& platform_I);
    static void SetLanguageIDFilter(const std::string& language_I);
    static std::string PlatformIDFilter();
    static std::string LanguageIDFilter();
    // Whether a value tagged with `language_I` and `platform_I` applies under the filters: an
    // empty filter accepts every tag and an empty tag passes every filter.
    static bool ValidForCurrentLangAndPlat(const std::string& language_I,
                                           const std::string& platform_I);

    // Fixed records stored as maps of integers (SRect, SPoint).
    template <class T> static std::shared_ptr<CSettingsObject> FromComplexType(const T& value_I);
    template <class T> T ToComplexType();

    // The archive: the magic integer node, then this object's node.
    std::vector<uint8_t> GetASN1Binary() const;
    // Null on any failure; a malformed archive prints "ReadFromASN1Binary: <reason>" to
    // standard error, a missing header nothing.
    static std::shared_ptr<CSettingsObject>
    ReadFromASN1Binary(const std::vector<uint8_t>& archive_I);
    // The same, silent, with the reason of a failure in `failure_O` (for tools that report it).
    static std::shared_ptr<CSettingsObject>
    ReadFromASN1Binary(const std::vector<uint8_t>& archive_I, std::string& failure_O);
    // One node of any type that can be read back; throws std::out_of_range at the end of the
    // archive and std::runtime_error for an unknown node (a null node among them).
    static std::shared_ptr<CSettingsObject> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                             size_t& pos_IO);

    // JSON text. The top level must be an object or an array; never throws.
    static std::shared_ptr<CSettingsObject> ReadFromJSONBuffer(const std::string& buffer_I);
    static std::shared_ptr<CSettingsObject> ReadFromJSONFile(const std::string& path_I);
    // One value of any type at `pos_IO`, skipping comments and stray characters.
    static std::shared_ptr<CSettingsObject> ReadFromJSONNode(const std::string& buffer_I,
                                                             size_t& pos_IO);
    // CreateJSONNode(0) for a map or an array, otherwise empty.
    std::string GetJSONString() const;
    bool SaveJSONToFile(const std::string& path_I) const;

protected:
    // Only the classes of the family can make the key that their constructors take, so
    // std::make_shared works while everyone else must go through New.
    struct SPrivate
    {
        explicit SPrivate() = default;
    };

    CSettingsObject() = default;

    using ChildList = std::vector<std::shared_ptr<CSettingsObject>>;
    // Whether this object holds values of its own (a container that is not empty).
    virtual bool HasChildren() const { return false; }
    // Moves those children that this object alone holds and that hold children themselves
    // to the end of `children_IO`; the others go with this object as usual, as they free
    // nothing below them.
    virtual void MoveChildrenInto(ChildList&) {}
    // Releases `children_IO` with a loop instead of one destructor inside the other: a child
    // gives its own such children to the list before it goes. The containers' destructors
    // call it, so a tree a million levels deep is freed in constant stack, and a container
    // without containers in it allocates nothing for this.
    static void ReleaseWithoutRecursion(ChildList& children_IO);
    // Whether `child_I` is to be moved out by MoveChildrenInto.
    static bool HoldsSubtree(const std::shared_ptr<CSettingsObject>& child_I)
    {
        return child_I && child_I.use_count() == 1 && child_I->HasChildren();
    }

    // The checked conversion shared by the scalar CastToX functions: null stays null
    // silently; an object whose type name is `typeName_I` comes back as a T; anything else
    // prints "<castName_I> got source object of type <type>" and gives null.
    template <class T>
    static std::shared_ptr<T> CheckedCast(const std::shared_ptr<CSettingsObject>& object_I,
                                          const char* typeName_I, const char* castName_I,
                                          const char* className_I)
    {
        if (!object_I)
        {
            return nullptr;
        }
        std::string actual = object_I->GetTypeName();
        if (actual != typeName_I)
        {
            std::fprintf(stderr, "%s got source object of type %s\n", castName_I, actual.c_str());
            return nullptr;
        }
        std::shared_ptr<T> result = std::dynamic_pointer_cast<T>(object_I);
        if (!result)
        {
            std::fprintf(stderr, "%s got a %s and failed to cast to %s\n", castName_I,
                         actual.c_str(), className_I);
        }
        return result;
    }

private:
    inline static std::string mPlatformID;
    inline static std::string mLanguageID;
};

template <>
std::shared_ptr<CSettingsObject> CSettingsObject::FromComplexType<SRect>(const SRect& value_I);
template <>
std::shared_ptr<CSettingsObject> CSettingsObject::FromComplexType<SPoint>(const SPoint& value_I);
template <> SRect CSettingsObject::ToComplexType<SRect>();
template <> SPoint CSettingsObject::ToComplexType<SPoint>();
