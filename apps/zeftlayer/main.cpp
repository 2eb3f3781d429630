// zeftlayer: the command-line front end of the layer manager.
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "apps/zeftlayer/commands.h"

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    std::error_code ec;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) zeftlayer::setProgramFile(self.string());
    try {
        return zeftlayer::run(args);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zeftlayer: out of memory\n");
        return zeftlayer::kFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zeftlayer: %s\n", e.what());
        return zeftlayer::kFailure;
    }
}
