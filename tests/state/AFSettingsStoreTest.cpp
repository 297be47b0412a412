#include "ScopedEnvironment.h"
#include "TempFolder.h"

#include "state/AFSettingsStore.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class AFSettingsStoreTest : public ::testing::Test {
protected:
    std::string file() const { return folder.path("Orvanto/Orvanto.conf"); }
    int32_t readInt(const AFSettingsStore& store, const std::string& key, int32_t fallback = -12345) const {
        store.read(key, fallback);
        return fallback;
    }
    std::string readString(const AFSettingsStore& store, const std::string& key) const {
        std::string value = "<absent>";
        store.read(key, value);
        return value;
    }
    std::size_t filesInFolder() const {
        std::size_t count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path("Orvanto")))
            ++count;
        return count;
    }

    TempFolder folder;
};

TEST_F(AFSettingsStoreTest, EveryKeyAndAwkwardTextSurvivesARoundTrip) {
    const std::string awkwardPath =
        "/home/user/My \"Presets\" = [best]\\#1;\ttab\nline\x01\x7F/\xC3\xA9t\xC3\xA9/";
    {
        AFSettingsStore store(file());
        store.write("installpath", std::string("/usr/share/orvanto/"));
        store.write("contentpath", awkwardPath);
        store.write("presetpath0", std::string("/c/Global Presets/"));
        store.write("presetsavepath0", std::string("/c/Global Presets/User/"));
        store.write("dictatorsavepath", std::string("/c/Dictator Presets/"));
        store.write("cc savepath", std::string(""));
        store.write("presetpathPattern Delay", std::string("/c/Effect Presets/Pattern Delay/"));
        store.write("firstuse", 1);
        store.write("usage", INT32_MAX);
        store.write("Threshhold", INT32_MIN);
        store.write("MIDI outPP", -1);
        store.write("[odd = key]#;\"\\", 7);
        EXPECT_TRUE(store.flush());
    }
    const AFSettingsStore store(file());
    EXPECT_EQ(readString(store, "installpath"), "/usr/share/orvanto/");
    EXPECT_EQ(readString(store, "contentpath"), awkwardPath);
    EXPECT_EQ(readString(store, "presetpath0"), "/c/Global Presets/");
    EXPECT_EQ(readString(store, "presetsavepath0"), "/c/Global Presets/User/");
    EXPECT_EQ(readString(store, "dictatorsavepath"), "/c/Dictator Presets/");
    EXPECT_EQ(readString(store, "cc savepath"), "");
    EXPECT_EQ(readString(store, "presetpathPattern Delay"), "/c/Effect Presets/Pattern Delay/");
    EXPECT_EQ(readInt(store, "firstuse"), 1);
    EXPECT_EQ(readInt(store, "usage"), INT32_MAX);
    EXPECT_EQ(readInt(store, "Threshhold"), INT32_MIN);
    EXPECT_EQ(readInt(store, "MIDI outPP"), -1);
    EXPECT_EQ(readInt(store, "[odd = key]#;\"\\"), 7);
}

TEST_F(AFSettingsStoreTest, AbsentKeysAndTheOtherKindLeaveTheValueAlone) {
    AFSettingsStore store(file());
    store.write("usage", 3);
    store.write("contentpath", std::string("/c/"));
    int32_t number = 42;
    EXPECT_FALSE(store.read("missing", number));
    EXPECT_FALSE(store.read("contentpath", number));
    EXPECT_EQ(number, 42);
    std::string text = "kept";
    EXPECT_FALSE(store.read("usage", text));
    EXPECT_FALSE(store.read("Usage", text));
    EXPECT_EQ(text, "kept");
    // Writes are visible at once, but reach the disk only with the flush.
    EXPECT_EQ(readInt(store, "usage"), 3);
    EXPECT_FALSE(std::filesystem::exists(file()));
    store.write("usage", std::string("now a text"));
    EXPECT_EQ(readString(store, "usage"), "now a text");
}

TEST_F(AFSettingsStoreTest, TwoInstancesKeepEachOthersKeysAndTheLastFlushDecides) {
    AFSettingsStore first(file());
    AFSettingsStore second(file());
    first.write("offontop", 1);
    first.write("cc savepath", std::string("/maps/"));
    second.write("offontop", 0);
    second.write("usage", 9);
    ASSERT_TRUE(second.flush());
    ASSERT_TRUE(first.flush());
    const AFSettingsStore next(file());
    EXPECT_EQ(readInt(next, "offontop"), 1);
    EXPECT_EQ(readString(next, "cc savepath"), "/maps/");
    EXPECT_EQ(readInt(next, "usage"), 9);
    // The merge also brought the other instance's key into the first one's view.
    EXPECT_EQ(readInt(first, "usage"), 9);
}

TEST_F(AFSettingsStoreTest, TheDestructorFlushesWhatIsPending) {
    { AFSettingsStore(file()).write("bypasslock", 1); }
    EXPECT_EQ(readInt(AFSettingsStore(file()), "bypasslock"), 1);
}

TEST_F(AFSettingsStoreTest, UntrustworthyLinesReadAsAbsent) {
    const std::string huge(AFSettingsStore::kMaxLineBytes + 10, 'x');
    std::string text = "[Other]\n"
                       "elsewhere=1\n"
                       "[Orvanto]\n"
                       "good=5\n"
                       "crlf=\"windows\"\r\n"
                       "twice=1\n"
                       "twice=1\n"
                       "junk\x01\xFF=3\n"
                       "nul=1"
                       "2\n"
                       "plus=+4\n"
                       "letters=12a\n"
                       "wide=99999999999\n"
                       "empty=\n"
                       "=8\n"
                       "open=\"unterminated\n"
                       "escape=\"bad \\q escape\"\n"
                       "hex=\"bad \\xZZ\"\n"
                       "quote=\"in\"side\"\n"
                       "after=\"x\" tail\n"
                       "long=\"" +
                       huge +
                       "\"\n"
                       "; comment=1\n"
                       "last=\"fine\"\n"
                       "cut=12";
    text.insert(text.find("nul=1") + 5, 1, '\0');
    ASSERT_NE(text.find("last="), std::string::npos);
    TempFolder::writeText(file(), text);
    const AFSettingsStore store(file());
    EXPECT_EQ(readInt(store, "good"), 5);
    EXPECT_EQ(readString(store, "crlf"), "windows");
    EXPECT_EQ(readString(store, "last"), "fine");
    for (const char* key : {"elsewhere", "twice", "nul", "plus", "letters", "wide", "empty", "open", "escape",
                            "hex", "quote", "after", "long", "; comment", "cut"}) {
        EXPECT_EQ(readInt(store, key), -12345) << key;
        EXPECT_EQ(readString(store, key), "<absent>") << key;
    }
}

TEST_F(AFSettingsStoreTest, BinaryTruncatedAndHugeFilesNeverCrash) {
    // A file cut anywhere loses at most the line it was cut in.
    {
        AFSettingsStore store(file());
        store.write("aaa", 1);
        store.write("bbb", std::string("a value"));
        store.write("ccc", 3);
        ASSERT_TRUE(store.flush());
    }
    const std::string whole = TempFolder::readText(file());
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        TempFolder::writeText(file(), whole.substr(0, cut));
        const AFSettingsStore store(file());
        const std::string kept = whole.substr(0, whole.rfind('\n', cut == 0 ? 0 : cut - 1) + 1);
        EXPECT_EQ(readInt(store, "ccc") == 3, kept.find("ccc=3\n") != std::string::npos) << cut;
        EXPECT_EQ(readString(store, "bbb") == "a value", kept.find("bbb=") != std::string::npos) << cut;
    }

    // Pseudo-random bytes, with and without our section header in front.
    uint32_t state = 12345;
    std::string junk(200000, '\0');
    for (char& c : junk) {
        state = state * 1664525u + 1013904223u;
        c = static_cast<char>(state >> 24);
    }
    for (const std::string& prefix : {std::string(), std::string("[Orvanto]\n")}) {
        TempFolder::writeText(file(), prefix + junk);
        AFSettingsStore store(file());
        EXPECT_EQ(readInt(store, "usage"), -12345);
        store.write("usage", 2);
        EXPECT_TRUE(store.flush());
        EXPECT_EQ(readInt(AFSettingsStore(file()), "usage"), 2);
    }

    // A file larger than any of ours is ignored as a whole.
    std::string big = "[Orvanto]\nusage=4\n";
    big += std::string(AFSettingsStore::kMaxFileBytes, '\n');
    TempFolder::writeText(file(), big);
    EXPECT_EQ(readInt(AFSettingsStore(file()), "usage"), -12345);
}

TEST_F(AFSettingsStoreTest, SomethingOtherThanAFileAtThePathReadsAsEmpty) {
    std::filesystem::create_directories(folder.path("Orvanto"));
    // A pipe would block a plain open for ever.
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_EQ(readInt(AFSettingsStore(file()), "usage"), -12345);
    std::filesystem::remove(file());
    std::filesystem::create_directories(file());
    AFSettingsStore store(file());
    EXPECT_EQ(readInt(store, "usage"), -12345);
    store.write("usage", 1);
    EXPECT_FALSE(store.flush());
}

TEST_F(AFSettingsStoreTest, AValueTooLongForOneLineIsRefused) {
    AFSettingsStore store(file());
    store.write("contentpath", std::string(AFSettingsStore::kMaxLineBytes, 'p'));
    store.write("", 1);
    EXPECT_EQ(readString(store, "contentpath"), "<absent>");
    EXPECT_EQ(readInt(store, ""), -12345);
}

TEST_F(AFSettingsStoreTest, AFailedWriteLeavesTheOldFileAndKeepsTheChangePending) {
    {
        AFSettingsStore store(file());
        store.write("usage", 1);
        ASSERT_TRUE(store.flush());
    }
    const std::string before = TempFolder::readText(file());

    // A full disk: every write beyond a few bytes fails.
    AFSettingsStore store(file());
    store.write("contentpath", std::string(2000, 'c'));
    rlimit old{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit tiny = old;
    tiny.rlim_cur = 64;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tiny), 0);
    const bool flushed = store.flush();
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(flushed);
    EXPECT_EQ(TempFolder::readText(file()), before);
    EXPECT_EQ(filesInFolder(), 1u);

    // An unwritable folder: only meaningful where permissions bind.
    std::filesystem::permissions(folder.path("Orvanto"),
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    if (::access(folder.path("Orvanto").c_str(), W_OK) != 0) {
        EXPECT_FALSE(store.flush());
        EXPECT_EQ(TempFolder::readText(file()), before);
        EXPECT_EQ(filesInFolder(), 1u);
    }
    std::filesystem::permissions(folder.path("Orvanto"), std::filesystem::perms::owner_all);

    // The change was kept and lands once the disk takes it.
    EXPECT_TRUE(store.flush());
    EXPECT_EQ(readString(AFSettingsStore(file()), "contentpath"), std::string(2000, 'c'));
    EXPECT_EQ(readInt(AFSettingsStore(file()), "usage"), 1);
}

TEST_F(AFSettingsStoreTest, TheDefaultFileFollowsTheConfigHome) {
    {
        const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path("cfg").c_str());
        EXPECT_EQ(AFSettingsStore::defaultFilePath(), folder.path("cfg/Orvanto/Orvanto.conf"));
        AFSettingsStore store;
        store.write("usage", 6);
        EXPECT_TRUE(store.flush());
        EXPECT_TRUE(std::filesystem::is_regular_file(folder.path("cfg/Orvanto/Orvanto.conf")));
    }
    const ScopedEnvironment home("HOME", folder.path("home").c_str());
    for (const char* unusable : {static_cast<const char*>(nullptr), "", "relative/cfg"}) {
        const ScopedEnvironment config("XDG_CONFIG_HOME", unusable);
        EXPECT_EQ(AFSettingsStore::defaultFilePath(), folder.path("home/.config/Orvanto/Orvanto.conf"));
    }
}

TEST_F(AFSettingsStoreTest, AFileReachedThroughALinkStaysALink) {
    TempFolder::writeText(folder.path("dotfiles/Orvanto.conf"), "[Orvanto]\nusage=1\n");
    std::filesystem::create_directories(folder.path("Orvanto"));
    std::filesystem::create_symlink(folder.path("dotfiles/Orvanto.conf"), file());
    AFSettingsStore store(file());
    EXPECT_EQ(readInt(store, "usage"), 1);
    store.write("usage", 2);
    ASSERT_TRUE(store.flush());
    EXPECT_TRUE(std::filesystem::is_symlink(file()));
    EXPECT_EQ(readInt(AFSettingsStore(folder.path("dotfiles/Orvanto.conf")), "usage"), 2);
}

} // namespace
