#pragma once

#include <string>
#include <string_view>

namespace orvel {

/// Returns the details of a crash: the message with every CR LF replaced by "<br />", followed by the two lines. The
/// string has no spare capacity, since records may wait a long time for a collection. Throws std::bad_alloc.
std::wstring BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                               std::wstring_view hostNameLine);

} // namespace orvel
