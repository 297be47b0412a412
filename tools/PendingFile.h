#pragma once

#include <string>

// A file written under a temporary name in its destination folder and renamed into place when complete, so an
// interrupted render never leaves half a file under the real name. Temporary files still open when the
// process is interrupted by SIGINT, SIGTERM or SIGHUP are removed.
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
    // Main thread: the temporary name, empty before create and after commit or discard.
    const std::string& path() const { return temporary; }
    // Main thread: renames the temporary file to the target.
    bool commit(std::string& error);
    // Main thread: removes the temporary file, if any.
    void discard();

private:
    std::string target;
    std::string temporary;
    int entry = -1; // place in the signal handler's list
};
