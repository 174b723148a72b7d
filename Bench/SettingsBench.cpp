// Reading and writing a realistic settings tree (touch capabilities of four tablets and the
// per-tool settings of each) as the binary archive and as JSON text, and reading the same JSON
// text with nlohmann::json for comparison. Compare medians of one run:
//   bench_settings --benchmark_repetitions=9 --benchmark_report_aggregates_only=true
#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsKEString.h"
#include "Common/Settings/CSettingsMap.h"

#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>

namespace
{
std::shared_ptr<CSettingsMap> TouchCapabilities(int tablet)
{
    auto caps = CSettingsMap::New();
    caps->SetKeyAndInteger("MultiTouchDeviceID", tablet);
    caps->SetKeyAndInteger("MaxFingers", 10);
    caps->SetKeyAndInteger("LogicalOriginX", 0);
    caps->SetKeyAndInteger("LogicalOriginY", 0);
    caps->SetKeyAndInteger("LogicalWidth", 4095 + tablet);
    caps->SetKeyAndInteger("LogicalHeight", 2047);
    caps->SetKeyAndDouble("PhysicalWidth", 216.5);
    caps->SetKeyAndDouble("PhysicalHeight", 135.25);
    caps->SetKeyAndString("SensorType", "capacitive");
    caps->SetKeyAndString("Name", "Kelto Touch Tablet " + std::to_string(tablet));
    caps->SetKeyAndBool("IsDisplayTablet", tablet % 2 == 0);
    auto features = CSettingsArray::New();
    for (const char* feature : {"touch", "pen", "gestures", "palm-rejection"})
    {
        features->AddString(feature);
    }
    caps->SetKeyAndObject("Features", features);
    auto gestures = CSettingsMap::New();
    for (const char* gesture : {"Scroll", "Zoom", "Rotate", "Swipe3", "Swipe4", "Tap2", "Tap3",
                                "Pinch4", "Spread4", "DoubleTap"})
    {
        gestures->SetKeyAndBool(gesture, gesture[0] != 'P');
    }
    caps->SetKeyAndObject("Gestures", gestures);
    std::vector<uint8_t> calibration(32);
    for (size_t i = 0; i < calibration.size(); ++i)
    {
        calibration[i] = static_cast<uint8_t>(i * 7 + tablet);
    }
    caps->SetKeyAndObject("Calibration", CSettingsBytes::New(calibration));
    return caps;
}

std::shared_ptr<CSettingsMap> ToolSettings(int tablet, int tool)
{
    auto settings = CSettingsMap::New();
    settings->SetKeyAndString("ToolName", tool == 0 ? "Grip Pen" : "Airbrush");
    settings->SetKeyAndInteger("SerialNumber", 0x12AB0000 + tablet * 16 + tool);
    auto buttons = CSettingsArray::New();
    for (int b = 0; b < 4; ++b)
    {
        auto button = CSettingsMap::New();
        button->SetKeyAndInteger("Function", b + 1);
        button->SetKeyAndString("Name", "Button " + std::to_string(b + 1));
        button->SetKeyAndKEString("Keystroke", "cmd-shift-" + std::to_string(b));
        button->SetKeyAndBool("Enabled", true);
        buttons->AddObject(button);
    }
    settings->SetKeyAndObject("Buttons", buttons);
    auto curve = CSettingsArray::New();
    for (int p = 0; p < 8; ++p)
    {
        curve->AddDouble(p * 0.125 + tool * 0.01);
    }
    settings->SetKeyAndObject("PressureCurve", curve);
    settings->SetKeyAndObject("ScreenArea",
                              CSettingsObject::FromComplexType(SRect{0, 0, 2560, 1440, 1}));
    settings->SetKeyAndObject("TabletArea",
                              CSettingsObject::FromComplexType(SRect{0, 0, 44704, 27940, 1}));
    return settings;
}

std::shared_ptr<CSettingsObject> RealisticTree()
{
    auto root = CSettingsMap::New();
    auto capabilities = CSettingsArray::New();
    auto tablets = CSettingsArray::New();
    for (int tablet = 0; tablet < 4; ++tablet)
    {
        capabilities->AddObject(TouchCapabilities(tablet));
        auto tools = CSettingsArray::New();
        for (int tool = 0; tool < 2; ++tool)
        {
            tools->AddObject(ToolSettings(tablet, tool));
        }
        auto tabletSettings = CSettingsMap::New();
        tabletSettings->SetKeyAndInteger("TabletSystemID", tablet);
        tabletSettings->SetKeyAndObject("Tools", tools);
        tablets->AddObject(tabletSettings);
    }
    root->SetKeyAndObject("TouchCapabilities", capabilities);
    root->SetKeyAndObject("Tablets", tablets);
    root->SetKeyAndString("Version", "6.3.0");
    return root;
}

size_t CountNodes(const std::shared_ptr<CSettingsObject>& object)
{
    size_t count = 1;
    if (auto map = CSettingsMap::CastToMap(object, false))
    {
        for (const std::string& key : map->GetKeys())
        {
            count += CountNodes(map->ObjectForKey(key));
        }
    }
    else if (auto array = CSettingsArray::CastToArray(object, false))
    {
        for (size_t i = 0; i < array->ObjectCount(); ++i)
        {
            count += CountNodes(array->ObjectForIndex(i));
        }
    }
    return count;
}

struct SFixture
{
    std::shared_ptr<CSettingsObject> tree = RealisticTree();
    std::vector<uint8_t> archive = tree->GetASN1Binary();
    std::string json = tree->GetJSONString();
    size_t nodes = CountNodes(tree);

    SFixture()
    {
        // Both readers must accept the same document, or the comparison means nothing.
        auto back = CSettingsObject::ReadFromJSONBuffer(json);
        if (!back || back->GetJSONString() != json || nlohmann::json::parse(json).size() != 3)
        {
            throw std::logic_error("the benchmark document does not read back");
        }
    }
};

const SFixture& Fixture()
{
    static const SFixture fixture;
    return fixture;
}

void Report(benchmark::State& state, size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["nodes"] = static_cast<double>(Fixture().nodes);
}

void BM_ArchiveWrite(benchmark::State& state)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Fixture().tree->GetASN1Binary());
    }
    Report(state, Fixture().archive.size());
}

void BM_ArchiveRead(benchmark::State& state)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(CSettingsObject::ReadFromASN1Binary(Fixture().archive));
    }
    Report(state, Fixture().archive.size());
}

// The floor under both readers: the same tree built node by node with nothing to decode
// (every node allocated, owned through std::shared_ptr, put into its container, and freed).
void BM_TreeCopy(benchmark::State& state)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Fixture().tree->DeepCopy());
    }
    Report(state, Fixture().archive.size());
}

void BM_JSONWrite(benchmark::State& state)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(Fixture().tree->GetJSONString());
    }
    Report(state, Fixture().json.size());
}

void BM_JSONRead(benchmark::State& state)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(CSettingsObject::ReadFromJSONBuffer(Fixture().json));
    }
    Report(state, Fixture().json.size());
}

void BM_NlohmannJSONRead(benchmark::State& state)
{
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(nlohmann::json::parse(Fixture().json));
    }
    Report(state, Fixture().json.size());
}

void BM_NlohmannJSONWrite(benchmark::State& state)
{
    const nlohmann::json document = nlohmann::json::parse(Fixture().json);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(document.dump(1, '\t'));
    }
    Report(state, Fixture().json.size());
}
} // namespace

BENCHMARK(BM_ArchiveWrite);
BENCHMARK(BM_ArchiveRead);
BENCHMARK(BM_TreeCopy);
BENCHMARK(BM_JSONWrite);
BENCHMARK(BM_JSONRead);
BENCHMARK(BM_NlohmannJSONRead);
BENCHMARK(BM_NlohmannJSONWrite);
