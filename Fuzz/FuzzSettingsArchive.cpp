// Fuzz target for the settings archive reader (archives arrive from other processes).
// Besides staying in bounds and within the nesting limit, a tree read from any archive
// writes an archive that reads back and writes the same bytes again: the reader never
// produces a node the writer cannot express (a null, for instance, is never read).
#include "Common/Settings/CSettingsObject.h"
#include "Fuzz/FuzzCheck.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<uint8_t> archive(data, data + size);
    std::shared_ptr<CSettingsObject> root = CSettingsObject::ReadFromASN1Binary(archive);

    // The node dispatcher without the header, as a caller holding a bare node would use it.
    try
    {
        size_t pos = 0;
        Check(CSettingsObject::ReadFromASN1Node(archive, pos) != nullptr && pos <= archive.size());
    }
    catch (const std::exception&)
    {
    }

    if (!root)
    {
        return 0;
    }
    const std::vector<uint8_t> first = root->GetASN1Binary();
    std::shared_ptr<CSettingsObject> again = CSettingsObject::ReadFromASN1Binary(first);
    Check(again && again->GetASN1Binary() == first);
    Check(root->DeepCopy()->GetASN1Binary() == first);
    (void)root->GetTraceString();
    (void)root->GetJSONString();
    return 0;
}
