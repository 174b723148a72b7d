// The answer of a simulated driver to a flattened Apple Event ('AEVT'): a reply event
// ('aevt'/'ansr') whose first parameter is the configured 'errn' item, when there is one,
// followed by the direct object ('----'): the driver's name as UTF-8 text, so that whoever
// forwarded the event can tell which driver answered it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct SSimDriverConfig;

struct SSimAppleEventAnswer
{
    // False when the bytes are not one flattened Apple Event.
    bool understood = false;
    // "core/getd" and the like, for trace lines.
    std::string eventName;
    // The flattened reply; empty when the configuration says no reply.
    std::optional<std::vector<std::uint8_t>> reply;
};

SSimAppleEventAnswer AnswerSimAppleEvent(const std::uint8_t* bytes_I, std::size_t size_I,
                                         const SSimDriverConfig& config_I);
