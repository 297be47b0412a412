#include "tools/PendingFile.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

namespace {

struct Folder {
    Folder() {
        char pattern[] = "/tmp/pending-file-test-XXXXXX";
        path = mkdtemp(pattern);
    }
    ~Folder() { std::system(("rm -rf '" + path + "'").c_str()); }
    std::set<std::string> names() const {
        std::set<std::string> result;
        if (DIR* d = opendir(path.c_str())) {
            while (const dirent* e = readdir(d))
                if (std::string(e->d_name) != "." && std::string(e->d_name) != "..") result.insert(e->d_name);
            closedir(d);
        }
        return result;
    }
    std::string path;
};

} // namespace

TEST(PendingFile, AppearsUnderItsNameOnlyWhenCommitted) {
    Folder folder;
    const std::string target = folder.path + "/out.wav";
    std::string error;
    PendingFile file(target);
    const int fd = file.create(error);
    ASSERT_GE(fd, 0) << error;
    EXPECT_EQ(write(fd, "data", 4), 4);
    close(fd);
    ASSERT_EQ(folder.names().size(), 1u);
    EXPECT_EQ(folder.names().count("out.wav"), 0u);
    EXPECT_EQ(file.path().rfind(folder.path + "/.out.wav.part-", 0), 0u)
        << file.path(); // same folder, hidden
    ASSERT_TRUE(file.commit(error)) << error;
    EXPECT_EQ(folder.names(), (std::set<std::string>{"out.wav"}));
    std::ifstream in(target);
    std::string content;
    in >> content;
    EXPECT_EQ(content, "data");
}

TEST(PendingFile, AbandonedFilesLeaveNothing) {
    Folder folder;
    std::string error;
    {
        PendingFile file(folder.path + "/a.flac");
        ASSERT_GE(file.create(error), 0) << error;
        PendingFile other(folder.path + "/b.png");
        ASSERT_GE(other.create(error), 0) << error;
        EXPECT_EQ(folder.names().size(), 2u);
        other.discard();
        EXPECT_EQ(folder.names().size(), 1u);
    }
    EXPECT_TRUE(folder.names().empty());
    PendingFile nowhere(folder.path + "/missing/x.wav");
    EXPECT_LT(nowhere.create(error), 0);
    EXPECT_NE(error.find("missing"), std::string::npos) << error;
}
