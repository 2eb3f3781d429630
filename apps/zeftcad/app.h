// zeftcad's command line: options, start-up and shut-down in the order the
// module and Qt need, the script run and the screenshot.
#pragma once

#include <string>
#include <vector>

namespace zeftcad {

constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;

// Runs the program with its arguments (without the program's name).
int run(const std::vector<std::string>& args);

}  // namespace zeftcad
