// zeftcad: the desktop window of the layer manager.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "apps/zeftcad/app.h"

int main(int argc, char** argv)
{
    try {
        return zeftcad::run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "zeftcad: out of memory\n");
        return zeftcad::kFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "zeftcad: %s\n", e.what());
        return zeftcad::kFailure;
    }
}
