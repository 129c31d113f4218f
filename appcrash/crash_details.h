#pragma once

#include <string>
#include <string_view>

namespace orvel {

/// The details text of a crash: the message with every CR LF written as "<br />", then the two lines as they are.
/// The result holds no spare capacity, since it may wait long for its collection.
std::wstring BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                               std::wstring_view hostNameLine);

} // namespace orvel
