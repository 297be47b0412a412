// orvanto-preset: shows, builds and checks the content files.
#include "tools/PresetCompiler.h"
#include "tools/PresetInspector.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

int usage() {
    std::fputs("usage: orvanto-preset info FILE\n"
               "       orvanto-preset make SOURCE -o FILE\n"
               "       orvanto-preset check FILE\n",
               stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) return usage();
    const std::string command = argv[1];
    if (command == "make") {
        if (argc != 5 || std::strcmp(argv[3], "-o") != 0) return usage();
        try {
            PresetCompiler::compileFile(argv[2], argv[4]);
        } catch (const PresetCompiler::WriteError& e) {
            std::fprintf(stderr, "%s\n", e.what());
            return 2;
        } catch (const std::exception& e) {
            std::fprintf(stderr, "%s\n", e.what());
            return 1;
        }
        return 0;
    }
    if (argc != 3) return usage();
    PresetInspector inspector(argv[2]);
    if (command == "check") {
        if (inspector.check()) return 0;
        std::fprintf(stderr, "%s: %s\n", argv[2], inspector.problem().c_str());
        return 1;
    }
    if (command == "info") {
        const std::string json = inspector.describe();
        if (json.empty()) {
            std::fprintf(stderr, "%s: %s\n", argv[2], inspector.problem().c_str());
            return 1;
        }
        std::fputs(json.c_str(), stdout);
        return 0;
    }
    return usage();
}
