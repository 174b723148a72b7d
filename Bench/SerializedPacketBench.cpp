// The cost of the wire form of a typical request: four keys (tablet and transducer by
// index, the application by name, the parameter) and 64 bytes of data. Each benchmark
// reports packets per second; BM_PlainCopy copies the same number of bytes as the block,
// as the yardstick the others are quoted against.
#include "Common/CEventPacket.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace
{
void FillTypicalRequest(CEventPacket& packet)
{
    packet.AddKeyInt(EObjectIDTablet, 1, EAddrModeByIndex);
    packet.AddKeyString(EObjectIDApplication, "com.example.Sketch", false);
    packet.AddKeyInt(EObjectIDTransducer, 2, EAddrModeByIndex);
    packet.AddKeyInt(EParameterIDPressCurveKelto, 0, EAddrModeByIndex);
    packet.SetCommand(ECommandSet);
    std::uint8_t data[64];
    for (unsigned i = 0; i < sizeof(data); ++i)
    {
        data[i] = static_cast<std::uint8_t>(i * 7);
    }
    packet.PackData(sizeof(data), data);
}

std::vector<std::uint8_t> TypicalBlock()
{
    CEventPacket packet;
    FillTypicalRequest(packet);
    std::vector<std::uint8_t> block(packet.GetSerializedSize(nullptr));
    packet.SerializeToBuffer(block.data(), block.size(), nullptr);
    return block;
}

void Report(benchmark::State& state, std::size_t bytes)
{
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["block_bytes"] = static_cast<double>(bytes);
}

// Sizing and writing the block, into a block the caller already has.
void BM_Serialize(benchmark::State& state)
{
    CEventPacket packet;
    FillTypicalRequest(packet);
    std::vector<std::uint8_t> block(packet.GetSerializedSize(nullptr));
    for (auto _ : state)
    {
        const unsigned int size = packet.GetSerializedSize(nullptr);
        bool written = packet.SerializeToBuffer(block.data(), size, nullptr);
        benchmark::DoNotOptimize(written);
        benchmark::ClobberMemory();
    }
    Report(state, block.size());
}

// Decoding the bytes received into a new packet, through the checked entry point.
void BM_Deserialize(benchmark::State& state)
{
    std::vector<std::uint8_t> block = TypicalBlock();
    for (auto _ : state)
    {
        CEventPacket packet;
        KELSTATUS status = packet.DeserializeFromBuffer(block.data(), block.size(), nullptr);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    Report(state, block.size());
}

// One packet each way, as a request crosses a process boundary and comes back.
void BM_RoundTrip(benchmark::State& state)
{
    CEventPacket packet;
    FillTypicalRequest(packet);
    std::vector<std::uint8_t> block(packet.GetSerializedSize(nullptr));
    for (auto _ : state)
    {
        const unsigned int size = packet.GetSerializedSize(nullptr);
        packet.SerializeToBuffer(block.data(), size, nullptr);
        CEventPacket received;
        KELSTATUS status = received.DeserializeFromBuffer(block.data(), size, nullptr);
        benchmark::DoNotOptimize(status);
        benchmark::ClobberMemory();
    }
    Report(state, block.size());
}

// The yardstick: copying as many bytes as the block holds.
void BM_PlainCopy(benchmark::State& state)
{
    const std::vector<std::uint8_t> source = TypicalBlock();
    std::vector<std::uint8_t> target(source.size());
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(source.data());
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    Report(state, source.size());
}
} // namespace

BENCHMARK(BM_PlainCopy);
BENCHMARK(BM_Serialize);
BENCHMARK(BM_Deserialize);
BENCHMARK(BM_RoundTrip);
