#include "tools/BoundedFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

// Closes the descriptor on every way out.
struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd >= 0) close(fd);
    }
};

} // namespace

bool BoundedFile::isRegular(const std::string& path, std::string& reason) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) {
        reason = std::string("cannot open the file: ") + std::strerror(errno);
        return false;
    }
    if (!S_ISREG(info.st_mode)) {
        reason = "not a regular file";
        return false;
    }
    return true;
}

bool BoundedFile::read(const std::string& path, std::vector<uint8_t>& bytes, std::string& reason,
                       std::size_t limit) {
    // Non-blocking, so that opening a FIFO with no writer returns at once; fstat then refuses it.
    const Descriptor file{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)};
    if (file.fd < 0) {
        reason = std::string("cannot open the file: ") + std::strerror(errno);
        return false;
    }
    struct stat info {};
    if (fstat(file.fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        reason = "not a regular file";
        return false;
    }
    if (static_cast<uint64_t>(info.st_size) > limit) {
        reason = "the file is too large";
        return false;
    }
    bytes.clear();
    bytes.reserve(static_cast<std::size_t>(info.st_size));
    uint8_t buffer[65536];
    for (;;) {
        const ssize_t n = ::read(file.fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            reason = std::string("cannot read the file: ") + std::strerror(errno);
            return false;
        }
        if (n == 0) return true;
        // A file that grows while it is read is held to the same limit.
        if (bytes.size() + static_cast<std::size_t>(n) > limit) {
            reason = "the file is too large";
            return false;
        }
        bytes.insert(bytes.end(), buffer, buffer + n);
    }
}
