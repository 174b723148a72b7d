#include "Common/Settings/CSettingsArray.h"

#include "Common/ASN1Coding.h"
#include "Common/KelAssert.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsNULL.h"
#include "Common/Settings/CSettingsNestingGuard.h"
#include "Common/Settings/CSettingsPendingEntries.h"
#include "Common/Settings/CSettingsString.h"
#include "Common/Settings/SettingsJSONLexer.h"
#include "Common/StringUtilities.h"

#include <typeinfo>

std::shared_ptr<CSettingsArray> CSettingsArray::New()
{
    return std::make_shared<CSettingsArray>(SPrivate());
}

void CSettingsArray::AddObject(std::shared_ptr<CSettingsObject> object_I)
{
    mObjectVector.push_back(object_I ? std::move(object_I) : CSettingsNULL::New());
}

void CSettingsArray::AddBool(bool value_I)
{
    AddObject(CSettingsBool::New(value_I));
}

void CSettingsArray::AddInteger(long long value_I)
{
    AddObject(CSettingsInteger::New(value_I));
}

void CSettingsArray::AddDouble(double value_I)
{
    AddObject(CSettingsDouble::New(value_I));
}

void CSettingsArray::AddString(const std::string& value_I)
{
    AddObject(CSettingsString::New(value_I));
}

void CSettingsArray::SetObjectAtIndex(size_t index_I, std::shared_ptr<CSettingsObject> object_I)
{
    if (index_I < mObjectVector.size())
    {
        mObjectVector[index_I] = object_I ? std::move(object_I) : CSettingsNULL::New();
    }
    else if (index_I == mObjectVector.size())
    {
        AddObject(std::move(object_I));
    }
}

std::shared_ptr<CSettingsObject> CSettingsArray::ObjectForIndex(size_t index_I) const
{
    if (index_I >= mObjectVector.size() ||
        mObjectVector[index_I]->GetTypeName() == CSettingsNULL::GetClassTypeName())
    {
        return nullptr;
    }
    return mObjectVector[index_I];
}

template <class T> std::shared_ptr<T> CSettingsArray::ObjectForIndex(size_t index_I) const
{
    std::shared_ptr<CSettingsObject> object = ObjectForIndex(index_I);
    if (!object)
    {
        return nullptr;
    }
    std::shared_ptr<T> result = object->CastTo<T>();
    if (!result)
    {
        std::fprintf(stderr, "CSettingsArray::ObjectForIndex got a %s and failed to cast to %s\n",
                     object->GetTypeName().c_str(), typeid(T).name());
    }
    return result;
}

template <class T>
std::shared_ptr<T> CSettingsArray::ObjectForIndexWithDefault(size_t index_I,
                                                             std::shared_ptr<T> default_I) const
{
    std::shared_ptr<T> result = ObjectForIndex<T>(index_I);
    return result ? result : default_I;
}

#define KEL_ARRAY_LOOKUP_INSTANCES(T)                                                              \
    template std::shared_ptr<T> CSettingsArray::ObjectForIndex<T>(size_t) const;                   \
    template std::shared_ptr<T> CSettingsArray::ObjectForIndexWithDefault<T>(                      \
        size_t, std::shared_ptr<T>) const;
KEL_ARRAY_LOOKUP_INSTANCES(CSettingsBool)
KEL_ARRAY_LOOKUP_INSTANCES(CSettingsInteger)
KEL_ARRAY_LOOKUP_INSTANCES(CSettingsDouble)
KEL_ARRAY_LOOKUP_INSTANCES(CSettingsString)
#undef KEL_ARRAY_LOOKUP_INSTANCES

bool CSettingsArray::BoolForIndexWithDefault(size_t index_I, bool default_I) const
{
    return ObjectForIndexWithDefault(index_I, CSettingsBool::New(default_I))->GetValue();
}

long long CSettingsArray::IntegerForIndexWithDefault(size_t index_I, long long default_I) const
{
    return ObjectForIndexWithDefault(index_I, CSettingsInteger::New(default_I))->GetValue();
}

double CSettingsArray::DoubleForIndexWithDefault(size_t index_I, double default_I) const
{
    return ObjectForIndexWithDefault(index_I, CSettingsDouble::New(default_I))->GetValue();
}

std::string CSettingsArray::StringForIndexWithDefault(size_t index_I,
                                                      const std::string& default_I) const
{
    return ObjectForIndexWithDefault(index_I, CSettingsString::New(default_I))->GetValue();
}

std::string CSettingsArray::TypeNameForIndexOrEmpty(size_t index_I) const
{
    std::shared_ptr<CSettingsObject> object = ObjectForIndex(index_I);
    return object ? object->GetTypeName() : std::string();
}

std::vector<size_t> CSettingsArray::GetIndexes() const
{
    std::vector<size_t> indexes(mObjectVector.size());
    for (size_t i = 0; i < indexes.size(); ++i)
    {
        indexes[i] = i;
    }
    return indexes;
}

bool CSettingsArray::IsStringPresent(const std::string& text_I, bool ignoreCase) const
{
    if (text_I.empty())
    {
        return false;
    }
    for (const auto& element : mObjectVector)
    {
        auto text = std::dynamic_pointer_cast<CSettingsString>(element);
        if (!text || text->GetValue().empty())
        {
            continue;
        }
        if (ignoreCase ? StringUtilities::IEquals(text->GetValue(), text_I)
                       : text->GetValue() == text_I)
        {
            return true;
        }
    }
    return false;
}

std::shared_ptr<CSettingsArray>
CSettingsArray::CastToArray(std::shared_ptr<CSettingsObject> object_I, bool reportFailure)
{
    if (!object_I)
    {
        return nullptr;
    }
    std::string typeName = object_I->GetTypeName();
    if (typeName == GetClassTypeName())
    {
        if (auto array = std::dynamic_pointer_cast<CSettingsArray>(object_I))
        {
            return array;
        }
    }
    if (reportFailure)
    {
        std::fprintf(stderr,
                     "CSettingsArray::CastToArray got a %s and failed to cast to CSettingsArray\n",
                     typeName.c_str());
    }
    return nullptr;
}

std::shared_ptr<CSettingsObject> CSettingsArray::DeepCopy() const
{
    std::shared_ptr<CSettingsArray> copy = New();
    copy->mObjectVector.reserve(mObjectVector.size());
    for (const auto& obj : mObjectVector)
    {
        KelAssert(obj);
        copy->AddObject(obj ? obj->DeepCopy() : nullptr);
    }
    return copy;
}

std::string CSettingsArray::GetTraceString() const
{
    std::string trace = GetTypeName() + "[";
    for (size_t i = 0; i < mObjectVector.size(); ++i)
    {
        trace += std::to_string(i) + ":" + mObjectVector[i]->GetTraceString() + ", ";
    }
    trace.erase(trace.size() - 2);
    return trace + "]";
}

void CSettingsArray::AppendASN1Node(std::vector<uint8_t>& archive_IO) const
{
    CSettingsNestingGuard guard;
    if (guard.RefuseWriteIfTooDeep())
    {
        return;
    }
    archive_IO.push_back(ASN1Coding::MakeIdentifier(ASN1Coding::kArrayID));
    archive_IO.push_back(ASN1Coding::MakeIndefiniteLength());
    for (const auto& obj : mObjectVector)
    {
        KelAssert(obj);
        if (obj)
        {
            obj->AppendASN1Node(archive_IO);
        }
    }
    ASN1Coding::EncodeEndOfContentsIdentifierToArchive(archive_IO);
}

bool CSettingsArray::IsEqualTo(std::shared_ptr<CSettingsObject> other_I) const
{
    auto other = std::dynamic_pointer_cast<CSettingsArray>(other_I);
    if (!other || other->mObjectVector.size() != mObjectVector.size())
    {
        return false;
    }
    for (size_t i = 0; i < mObjectVector.size(); ++i)
    {
        KelAssert(mObjectVector[i]);
        std::shared_ptr<CSettingsObject> mine = ObjectForIndex(i);
        std::shared_ptr<CSettingsObject> theirs = other->ObjectForIndex(i);
        // Two nulls at the same index are equal.
        if (mine ? !mine->IsEqualTo(theirs) : theirs != nullptr)
        {
            return false;
        }
    }
    return true;
}

std::string CSettingsArray::CreateJSONNode(int indent) const
{
    CSettingsNestingGuard guard;
    if (guard.RefuseWriteIfTooDeep())
    {
        return std::string();
    }
    std::string padding = indent >= 0 ? std::string(static_cast<size_t>(indent) + 1, '\t') : "";
    int childIndent = indent >= 0 ? indent + 1 : indent;
    std::string json = "[\n";
    for (const auto& element : mObjectVector)
    {
        json += padding + element->CreateJSONNode(childIndent) + ",\n";
    }
    json.erase(json.size() - 2);
    json += "\n";
    if (!padding.empty())
    {
        json.append(padding, 0, padding.size() - 1);
    }
    return json + "]";
}

std::shared_ptr<CSettingsArray>
CSettingsArray::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, true) != ASN1Coding::kArrayID)
    {
        return nullptr;
    }
    CSettingsNestingGuard guard;
    guard.ThrowIfTooDeep();
    std::shared_ptr<CSettingsArray> array = New();
    size_t length = ASN1Coding::DecodeLengthFromArchive(archive_I, pos_IO);
    KelAssert((length == ASN1Coding::IndefiniteLength) || (length == 0));
    if (length != ASN1Coding::IndefiniteLength)
    {
        return array;
    }
    CSettingsPendingEntries<std::shared_ptr<CSettingsObject>> elements;
    while (!ASN1Coding::DecodeEndOfContentsIdentifierFromArchive(archive_I, pos_IO))
    {
        elements.Push(CSettingsObject::ReadFromASN1Node(archive_I, pos_IO));
    }
    array->mObjectVector.reserve(elements.Entries().size());
    for (std::shared_ptr<CSettingsObject>& element : elements.Entries())
    {
        array->AddObject(std::move(element));
    }
    return array;
}

std::shared_ptr<CSettingsArray> CSettingsArray::ReadFromJSONNode(const std::string& buffer_I,
                                                                 size_t& pos_IO)
{
    if (pos_IO >= buffer_I.size() || buffer_I[pos_IO] != '[')
    {
        return nullptr;
    }
    CSettingsNestingGuard guard;
    if (guard.ReportIfTooDeep("CSettingsArray::ReadFromJSONNode"))
    {
        return nullptr;
    }
    std::shared_ptr<CSettingsArray> array = New();
    size_t pos = pos_IO + 1;
    // The element read last, appended when its ',' or ']' is reached.
    std::shared_ptr<CSettingsObject> element;
    while (SettingsJSONLexer::SkipSpaceAndComments(buffer_I, pos))
    {
        char c = buffer_I[pos];
        if (c == ']' || c == ',')
        {
            ++pos;
            if (element)
            {
                array->AddObject(element);
                element = nullptr;
            }
            if (c == ']')
            {
                pos_IO = pos;
                return array;
            }
            continue;
        }
        if (element)
        {
            SettingsJSONLexer::ReportMissingSeparator("CSettingsArray::ReadFromJSONNode", pos);
            return nullptr;
        }
        element = CSettingsObject::ReadFromJSONNode(buffer_I, pos);
        if (!element)
        {
            return nullptr;
        }
    }
    return nullptr;
}

CSettingsArray::~CSettingsArray()
{
    ChildList children;
    MoveChildrenInto(children);
    if (!children.empty())
    {
        ReleaseWithoutRecursion(children);
    }
}

bool CSettingsArray::HasChildren() const
{
    return !mObjectVector.empty();
}

void CSettingsArray::MoveChildrenInto(ChildList& children_IO)
{
    for (std::shared_ptr<CSettingsObject>& element : mObjectVector)
    {
        if (HoldsSubtree(element))
        {
            children_IO.push_back(std::move(element));
        }
    }
}
