// Which request gets which fault. Each configured fault counts the requests it matches (its
// kind, or any kind, and its command when it names one): the first `skip` pass, the next
// `times` (all, when 0) get the fault. When several faults match, the first one listed that
// fires wins; every matching fault counts the request either way.
#pragma once

#include "Tools/SimulatedDriver/SSimDriverConfig.h"

#include <optional>
#include <vector>

class CSimFaultPlan
{
public:
    explicit CSimFaultPlan(std::vector<SSimFault> faults_I);

    // The fault for one request; command_I is empty for requests without a command
    // ('ENDI', 'AEVT').
    std::optional<SSimFault> Next(ESimRequestKind kind_I, std::optional<int> command_I);

private:
    std::vector<SSimFault> mFaults;
    std::vector<unsigned long long> mMatched;
};
