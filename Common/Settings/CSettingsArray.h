// An ordered list of settings objects, indexed from 0. As in the map, null is never stored:
// a CSettingsNULL takes its place, and lookups report it as absent.
#pragma once

#include "Common/Settings/CSettingsObject.h"

class CSettingsArray : public CSettingsObject
{
public:
    explicit CSettingsArray(SPrivate) {}
    ~CSettingsArray() override;
    static std::shared_ptr<CSettingsArray> New();
    static std::string GetClassTypeName() { return "array"; }

    void AddObject(std::shared_ptr<CSettingsObject> object_I);
    void AddBool(bool value_I);
    void AddInteger(long long value_I);
    void AddDouble(double value_I);
    void AddString(const std::string& value_I);
    // Replaces below the count, appends at the count, does nothing (silently) beyond it.
    void SetObjectAtIndex(size_t index_I, std::shared_ptr<CSettingsObject> object_I);

    // The element (shared); null beyond the count or for a stored null.
    std::shared_ptr<CSettingsObject> ObjectForIndex(size_t index_I) const;
    // Typed lookup for CSettingsBool, CSettingsInteger, CSettingsDouble and CSettingsString:
    // a value of another type prints a line on standard error and gives null.
    template <class T> std::shared_ptr<T> ObjectForIndex(size_t index_I) const;
    template <class T>
    std::shared_ptr<T> ObjectForIndexWithDefault(size_t index_I,
                                                 std::shared_ptr<T> default_I) const;
    bool BoolForIndexWithDefault(size_t index_I, bool default_I) const;
    long long IntegerForIndexWithDefault(size_t index_I, long long default_I) const;
    double DoubleForIndexWithDefault(size_t index_I, double default_I) const;
    std::string StringForIndexWithDefault(size_t index_I, const std::string& default_I) const;

    std::string TypeNameForIndexOrEmpty(size_t index_I) const;
    size_t ObjectCount() const { return mObjectVector.size(); }
    // 0, 1, ... count - 1.
    std::vector<size_t> GetIndexes() const;
    // Whether a non-empty CSettingsString element (never a CSettingsKEString) equals `text_I`,
    // ignoring case when asked; false for empty text.
    bool IsStringPresent(const std::string& text_I, bool ignoreCase) const;

    // Null for null; the same object for an "array"; otherwise null, with a line on standard
    // error when `reportFailure` is true.
    static std::shared_ptr<CSettingsArray> CastToArray(std::shared_ptr<CSettingsObject> object_I,
                                                       bool reportFailure);

    std::shared_ptr<CSettingsObject> DeepCopy() const override;
    std::string GetTypeName() const override { return GetClassTypeName(); }
    std::string GetStringValue() const override { return std::string(); }
    // array[0:trace, ...]; an empty array traces as "arra]", the established output.
    std::string GetTraceString() const override;
    void AppendASN1Node(std::vector<uint8_t>& archive_IO) const override;
    bool IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const override;
    // An empty array writes "\n]" (the cut takes the opening bracket); kept.
    std::string CreateJSONNode(int indent) const override;

    // Indefinite length: element nodes up to 00 00. A definite length returns an empty array
    // at once (asserting unless it is 0).
    static std::shared_ptr<CSettingsArray> ReadFromASN1Node(const std::vector<uint8_t>& archive_I,
                                                            size_t& pos_IO);
    // An array: elements are appended as the following ',' or ']' is reached (a trailing
    // comma is accepted).
    static std::shared_ptr<CSettingsArray> ReadFromJSONNode(const std::string& buffer_I,
                                                            size_t& pos_IO);

protected:
    bool HasChildren() const override;
    void MoveChildrenInto(ChildList& children_IO) override;

private:
    std::vector<std::shared_ptr<CSettingsObject>> mObjectVector;
};
