#pragma once

#include <string>
#include <vector>

namespace zeftlayer {

// Exit codes scripts can rely on.
constexpr int kSuccess = 0;
constexpr int kFailure = 1;
constexpr int kUsage = 2;

int run(const std::vector<std::string>& args);

// Prints "zeftlayer: msg" and a pointer to the command's help; returns kUsage.
int usageError(const std::string& msg, const char* command);
// Prints "zeftlayer: msg"; returns kFailure.
int failure(const std::string& msg);

// The layer standard commands (standards.cpp).
int cmdStandards(const std::vector<std::string>& args);
int cmdInstall(const std::vector<std::string>& args);
int cmdShow(const std::vector<std::string>& args);
int cmdExport(const std::vector<std::string>& args);

}  // namespace zeftlayer
