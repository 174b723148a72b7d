// An ordered dictionary from text keys to settings objects. Keys are unique and iterated in
// ascending byte-wise order, the order of every output (keys, trace, archive, JSON). A stored
// value is never a null pointer: storing null stores a new CSettingsNULL, which lookups then
// report as absent although IsKeyPresent reports the key.
#pragma once

#include "Common/Settings/CSettingsObject.h"

#include <span>
#include <utility>
#include <vector>

class CSettingsMap : public CSettingsObject
{
public:
    explicit CSettingsMap(SPrivate) {}
    ~CSettingsMap() override;
    static std::shared_ptr<CSettingsMap> New();
    static std::string GetClassTypeName() { return "map"; }

    // Inserts or replaces.
    void SetKeyAndObject(const std::string& key_I, std::shared_ptr<CSettingsObject> object_I);
    void SetKeyAndObject(std::string&& key_I, std::shared_ptr<CSettingsObject> object_I);
    void SetKeyAndBool(const std::string& key_I, bool value_I);
    void SetKeyAndInteger(const std::string& key_I, long long value_I);
    void SetKeyAndDouble(const std::string& key_I, double value_I);
    void SetKeyAndString(const std::string& key_I, const std::string& value_I);
    void SetKeyAndKEString(const std::string& key_I, const std::string& value_I);

    // The stored object (shared); null for an absent key or a stored null.
    std::shared_ptr<CSettingsObject> ObjectForKey(const std::string& key_I) const;
    // Typed lookup for CSettingsBool, CSettingsInteger, CSettingsDouble, CSettingsString and
    // CSettingsKEString: a value of another type prints a line on standard error and gives
    // null; no value is ever converted.
    template <class T> std::shared_ptr<T> ObjectForKey(const std::string& key_I) const;
    template <class T>
    std::shared_ptr<T> ObjectForKeyWithDefault(const std::string& key_I,
                                               std::shared_ptr<T> default_I) const;
    bool BoolForKeyWithDefault(const std::string& key_I, bool default_I) const;
    long long IntegerForKeyWithDefault(const std::string& key_I, long long default_I) const;
    double DoubleForKeyWithDefault(const std::string& key_I, double default_I) const;
    std::string StringForKeyWithDefault(const std::string& key_I,
                                        const std::string& default_I) const;
    std::string KEStringForKeyWithDefault(const std::string& key_I,
                                          const std::string& default_I) const;

    bool IsKeyPresent(const std::string& key_I) const;
    void RemoveObjectForKey(const std::string& key_I);
    size_t ObjectCount() const { return mObjectMap.size(); }
    std::vector<std::string> GetKeys() const;
    // The type name of ObjectForKey, or empty when that is null.
    std::string TypeNameForKeyOrEmpty(const std::string& key_I) const;

    // Sets every key of `other_I` here, sharing its values (no deep copy); nothing for null.
    void MergeMapObject(std::shared_ptr<CSettingsMap> other_I);

    // Null for null; the same object for a "map"; otherwise null, with a line on standard
    // error when `reportFailure` is true.
    static std::shared_ptr<CSettingsMap> CastToMap(std::shared_ptr<CSettingsObject> object_I,
                                                   bool reportFailure);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override { return std::string(); }
    // map[key:trace, ...]; an empty map traces as "ma]" (the last two characters are cut
    // even when there are none to cut), which is the established output.
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    // An empty map writes "\n}" (the cut takes the opening brace); established output, kept.
    std::string CreateJSONNode(int indent) const override;

    // Indefinite length: key string nodes and value nodes up to 00 00; an octet that does not
    // start a key string is skipped alone (resynchronising). A definite length returns an
    // empty map at once (asserting unless it is 0).
    static std::shared_ptr<CSettingsMap> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                          size_t& pos_IO);
    // An object: pairs are stored as the following ',' or '}' is reached (a trailing comma is
    // accepted; a pair followed by another without a ',' makes the result null). The pair closed
    // by '}' with the key "SbyteS" and a string value is stored as the bytes the base64
    // string holds.
    static std::shared_ptr<CSettingsMap> ReadFromJSONNode(const std::string& buffer_I,
                                                          size_t& pos_IO);

protected:
    bool HasChildren() const override;
    void MoveChildrenInto(ChildList& children_IO) override;

private:
    using SEntry = std::pair<std::string, std::shared_ptr<CSettingsObject>>;

    std::vector<SEntry>::const_iterator Find(const std::string& key_I) const;
    template <class TKey> void Store(TKey&& key_I, std::shared_ptr<CSettingsObject> object_I);
    // Stores the entries read, in their order (a later key replaces an earlier one); moves
    // them out of `entries_IO`.
    void TakeEntries(std::span<SEntry> entries_IO);

    // The entries in ascending key order, each key once: one block for the whole map rather
    // than a node per entry. Maps are small, and archives and written JSON list their keys
    // in order, so a map being read grows at its end.
    std::vector<SEntry> mObjectMap;
};
