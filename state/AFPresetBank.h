#pragma once

#include <string>
#include <vector>

// The global presets of one folder, in name order: the host's programs.
class AFPresetBank {
public:
    static constexpr const char* kExtension = ".afog";

    // GUI or host thread: lists the global presets of `folder`; a missing folder gives an empty bank.
    void scan(const std::string& folder);

    // Any thread, between scans.
    int count() const noexcept { return static_cast<int>(names.size()); }
    // The preset's name without its extension; "" outside the bank.
    std::string name(int index) const;
    // The preset's full path; "" outside the bank.
    std::string path(int index) const;
    const std::string& getFolder() const noexcept { return folder; }

private:
    std::string folder;
    std::vector<std::string> names;
};
