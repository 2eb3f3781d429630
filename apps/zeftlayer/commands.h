#pragma once

#include <string>
#include <vector>

namespace zeftlayer {

// Exit codes scripts can rely on.
constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;

int run(const std::vector<std::string>& args);

}  // namespace zeftlayer
