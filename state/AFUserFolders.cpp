#include "state/AFUserFolders.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace {

// The convention ignores relative values: they would depend on the host's working folder.
std::string absoluteVariable(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || value[0] != '/') return {};
    return value;
}

std::string below(const std::string& base, const char* relative) {
    if (base.empty()) return {};
    return base + relative;
}

} // namespace

std::string AFUserFolders::home() {
    if (std::string fromEnvironment = absoluteVariable("HOME"); !fromEnvironment.empty())
        return fromEnvironment;
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(static_cast<std::size_t>(size > 0 ? size : 16384));
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr ||
        found->pw_dir == nullptr || found->pw_dir[0] != '/')
        return {};
    return found->pw_dir;
}

std::string AFUserFolders::configHome() {
    if (std::string fromEnvironment = absoluteVariable("XDG_CONFIG_HOME"); !fromEnvironment.empty())
        return fromEnvironment;
    return below(home(), "/.config");
}

std::string AFUserFolders::dataHome() {
    if (std::string fromEnvironment = absoluteVariable("XDG_DATA_HOME"); !fromEnvironment.empty())
        return fromEnvironment;
    return below(home(), "/.local/share");
}
