#include "tools/PendingFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// Fixed storage: the signal handler may only read it and call unlink.
constexpr std::size_t kPathCapacity = 4096;
char pendingPaths[PendingFile::kMaxPending][kPathCapacity];

void removePending(int signal) {
    for (auto& path : pendingPaths)
        if (path[0] != '\0') unlink(path);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Temporary files are named ".NAME.part-PID-XXXXXX"; one whose process is gone was left by a render that was
// killed before it could clean up.
void removeStaleParts(const std::string& folder) {
    DIR* d = opendir(folder.c_str());
    if (d == nullptr) return;
    while (const dirent* e = readdir(d)) {
        const char* name = e->d_name;
        const char* mark = name[0] == '.' ? std::strstr(name, ".part-") : nullptr;
        if (mark == nullptr) continue;
        char* end = nullptr;
        const long pid = std::strtol(mark + 6, &end, 10);
        if (pid <= 0 || end == mark + 6 || *end != '-' || std::strlen(end) != 7) continue;
        if (kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
        unlink((folder + "/" + name).c_str());
    }
    closedir(d);
}

bool isSpecialFile(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

} // namespace

void PendingFile::removeOnSignals() {
    for (int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, removePending);
}

PendingFile::PendingFile(std::string targetPath) : target(std::move(targetPath)) {}

PendingFile::~PendingFile() {
    discard();
}

int PendingFile::create(std::string& error) {
    if (isSpecialFile(target)) {
        // Non-blocking open, so a pipe with no reader fails at once instead of waiting for one.
        const int fd = open(target.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            error = "cannot write '" + target + "': " + std::strerror(errno);
            return -1;
        }
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
        direct = true;
        return fd;
    }
    for (int i = 0; i < kMaxPending && entry < 0; ++i)
        if (pendingPaths[i][0] == '\0') entry = i;
    const auto slash = target.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : target.substr(0, slash);
    const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
    removeStaleParts(folder);
    std::string pattern = folder + "/." + base + ".part-" + std::to_string(getpid()) + "-XXXXXX";
    if (entry < 0 || pattern.size() >= kPathCapacity) {
        error = "cannot write '" + target + "': the path is too long";
        return -1;
    }
    const int fd = mkstemp(pattern.data());
    if (fd < 0) {
        error = "cannot write into '" + (folder.empty() ? std::string("/") : folder) +
                "': " + std::strerror(errno);
        return -1;
    }
    // mkstemp makes the file private; give it the permissions a plain new file would get.
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    temporary = pattern;
    std::snprintf(pendingPaths[entry], kPathCapacity, "%s", temporary.c_str());
    return fd;
}

bool PendingFile::commit(std::string& error) {
    if (direct) return true;
    if (std::rename(temporary.c_str(), target.c_str()) != 0) {
        error = "cannot rename into '" + target + "': " + std::strerror(errno);
        return false;
    }
    temporary.clear();
    pendingPaths[entry][0] = '\0';
    return true;
}

void PendingFile::discard() {
    if (temporary.empty()) return;
    unlink(temporary.c_str());
    temporary.clear();
    pendingPaths[entry][0] = '\0';
}
