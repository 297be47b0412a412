#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A fresh folder below the test run's temporary HOME, removed with everything in it at the end.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = std::string(std::getenv("HOME")) + "/tmp-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) root = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::permissions(root, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(root, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string path(const std::string& relative = {}) const {
        return relative.empty() ? root.string() : (root / relative).string();
    }

    static void writeText(const std::string& file, const std::string& text) {
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out << text;
    }
    static std::string readText(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::filesystem::path root;
};
