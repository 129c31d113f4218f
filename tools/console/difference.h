#pragma once

#include <string>

namespace orvel::console {

/// How two texts of lines differ, for people; empty when they do not. Lines that are in one only are marked with - and
/// +; where one stands for another, the place where they part is shown.
std::string Difference(const std::string& expected, const std::string& actual);

} // namespace orvel::console
