// Feeds arbitrary argument lists to the command line. Arguments are the
// NUL-separated pieces of the input; paths are kept inside a scratch folder
// so that no run can touch a real file.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include "apps/zeftlayer/commands.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const bool ready = [] {
        auto dir = std::filesystem::temp_directory_path() / ("zeftlayer-fuzz-cli-" + std::to_string(::getpid()));
        std::filesystem::create_directories(dir);
        std::filesystem::current_path(dir);
        // Help texts would flood the log; errors on stderr stay visible.
        std::freopen("/dev/null", "w", stdout);
        return true;
    }();
    (void)ready;
    std::vector<std::string> args(1);
    for (std::size_t i = 0; i < size && args.size() < 16; ++i) {
        char c = char(data[i]);
        if (c == '\0') args.emplace_back();
        else if (c == '/') args.back() += '_';
        else args.back() += c;
    }
    int rc = zeftlayer::run(args);
    if (rc != zeftlayer::kSuccess && rc != zeftlayer::kFailure && rc != zeftlayer::kUsage) __builtin_trap();
    return 0;
}
