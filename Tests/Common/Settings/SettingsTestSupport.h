// Helpers shared by the settings tests: byte vectors from hex text and output capture.
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
} // namespace SettingsTest
