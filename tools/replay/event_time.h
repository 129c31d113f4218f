#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace orvel::replay {

/// Parses a time in the Event Log's format, "2026-01-22T02:01:56.1870423Z", with any number of fraction digits. Returns
/// 100-ns units since 1601-01-01 UTC, or nothing for other texts. Digits after the seventh are ignored.
std::optional<uint64_t> ParseEventTime(std::wstring_view text);

} // namespace orvel::replay
