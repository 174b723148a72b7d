// The archive side of CSettingsObject: the whole archive and the node dispatcher.
#include "Common/ASN1Coding.h"
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsKEString.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsObject.h"
#include "Common/Settings/CSettingsString.h"
#include "Common/Settings/CSettingsWriteCheck.h"

#include <exception>
#include <stdexcept>

namespace
{
constexpr size_t kArchiveCapacityHint = 64;

enum class EArchiveResult
{
    eRead,
    eNoHeader,
    eMalformed,
};

// Reads a whole archive; on failure `failure_O` says why.
EArchiveResult ReadArchive(const std::vector<uint8_t>& archive_I,
                           std::shared_ptr<CSettingsObject>& root_O, std::string& failure_O)
{
    if (archive_I.empty())
    {
        failure_O = "empty archive";
        return EArchiveResult::eNoHeader;
    }
    try
    {
        size_t pos = 0;
        if (ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos, true) !=
                ASN1Coding::kIntegerID ||
            ASN1Coding::DecodeIntegerFromArchive(archive_I, pos) != ASN1Coding::kArchiveMagic)
        {
            failure_O = "no settings archive header";
            return EArchiveResult::eNoHeader;
        }
        // Octets after the root are ignored.
        root_O = CSettingsObject::ReadFromASN1Node(archive_I, pos);
        return EArchiveResult::eRead;
    }
    catch (const std::exception& error)
    {
        failure_O = error.what();
    }
    return EArchiveResult::eMalformed;
}

} // namespace

std::vector<uint8_t> CSettingsObject::GetASN1Binary() const
{
    // Room for the archives that travel in most packets (a scalar, a small map), which
    // would otherwise grow through 1, 2, 4, 8, 16 and 32 octets, a new block each time.
    std::vector<uint8_t> archive;
    archive.reserve(kArchiveCapacityHint);
    CSettingsWriteCheck check;
    ASN1Coding::EncodeIntegerToArchive(ASN1Coding::kArchiveMagic, archive);
    AppendASN1Node(archive);
    if (check.ReportIfRefused("GetASN1Binary"))
    {
        return {};
    }
    return archive;
}

std::shared_ptr<CSettingsObject>
CSettingsObject::ReadFromASN1Binary(const std::vector<uint8_t>& archive_I)
{
    std::shared_ptr<CSettingsObject> root;
    std::string failure;
    if (ReadArchive(archive_I, root, failure) == EArchiveResult::eMalformed)
    {
        std::fprintf(stderr, "ReadFromASN1Binary: %s\n", failure.c_str());
    }
    return root;
}

std::shared_ptr<CSettingsObject>
CSettingsObject::ReadFromASN1Binary(const std::vector<uint8_t>& archive_I, std::string& failure_O)
{
    std::shared_ptr<CSettingsObject> root;
    ReadArchive(archive_I, root, failure_O);
    return root;
}

std::shared_ptr<CSettingsObject>
CSettingsObject::ReadFromASN1Node(const std::vector<uint8_t>& archive_I, size_t& pos_IO)
{
    // A null node (05 00) is written but deliberately not read back here.
    using ASN1Coding::IdentifierCode;
    std::shared_ptr<CSettingsObject> object;
    switch (IdentifierCode(ASN1Coding::DecodeIdentifierFromArchive(archive_I, pos_IO, false)))
    {
    case IdentifierCode(ASN1Coding::kBoolID):
        object = CSettingsBool::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kIntegerID):
        object = CSettingsInteger::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kBytesID):
        object = CSettingsBytes::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kStringID):
        object = CSettingsString::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kMapID):
        object = CSettingsMap::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kDoubleID):
        object = CSettingsDouble::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kArrayID):
        object = CSettingsArray::ReadFromASN1Node(archive_I, pos_IO);
        break;
    case IdentifierCode(ASN1Coding::kKEStringID):
        object = CSettingsKEString::ReadFromASN1Node(archive_I, pos_IO);
        break;
    default:
        break;
    }
    if (!object)
    {
        throw std::runtime_error("unknown data type in archive");
    }
    return object;
}
