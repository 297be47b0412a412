// orvanto-preset: shows, builds and checks the content files.
#include "tools/ContentAudit.h"
#include "tools/PresetCompiler.h"
#include "tools/PresetInspector.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

int usage() {
    std::fputs("usage: orvanto-preset info FILE\n"
               "       orvanto-preset make SOURCE -o FILE\n"
               "       orvanto-preset check FILE\n"
               "       orvanto-preset audit [--content FOLDER] [NAME...]\n",
               stderr);
    return 2;
}

// Plays every preset source (or those whose path contains a NAME) and prints the measures as a table;
// status 1 when any preset shows a fault.
int audit(int argc, char** argv) {
    std::string folder = ORVANTO_CONTENT_SOURCE;
    std::vector<std::string> names;
    for (int i = 2; i < argc; ++i) {
        if (std::strcmp(argv[i], "--content") == 0) {
            if (++i == argc) return usage();
            folder = argv[i];
        } else {
            names.emplace_back(argv[i]);
        }
    }
    try {
        ContentAudit audit(folder);
        const auto sources = audit.sources(names);
        if (sources.empty()) {
            std::fprintf(stderr, "no preset sources in %s\n", folder.c_str());
            return 2;
        }
        std::fputs(ContentAudit::tableHeader().c_str(), stdout);
        std::size_t failed = 0;
        for (const auto& source : sources) {
            const ContentAudit::Result result = audit.audit(source);
            failed += result.faults.empty() ? 0 : 1;
            std::fputs(ContentAudit::tableRow(result).c_str(), stdout);
            std::fflush(stdout);
        }
        std::printf("\n%zu of %zu presets without a fault\n", sources.size() - failed, sources.size());
        return failed == 0 ? 0 : 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "audit") == 0) return audit(argc, argv);
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
