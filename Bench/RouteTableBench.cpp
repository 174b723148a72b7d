// The route table's own cost, without any message port: ProcessEvent per packet for a local
// answer and for the three kinds of routed request (to a no-op driver), and one Sync for a
// growing number of tablets, so that its growth with the table can be read.
//
// The drivers are in-process ports that answer at once; what is measured is the table's
// walk over keys, drivers and tablet records, and the packets and settings it builds.
#include "Common/CEventPacket.h"
#include "Common/Coordinator/CRouteTable.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsMap.h"
#include "Mac/Common/Communication/CDriverMessageSendPort.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{
// Answers every packet with success and leaves it as it is.
class NoOpDriver : public CDriverMessageSendPort
{
public:
    KELSTATUS SendKeltoEvent(CEventPacket*) override { return KELSTATUS_SUCCESS; }
};

// A driver with `count` tablets that already carry the IDs the table gives them, keeping
// the last tablet block it is sent: the steady state of every sync after the first.
class TabletDriver : public CDriverMessageSendPort
{
public:
    TabletDriver(std::uint16_t firstID, int count) : mFirstID(firstID), mCount(count) {}

    KELSTATUS SendKeltoEvent(CEventPacket* packet) override
    {
        const EEventIdentifier second = packet->ObjectKey(1)->Identifier();
        const EEventIdentifier third = packet->ObjectKey(2)->Identifier();
        if (second == EObjectIDTablet)
        {
            const auto index = static_cast<int>(
                reinterpret_cast<std::uintptr_t>(packet->ObjectKey(1)->mReference));
            if (third == EParameterIDTabletSystemID)
            {
                packet->PackData_<std::uint16_t>(
                    index < mCount ? static_cast<std::uint16_t>(mFirstID + index) : 0xFFFF);
            }
            else
            {
                std::shared_ptr<CSettingsMap> capabilities = CSettingsMap::New();
                capabilities->SetKeyAndInteger("MaxFingers", 10);
                packet->PackData_<std::shared_ptr<CSettingsObject>>(capabilities);
            }
        }
        else if (second == EParameterIDCount)
        {
            packet->PackData_<std::uint16_t>(static_cast<std::uint16_t>(mCount));
        }
        else if (second == EParameterIDSize)
        {
            packet->PackData_<std::uint32_t>(static_cast<std::uint32_t>(mBlock.size()));
        }
        else if (second == EParameterIDTabletBlock && packet->Command() == ECommandGet)
        {
            packet->PackData_<std::vector<unsigned char>>(mBlock);
        }
        else if (second == EParameterIDTabletBlock)
        {
            const auto* data = static_cast<const unsigned char*>(packet->Buffer());
            mBlock.assign(data, data + packet->SizeOfData());
        }
        return KELSTATUS_SUCCESS;
    }

private:
    std::uint16_t mFirstID;
    int mCount;
    std::vector<unsigned char> mBlock;
};

// The table prints a line per tablet and per sync to standard error; the benchmark's own
// output stays on standard output.
void SilenceStandardError()
{
    static const bool silenced = std::freopen("/dev/null", "w", stderr) != nullptr;
    (void)silenced;
}

// Drivers 0 and 1, with tablets 0 (driver 0) and 1 (driver 1) known to the table.
void AddTwoNoOpDrivers(CRouteTable& table)
{
    table.SetDriver(0, std::make_shared<NoOpDriver>());
    table.SetDriver(1, std::make_shared<NoOpDriver>());
    table.AddNewTablet(0, 0);
    table.AddNewTablet(1, 0);
}

void RunProcessEvent(benchmark::State& state, CRouteTable& table, CEventPacket& packet)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(table.ProcessEvent(&packet));
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_ProcessEvent_LocalVersionQuery(benchmark::State& state)
{
    SilenceStandardError();
    CRouteTable table;
    AddTwoNoOpDrivers(table);
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDMultiTouchAPI, 0, EAddrModeByIndex);
    packet.AddKeyInt(static_cast<EEventIdentifier>(508), 0, EAddrModeByIndex);
    for (auto _ : state)
    {
        // The answer replaces the question: ask again each time.
        packet.PackData_<std::shared_ptr<CSettingsObject>>(CSettingsInteger::New(1));
        benchmark::DoNotOptimize(table.ProcessEvent(&packet));
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_ProcessEvent_LocalTabletCount(benchmark::State& state)
{
    SilenceStandardError();
    // Answered from the table after asking each driver for its count (no sync: the totals
    // match), so the drivers must know how to count.
    CRouteTable table;
    table.SetDriver(0, std::make_shared<TabletDriver>(0, 1));
    table.SetDriver(1, std::make_shared<TabletDriver>(1, 1));
    table.Sync();
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDCount, EObjectIDTablet, EAddrModeByIndex);
    RunProcessEvent(state, table, packet);
}

void BM_ProcessEvent_ToOwningDriver(benchmark::State& state)
{
    SilenceStandardError();
    CRouteTable table;
    AddTwoNoOpDrivers(table);
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EObjectIDTablet, 1, EAddrModeByID);
    packet.AddKeyInt(EObjectIDTransducer, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDName, 0, EAddrModeByIndex);
    RunProcessEvent(state, table, packet);
}

void BM_ProcessEvent_ToSuccessfulDriver(benchmark::State& state)
{
    SilenceStandardError();
    CRouteTable table;
    AddTwoNoOpDrivers(table);
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDIndex, 0, EAddrModeByIndex);
    RunProcessEvent(state, table, packet);
}

void BM_ProcessEvent_ToAllDrivers(benchmark::State& state)
{
    SilenceStandardError();
    CRouteTable table;
    AddTwoNoOpDrivers(table);
    CEventPacket packet;
    packet.AddKeyInt(EObjectIDDriver, 0, EAddrModeByIndex);
    packet.AddKeyInt(EObjectIDTablet, 9, EAddrModeByID); // unknown: falls through to all
    packet.AddKeyInt(EParameterIDName, 0, EAddrModeByIndex);
    RunProcessEvent(state, table, packet);
}

// One sync with state.range(0) tablets, half on each of two drivers, all already known.
void BM_Sync(benchmark::State& state)
{
    SilenceStandardError();
    const int tablets = static_cast<int>(state.range(0));
    const int onDriver0 = (tablets + 1) / 2;
    CRouteTable table;
    table.SetDriver(0, std::make_shared<TabletDriver>(0, onDriver0));
    table.SetDriver(1, std::make_shared<TabletDriver>(static_cast<std::uint16_t>(onDriver0),
                                                      tablets - onDriver0));
    table.Sync(); // the first sync numbers them; the ones measured find them known
    if (table.TabletCount() != static_cast<unsigned int>(tablets))
    {
        state.SkipWithError("the first sync did not number every tablet");
        return;
    }
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(table.Sync());
    }
    state.SetComplexityN(tablets);
    state.counters["tablets"] = tablets;
}
} // namespace

BENCHMARK(BM_ProcessEvent_LocalVersionQuery);
BENCHMARK(BM_ProcessEvent_LocalTabletCount);
BENCHMARK(BM_ProcessEvent_ToOwningDriver);
BENCHMARK(BM_ProcessEvent_ToSuccessfulDriver);
BENCHMARK(BM_ProcessEvent_ToAllDrivers);
BENCHMARK(BM_Sync)->Arg(1)->Arg(8)->Arg(64)->Arg(512)->Unit(benchmark::kMicrosecond)->Complexity();
