#include "Tools/SimulatedDriver/ESimRequestKind.h"

namespace
{
struct SKindName
{
    ESimRequestKind kind;
    const char* name;
};

constexpr SKindName kKindNames[] = {
#define KEL_SIM_REQUEST_KIND_ENTRY(name, text) {ESimRequestKind::name, text},
    KEL_SIM_REQUEST_KIND_LIST(KEL_SIM_REQUEST_KIND_ENTRY)
#undef KEL_SIM_REQUEST_KIND_ENTRY
};
} // namespace

const char* SimRequestKindName(ESimRequestKind kind_I)
{
    for (const SKindName& entry : kKindNames)
    {
        if (entry.kind == kind_I)
        {
            return entry.name;
        }
    }
    return "?";
}

std::optional<ESimRequestKind> SimRequestKindFromName(const std::string& name_I)
{
    for (const SKindName& entry : kKindNames)
    {
        if (name_I == entry.name)
        {
            return entry.kind;
        }
    }
    return std::nullopt;
}

std::string SimRequestKindNames()
{
    std::string names;
    for (const SKindName& entry : kKindNames)
    {
        if (!names.empty())
        {
            names += ", ";
        }
        names += entry.name;
    }
    return names;
}
