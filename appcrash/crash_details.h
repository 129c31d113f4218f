#pragma once

#include <windows.h>
#include <winevt.h>

#include <string>
#include <string_view>

namespace orvel {

/// The line "<br />Crash Time: 2024-03-05 07:08:09" in UTC for a rendered event time; empty when the value is not a
/// file time or is one that the system cannot convert.
std::wstring FormatCrashTimeLine(const EVT_VARIANT& time);

/// The details text of a crash: the message with every CR LF written as "<br />", then the two lines as they are.
/// The result holds no spare capacity, since it may wait long for its collection.
std::wstring BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                               std::wstring_view hostNameLine);

} // namespace orvel
