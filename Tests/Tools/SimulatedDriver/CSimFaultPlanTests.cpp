// Which requests a fault hits: kind, command, skip and times, and the first listed fault
// winning while every matching one counts.
#include "Tools/SimulatedDriver/CSimFaultPlan.h"

#include "Common/ECommand.h"

#include <gtest/gtest.h>

namespace
{
SSimFault Fault(ESimRequestKind kind, ESimFaultAction action, unsigned skip = 0, unsigned times = 0,
                std::optional<int> command = std::nullopt)
{
    SSimFault fault;
    fault.request = kind;
    fault.action = action;
    fault.skip = skip;
    fault.times = times;
    fault.command = command;
    return fault;
}

// The actions the plan gives to `count` requests of one kind and command, "-" for none.
std::string Actions(CSimFaultPlan& plan, ESimRequestKind kind, std::optional<int> command,
                    int count)
{
    std::string actions;
    for (int i = 0; i < count; ++i)
    {
        std::optional<SSimFault> fault = plan.Next(kind, command);
        actions += !fault                                     ? '-'
                   : fault->action == ESimFaultAction::eSlow  ? 's'
                   : fault->action == ESimFaultAction::eHang  ? 'h'
                   : fault->action == ESimFaultAction::eEmpty ? 'e'
                                                              : 'x';
    }
    return actions;
}
} // namespace

TEST(CSimFaultPlan, SkipAndTimesCountOnlyMatchingRequests)
{
    CSimFaultPlan plan({Fault(ESimRequestKind::eSystemID, ESimFaultAction::eSlow, 2, 2)});
    // Other kinds neither get the fault nor use up the skip.
    EXPECT_EQ(Actions(plan, ESimRequestKind::eTabletBlock, ECommandGet, 3), "---");
    EXPECT_EQ(Actions(plan, ESimRequestKind::eSystemID, ECommandGet, 6), "--ss--");

    CSimFaultPlan always({Fault(ESimRequestKind::eByteOrder, ESimFaultAction::eEmpty)});
    EXPECT_EQ(Actions(always, ESimRequestKind::eByteOrder, std::nullopt, 4), "eeee");
}

TEST(CSimFaultPlan, CommandNarrowsTheFaultAndAnyMatchesEveryKind)
{
    CSimFaultPlan plan(
        {Fault(ESimRequestKind::eSystemID, ESimFaultAction::eHang, 0, 0, ECommandSet)});
    EXPECT_EQ(Actions(plan, ESimRequestKind::eSystemID, ECommandGet, 2), "--");
    EXPECT_EQ(Actions(plan, ESimRequestKind::eSystemID, ECommandSet, 2), "hh");
    // Requests without a command ('ENDI', 'AEVT') never match a fault that names one.
    EXPECT_EQ(Actions(plan, ESimRequestKind::eSystemID, std::nullopt, 1), "-");

    CSimFaultPlan any({Fault(ESimRequestKind::eAny, ESimFaultAction::eExit, 1, 1)});
    EXPECT_EQ(Actions(any, ESimRequestKind::eAppleEvent, std::nullopt, 1), "-");
    EXPECT_EQ(Actions(any, ESimRequestKind::eTouchClient, ECommandCreate, 2), "x-");
}

TEST(CSimFaultPlan, FirstListedFaultWinsAndEveryMatchCounts)
{
    CSimFaultPlan plan({Fault(ESimRequestKind::eTabletBlock, ESimFaultAction::eSlow, 0, 1),
                        Fault(ESimRequestKind::eAny, ESimFaultAction::eEmpty, 0, 2)});
    // Request 1: both fire, the first wins; request 2: only the second is left; request 3:
    // the second has used its two (the first request counted for it too).
    EXPECT_EQ(Actions(plan, ESimRequestKind::eTabletBlock, ECommandGet, 3), "se-");
}
