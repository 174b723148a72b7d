#include "Common/Settings/CSettingsMap.h"

#include "Common/ASN1Coding.h"
#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsKEString.h"
#include "Common/Settings/CSettingsNULL.h"
#include "Common/Settings/CSettingsNestingGuard.h"
#include "Common/Settings/CSettingsPendingEntries.h"
#include "Common/Settings/CSettingsString.h"
#include "Common/Settings/SettingsJSONLexer.h"
#include "Common/StringUtilities.h"

#include <algorithm>
#include <typeinfo>

std::shared_ptr<CSettingsMap> CSettingsMap::New()
{
    return std::make_shared<CSettingsMap>(SPrivate());
}

std::vector<CSettingsMap::SEntry>::const_iterator CSettingsMap::Find(const std::string& key_I) const
{
    auto found = std::lower_bound(mObjectMap.begin(), mObjectMap.end(), key_I,
                                  [](const SEntry& entry, const std::string& key)
                                  { return entry.first < key; });
    return found != mObjectMap.end() && found->first == key_I ? found : mObjectMap.end();
}

template <class TKey>
void CSettingsMap::Store(TKey&& key_I, std::shared_ptr<CSettingsObject> object_I)
{
    if (!object_I)
    {
        object_I = CSettingsNULL::New();
    }
    if (mObjectMap.empty() || mObjectMap.back().first < key_I)
    {
        mObjectMap.emplace_back(std::forward<TKey>(key_I), std::move(object_I));
        return;
    }
    auto at = std::lower_bound(mObjectMap.begin(), mObjectMap.end(), key_I,
                               [](const SEntry& entry, const std::string& key)
                               { return entry.first < key; });
    if (at->first == key_I)
    {
        at->second = std::move(object_I);
    }
    else
    {
        mObjectMap.emplace(at, std::forward<TKey>(key_I), std::move(object_I));
    }
}

void CSettingsMap::TakeEntries(std::span<SEntry> entries_IO)
{
    // Archives list their keys in ascending order, each once: then the block is taken as it
    // is. Anything else (a hand-made or damaged archive) goes through Store one by one.
    bool ascending = mObjectMap.empty();
    for (size_t i = 1; ascending && i < entries_IO.size(); ++i)
    {
        ascending = entries_IO[i - 1].first < entries_IO[i].first;
    }
    if (!ascending)
    {
        for (SEntry& entry : entries_IO)
        {
            Store(std::move(entry.first), std::move(entry.second));
        }
        return;
    }
    mObjectMap.reserve(entries_IO.size());
    for (SEntry& entry : entries_IO)
    {
        if (!entry.second)
        {
            entry.second = CSettingsNULL::New();
        }
        mObjectMap.push_back(std::move(entry));
    }
}

void CSettingsMap::SetKeyAndObject(const std::string& key_I,
                                   std::shared_ptr<CSettingsObject> object_I)
{
    Store(key_I, std::move(object_I));
}

void CSettingsMap::SetKeyAndObject(std::string&& key_I, std::shared_ptr<CSettingsObject> object_I)
{
    Store(std::move(key_I), std::move(object_I));
}

void CSettingsMap::SetKeyAndBool(const std::string& key_I, bool value_I)
{
    SetKeyAndObject(key_I, CSettingsBool::New(value_I));
}

void CSettingsMap::SetKeyAndInteger(const std::string& key_I, long long value_I)
{
    SetKeyAndObject(key_I, CSettingsInteger::New(value_I));
}

void CSettingsMap::SetKeyAndDouble(const std::string& key_I, double value_I)
{
    SetKeyAndObject(key_I, CSettingsDouble::New(value_I));
}

void CSettingsMap::SetKeyAndString(const std::string& key_I, const std::string& value_I)
{
    SetKeyAndObject(key_I, CSettingsString::New(value_I));
}

void CSettingsMap::SetKeyAndKEString(const std::string& key_I, const std::string& value_I)
{
    SetKeyAndObject(key_I, CSettingsKEString::New(value_I));
}

std::shared_ptr<CSettingsObject> CSettingsMap::ObjectForKey(const std::string& key_I) const
{
    auto found = Find(key_I);
    if (found == mObjectMap.end() ||
        found->second->GetTypeName() == CSettingsNULL::GetClassTypeName())
    {
        return nullptr;
    }
    return found->second;
}

template <class T> std::shared_ptr<T> CSettingsMap::ObjectForKey(const std::string& key_I) const
{
    std::shared_ptr<CSettingsObject> object = ObjectForKey(key_I);
    if (!object)
    {
        return nullptr;
    }
    std::shared_ptr<T> result = object->CastTo<T>();
    if (!result)
    {
        std::fprintf(stderr, "CSettingsMap::ObjectForKey got a %s and failed to cast to %s\n",
                     object->GetTypeName().c_str(), typeid(T).name());
    }
    return result;
}

template <class T>
std::shared_ptr<T> CSettingsMap::ObjectForKeyWithDefault(const std::string& key_I,
                                                         std::shared_ptr<T> default_I) const
{
    std::shared_ptr<T> result = ObjectForKey<T>(key_I);
    return result ? result : default_I;
}

#define KEL_MAP_LOOKUP_INSTANCES(T)                                                                \
    template std::shared_ptr<T> CSettingsMap::ObjectForKey<T>(const std::string&) const;           \
    template std::shared_ptr<T> CSettingsMap::ObjectForKeyWithDefault<T>(                          \
        const std::string&, std::shared_ptr<T>) const;
KEL_MAP_LOOKUP_INSTANCES(CSettingsBool)
KEL_MAP_LOOKUP_INSTANCES(CSettingsInteger)
KEL_MAP_LOOKUP_INSTANCES(CSettingsDouble)
KEL_MAP_LOOKUP_INSTANCES(CSettingsString)
KEL_MAP_LOOKUP_INSTANCES(CSettingsKEString)
#undef KEL_MAP_LOOKUP_INSTANCES

bool CSettingsMap::BoolForKeyWithDefault(const std::string& key_I, bool default_I) const
{
    return ObjectForKeyWithDefault(key_I, CSettingsBool::New(default_I))->GetValue();
}

long long CSettingsMap::IntegerForKeyWithDefault(const std::string& key_I,
                                                 long long default_I) const
{
    return ObjectForKeyWithDefault(key_I, CSettingsInteger::New(default_I))->GetValue();
}

double CSettingsMap::DoubleForKeyWithDefault(const std::string& key_I, double default_I) const
{
    return ObjectForKeyWithDefault(key_I, CSettingsDouble::New(default_I))->GetValue();
}

std::string CSettingsMap::StringForKeyWithDefault(const std::string& key_I,
                                                  const std::string& default_I) const
{
    return ObjectForKeyWithDefault(key_I, CSettingsString::New(default_I))->GetValue();
}

std::string CSettingsMap::KEStringForKeyWithDefault(const std::string& key_I,
                                                    const std::string& default_I) const
{
    return ObjectForKeyWithDefault(key_I, CSettingsKEString::New(default_I))->GetValue();
}

bool CSettingsMap::IsKeyPresent(const std::string& key_I) const
{
    return Find(key_I) != mObjectMap.end();
}

void CSettingsMap::RemoveObjectForKey(const std::string& key_I)
{
    auto found = Find(key_I);
    if (found != mObjectMap.end())
    {
        mObjectMap.erase(found);
    }
}

std::vector<std::string> CSettingsMap::GetKeys() const
{
    std::vector<std::string> keys;
    keys.reserve(mObjectMap.size());
    for (const auto& entry : mObjectMap)
    {
        keys.push_back(entry.first);
    }
    return keys;
}

std::string CSettingsMap::TypeNameForKeyOrEmpty(const std::string& key_I) const
{
    std::shared_ptr<CSettingsObject> object = ObjectForKey(key_I);
    return object ? object->GetTypeName() : std::string();
}

void CSettingsMap::MergeMapObject(std::shared_ptr<CSettingsMap> other_I)
{
    if (!other_I)
    {
        return;
    }
    for (const auto& entry : other_I->mObjectMap)
    {
        SetKeyAndObject(entry.first, other_I->ObjectForKey(entry.first));
    }
}

std::shared_ptr<CSettingsMap> CSettingsMap::CastToMap(std::shared_ptr<CSettingsObject> object_I,
                                                      bool reportFailure)
{
    if (!object_I)
    {
        return nullptr;
    }
    std::string typeName = object_I->GetTypeName();
    if (typeName == GetClassTypeName())
    {
        if (auto map = std::dynamic_pointer_cast<CSettingsMap>(object_I))
        {
            return map;
        }
    }
    if (reportFailure)
    {
        std::fprintf(stderr,
                     "CSettingsMap::CastToMap got a %s and failed to cast to CSettingsMap\n",
                     typeName.c_str());
    }
    return nullptr;
}

std::shared_ptr<CSettingsObject> CSettingsMap::DeepCopy() const
{
    std::shared_ptr<CSettingsMap> copy = New();
    for (const auto& obj : mObjectMap)
    {
        KelAssert(obj.second);
        copy->SetKeyAndObject(obj.first, obj.second ? obj.second->DeepCopy() : nullptr);
    }
    return copy;
}

std::string CSettingsMap::GetTraceString() const
{
    std::string trace = GetTypeName() + "[";
    for (const auto& entry : mObjectMap)
    {
        trace += entry.first + ":" + entry.second->GetTraceString() + ", ";
    }
    trace.erase(trace.size() - 2);
    return trace + "]";
}

void CSettingsMap::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    CSettingsNestingGuard guard;
    if (guard.RefuseWriteIfTooDeep())
    {
        return;
    }
    archive_IO.push_back(ASN1Coding::MakeIdentifier(ASN1Coding::kMapID));
    archive_IO.push_back(ASN1Coding::MakeIndefiniteLength());
    for (const auto& obj : mObjectMap)
    {
        KelAssert(obj.second);
        ASN1Coding::EncodeStringToArchive(obj.first, archive_IO, false);
        if (obj.second)
        {
            obj.second->AppendASN1Node(archive_IO);
        }
        else
        {
            ASN1Coding::EncodeNULLToArchive(archive_IO);
        }
    }
    ASN1Coding::EncodeEndOfContentsIdentifierToArchive(archive_IO);
}

bool CSettingsMap::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsMap>(other_I);
    if (!other || other->mObjectMap.size() != mObjectMap.size())
    {
        return false;
    }
    for (auto mineEntry = mObjectMap.begin(), theirEntry = other->mObjectMap.cbegin();
         mineEntry != mObjectMap.end(); ++mineEntry, ++theirEntry)
    {
        if (mineEntry->first != theirEntry->first)
        {
            return false;
        }
    }
    for (const auto& entry : mObjectMap)
    {
        std::shared_ptr<CSettingsObject> mine = ObjectForKey(entry.first);
        std::shared_ptr<CSettingsObject> theirs = other->ObjectForKey(entry.first);
        KelAssert(mine);
        // Two nulls under the same key are equal.
        if (mine ? !mine->IsEqualTo(theirs) : theirs != nullptr)
        {
            return false;
        }
    }
    return true;
}

std::string CSettingsMap::CreateJSONNode(int indent) const
{
    CSettingsNestingGuard guard;
    if (guard.RefuseWriteIfTooDeep())
    {
        return std::string();
    }
    std::string padding = indent >= 0 ? std::string(static_cast<size_t>(indent) + 1, '\t') : "";
    int childIndent = indent >= 0 ? indent + 1 : indent;
    std::string json = "{\n";
    for (const auto& entry : mObjectMap)
    {
        json += padding + "\"" + entry.first + "\": " + entry.second->CreateJSONNode(childIndent) +
                ",\n";
    }
    json.erase(json.size() - 2);
    json += "\n";
    if (!padding.empty())
    {
        json.append(padding, 0, padding.size() - 1);
    }
    return json + "}";
}

std::shared_ptr<CSettingsMap> CSettingsMap::ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                             size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kMapID)
    {
        return nullptr;
    }
    CSettingsNestingGuard guard;
    guard.ThrowIfTooDeep();
    std::shared_ptr<CSettingsMap> map = New();
    size_t length = ASN1Coding::DecodeLengthFromArchive(archive_I, pos_IO);
    KelAssert((length == ASN1Coding::IndefiniteLength) || (length == 0));
    if (length != ASN1Coding::IndefiniteLength)
    {
        return map;
    }
    CSettingsPendingEntries<SEntry> entries;
    while (!ASN1Coding::DecodeEndOfContentsIdentifierFromArchive(archive_I, pos_IO))
    {
        // Anything but a key string is skipped one octet at a time.
        if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) !=
            ASN1Coding::kStringID)
        {
            continue;
        }
        // The key is copied once, straight into its pending entry; the value is read after
        // it (a nested container's entries come and go above this one).
        const size_t entry =
            entries.Emplace(ASN1Coding::DecodeStringViewFromArchive(archive_I, pos_IO), nullptr);
        std::shared_ptr<CSettingsObject> value =
            CSettingsObject::ReadFromASN1Node(archive_I, pos_IO);
        entries.Entries()[entry].second = std::move(value);
    }
    map->TakeEntries(entries.Entries());
    return map;
}

std::shared_ptr<CSettingsMap> CSettingsMap::ReadFromJSONNode(const std::string& buffer_I,
                                                             size_t& pos_IO)
{
    if (pos_IO >= buffer_I.size() || buffer_I[pos_IO] != '{')
    {
        return nullptr;
    }
    CSettingsNestingGuard guard;
    if (guard.ReportIfTooDeep("CSettingsMap::ReadFromJSONNode"))
    {
        return nullptr;
    }
    std::shared_ptr<CSettingsMap> map = New();
    size_t pos = pos_IO + 1;
    // The pair read last, stored when its ',' or '}' is reached.
    std::string key;
    std::shared_ptr<CSettingsObject> value;
    while (SettingsJSONLexer::SkipSpaceAndComments(buffer_I, pos))
    {
        char c = buffer_I[pos];
        if (c == '}' || c == ',')
        {
            ++pos;
            if (value)
            {
                if (c == '}' && key == CSettingsBytes::kJSONKey)
                {
                    if (auto text = std::dynamic_pointer_cast<CSettingsString>(value))
                    {
                        value = CSettingsBytes::New(
                            StringUtilities::GetBytesFromBase64(text->GetValue()));
                    }
                }
                map->SetKeyAndObject(std::move(key), std::move(value));
                value = nullptr;
            }
            if (c == '}')
            {
                pos_IO = pos;
                return map;
            }
            continue;
        }
        if (value)
        {
            SettingsJSONLexer::ReportMissingSeparator("CSettingsMap::ReadFromJSONNode", pos);
            return nullptr;
        }
        if (!CSettingsString::ReadJSONText(buffer_I, pos, key) || key.empty())
        {
            return nullptr;
        }
        if (!SettingsJSONLexer::SkipSpaceAndComments(buffer_I, pos) || buffer_I[pos] != ':')
        {
            return nullptr;
        }
        ++pos;
        value = CSettingsObject::ReadFromJSONNode(buffer_I, pos);
        if (!value)
        {
            return nullptr;
        }
    }
    return nullptr;
}

CSettingsMap::~CSettingsMap()
{
    ChildList children;
    MoveChildrenInto(children);
    if (!children.empty())
    {
        ReleaseWithoutRecursion(children);
    }
}

bool CSettingsMap::HasChildren() const
{
    return !mObjectMap.empty();
}

void CSettingsMap::MoveChildrenInto(ChildList& children_IO)
{
    for (SEntry& entry : mObjectMap)
    {
        if (HoldsSubtree(entry.second))
        {
            children_IO.push_back(std::move(entry.second));
        }
    }
}
