#pragma once

#include <string>

// A file written under a temporary name in its destination folder and renamed into place when complete, so an
// interrupted render never leaves half a file under the real name. Temporary files still open when the
// process is interrupted by SIGINT, SIGTERM or SIGHUP are removed; those of a process killed outright carry
// its id in their name and are removed by the next file made in the same folder. A target that exists and is
// no regular file (a device such as /dev/null or /dev/full, a pipe, a terminal) is written directly: renaming
// over it would replace the device with a file.
class PendingFile {
public:
    static constexpr int kMaxPending = 4;

    // Main thread, once before any file: installs the handler that removes unfinished files on a signal.
    static void removeOnSignals();

    // Main thread.
    explicit PendingFile(std::string target);
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    ~PendingFile();

    // Main thread: creates the temporary file and returns its open descriptor, or -1 with the reason in
    // error.
    int create(std::string& error);
    // Main thread: the name to write to (the temporary name, or the target itself when written directly),
    // empty before create and after commit or discard.
    const std::string& path() const { return direct ? target : temporary; }
    // Main thread: renames the temporary file to the target; nothing to do for a target written directly.
    bool commit(std::string& error);
    // Main thread: removes the temporary file, if any.
    void discard();

private:
    std::string target;
    std::string temporary;
    int entry = -1; // place in the signal handler's list
    bool direct = false;
};
