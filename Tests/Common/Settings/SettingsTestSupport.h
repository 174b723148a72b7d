// Helpers shared by the settings tests: byte vectors from hex text, output capture, and
// random trees for the round trips.
#pragma once

#include "Common/Settings/CSettingsArray.h"
#include "Common/Settings/CSettingsBool.h"
#include "Common/Settings/CSettingsBytes.h"
#include "Common/Settings/CSettingsDouble.h"
#include "Common/Settings/CSettingsInteger.h"
#include "Common/Settings/CSettingsKEString.h"
#include "Common/Settings/CSettingsMap.h"
#include "Common/Settings/CSettingsNULL.h"
#include "Common/Settings/CSettingsString.h"
#include "Tests/Support/CapturedOutput.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace SettingsTest
{
// "02 04 4B" -> {0x02, 0x04, 0x4B}.
inline std::vector<uint8_t> Hex(const std::string& text)
{
    std::istringstream in(text);
    std::vector<uint8_t> bytes;
    unsigned value = 0;
    while (in >> std::hex >> value)
    {
        bytes.push_back(static_cast<uint8_t>(value));
    }
    return bytes;
}

// What an action printed on standard output and standard error.
using SOutput = test_support::Output;
using test_support::Capture;

// Random trees. With `forJSON` the values avoid what JSON text cannot carry back: quotes
// and backslashes in text, empty containers, the "SbyteS" key, non-finite doubles and
// empty keys. Without it they avoid null, which the archive cannot read back.
class CRandomTree
{
public:
    CRandomTree(uint64_t seed, bool forJSON) : mRandom(seed), mForJSON(forJSON) {}

    std::shared_ptr<CSettingsObject> Container(int depth)
    {
        return Pick(2) == 0 ? std::shared_ptr<CSettingsObject>(Map(depth)) : Array(depth);
    }

    std::shared_ptr<CSettingsMap> Map(int depth)
    {
        auto map = CSettingsMap::New();
        size_t count = Pick(6) + (mForJSON ? 1 : 0);
        for (size_t i = 0; i < count; ++i)
        {
            map->SetKeyAndObject(Text(1), Value(depth));
        }
        return map;
    }

    std::shared_ptr<CSettingsArray> Array(int depth)
    {
        auto array = CSettingsArray::New();
        size_t count = Pick(6) + (mForJSON ? 1 : 0);
        for (size_t i = 0; i < count; ++i)
        {
            array->AddObject(Value(depth));
        }
        return array;
    }

private:
    size_t Pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(mRandom); }

    std::string Text(size_t minimum)
    {
        std::string text(Pick(12) + minimum, ' ');
        for (char& c : text)
        {
            do
            {
                c = static_cast<char>(Pick(256));
            } while (mForJSON && (c == '"' || c == '\\'));
        }
        return text;
    }

    std::shared_ptr<CSettingsObject> Value(int depth)
    {
        switch (Pick(depth > 0 ? 10 : 8))
        {
        case 0:
            return mForJSON ? std::shared_ptr<CSettingsObject>(CSettingsNULL::New())
                            : CSettingsBool::New(true);
        case 1:
            return CSettingsBool::New(Pick(2) == 1);
        case 2:
        {
            // Every octet count of the integer form, negative values included.
            int64_t value = static_cast<int64_t>(mRandom()) >> (Pick(8) * 8);
            return CSettingsInteger::New(value);
        }
        case 3:
        {
            double value = std::uniform_real_distribution<double>(-1e9, 1e9)(mRandom);
            return CSettingsDouble::New(Pick(4) == 0 ? value * 1e-12 : value);
        }
        case 4:
            return CSettingsString::New(Text(0));
        case 5:
            return CSettingsKEString::New(Text(0));
        case 6:
        case 7:
        {
            std::vector<uint8_t> bytes(Pick(40));
            for (uint8_t& b : bytes)
            {
                b = static_cast<uint8_t>(Pick(256));
            }
            return CSettingsBytes::New(bytes);
        }
        case 8:
            return Map(depth - 1);
        default:
            return Array(depth - 1);
        }
    }

    std::mt19937_64 mRandom;
    bool mForJSON;
};
} // namespace SettingsTest
