#include "Tools/SimulatedDriver/CSimFaultPlan.h"

CSimFaultPlan::CSimFaultPlan(std::vector<SSimFault> faults_I)
    : mFaults(std::move(faults_I)), mMatched(mFaults.size(), 0)
{
}

std::optional<SSimFault> CSimFaultPlan::Next(ESimRequestKind kind_I, std::optional<int> command_I)
{
    std::optional<SSimFault> chosen;
    for (size_t i = 0; i < mFaults.size(); ++i)
    {
        const SSimFault& fault = mFaults[i];
        if (fault.request != ESimRequestKind::eAny && fault.request != kind_I)
        {
            continue;
        }
        if (fault.command && fault.command != command_I)
        {
            continue;
        }
        unsigned long long seen = mMatched[i]++;
        bool fires = seen >= fault.skip && (fault.times == 0 || seen - fault.skip < fault.times);
        if (fires && !chosen)
        {
            chosen = fault;
        }
    }
    return chosen;
}
