#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace orvel::replay {

/// Reads a time as the Event Log writes it, "2026-01-22T02:01:56.1870423Z", with any number of fraction digits or none.
/// Returns 100-ns units since 1601-01-01 UTC, without the digits after the seventh; nothing for other texts.
std::optional<uint64_t> ParseEventTime(std::wstring_view text);

} // namespace orvel::replay
