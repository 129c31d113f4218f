#pragma once

#include <memory>
#include <string_view>

namespace orvel {

/// The details text of a crash: the message with every CR LF written as "<br />", then the two lines as they are, then
/// a NUL. The block is as long as the text, since it may wait long for its collection. Throws std::bad_alloc.
std::unique_ptr<wchar_t[]> BuildCrashDetails(std::wstring_view message, std::wstring_view crashTimeLine,
                                             std::wstring_view hostNameLine);

} // namespace orvel
