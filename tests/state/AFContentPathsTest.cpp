#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "TestHost.h"

#include "effects/framework/EffectFactory.h"
#include "state/AFContentPaths.h"
#include "state/AFSettingsStore.h"
#include "state/AFUserFolders.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <string>

namespace fs = std::filesystem;

namespace {

// A data home, a settings file and a factory tree, all inside one temporary folder.
class AFContentPathsTest : public ::testing::Test {
protected:
    AFContentPathsTest()
        : data("XDG_DATA_HOME", folder.path("data").c_str()),
          source(AFContentPaths::kContentSourceVariable, folder.path("factory").c_str()) {}

    std::string settingsFile() const { return folder.path("config/Orvanto.conf"); }
    std::string content() const { return folder.path("data") + "/Orvanto/Content/"; }
    void makeFactoryTree() const {
        TempFolder::writeText(folder.path("factory/Midi Maps/Default.afm"), "factory map");
        TempFolder::writeText(folder.path("factory/Global Presets/default.afo"), "factory global");
        TempFolder::writeText(folder.path("factory/Effect Presets/Looper/Slow.afo"), "factory looper");
        TempFolder::writeText(folder.path("factory/Stepsequencer/Deep/Nested/Walk.AFS"), "factory steps");
    }
    static std::string text(const AFSettingsStore& store, const std::string& key) {
        std::string value = "<absent>";
        store.read(key, value);
        return value;
    }
    static int32_t number(const AFSettingsStore& store, const std::string& key) {
        int32_t value = -1;
        store.read(key, value);
        return value;
    }
    int32_t start() const {
        AFSettingsStore store(settingsFile());
        AFContentPaths paths(store);
        paths.runFirstUse();
        return paths.getUsage();
    }

    TempFolder folder;
    ScopedEnvironment data;
    ScopedEnvironment source;
};

TEST_F(AFContentPathsTest, FoldersJoinWithOneSlashAndEndInOne) {
    EXPECT_EQ(AFContentPaths::appendFolder("/a", "b"), "/a/b/");
    EXPECT_EQ(AFContentPaths::appendFolder("/a/", "b"), "/a/b/");
    EXPECT_EQ(AFContentPaths::appendFolder("/a/", "b/"), "/a/b/");
    EXPECT_EQ(AFContentPaths::appendFolder("/a", ""), "/a/");
    // An empty content path stays relative.
    EXPECT_EQ(AFContentPaths::appendFolder("", "Midi Maps"), "Midi Maps/");
    EXPECT_EQ(AFContentPaths::appendFolder("", ""), "");
}

TEST_F(AFContentPathsTest, FirstUseCopiesTheFactoryTreeAndStoresEveryPath) {
    makeFactoryTree();
    EXPECT_EQ(start(), 1);

    const AFSettingsStore store(settingsFile());
    EXPECT_EQ(number(store, "firstuse"), 1);
    EXPECT_EQ(number(store, "usage"), 2);
    EXPECT_EQ(text(store, "installpath"), AFContentPaths::defaultInstallPath());
    EXPECT_EQ(text(store, "contentpath"), content());
    EXPECT_EQ(text(store, "presetpath0"), content() + "Global Presets/");
    EXPECT_EQ(text(store, "presetsavepath0"), content() + "Global Presets/User/");
    EXPECT_EQ(text(store, "dictatorsavepath"), content() + "Dictator Presets/");
    EXPECT_EQ(text(store, "cc savepath"), "<absent>");
    for (int i = 0; i < EffectFactory::kMenuCount; ++i) {
        const std::string name = EffectFactory::menuEffectName(i);
        const std::string expected = content() + "Effect Presets/" + name + "/";
        EXPECT_EQ(text(store, "presetpath" + name), expected);
        EXPECT_EQ(text(store, "presetsavepath" + name), expected);
        EXPECT_TRUE(fs::is_directory(expected)) << name;
    }
    for (const char* sub : {"Global Presets/User", "Dictator Presets", "Midi Maps", "Stepsequencer"})
        EXPECT_TRUE(fs::is_directory(content() + sub)) << sub;
    EXPECT_EQ(TempFolder::readText(content() + "Midi Maps/Default.afm"), "factory map");
    EXPECT_EQ(TempFolder::readText(content() + "Global Presets/default.afo"), "factory global");
    EXPECT_EQ(TempFolder::readText(content() + "Effect Presets/Looper/Slow.afo"), "factory looper");
    EXPECT_EQ(TempFolder::readText(content() + "Stepsequencer/Deep/Nested/Walk.AFS"), "factory steps");
    // Copies go through temporary files; none may be left behind.
    for (const auto& entry : fs::recursive_directory_iterator(content()))
        EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();

    AFSettingsStore reader(settingsFile());
    const AFContentPaths paths(reader);
    EXPECT_EQ(paths.presetPath(-1), content());
    EXPECT_EQ(paths.presetPath(0), content() + "Global Presets/");
    EXPECT_EQ(paths.presetPath(1), "");
    EXPECT_EQ(paths.defaultMidiMapPath(), content() + "Midi Maps/Default.afm");
    EXPECT_EQ(paths.stepSequencerFolder(), content() + "Stepsequencer/");
    EXPECT_EQ(paths.effectPresetPath("Looper"), content() + "Effect Presets/Looper/");
    EXPECT_EQ(paths.effectPresetSavePath("Flanger"), content() + "Effect Presets/Flanger/");
    EXPECT_EQ(paths.globalPresetSavePath(), content() + "Global Presets/User/");
    EXPECT_EQ(paths.dictatorSavePath(), content() + "Dictator Presets/");
}

TEST_F(AFContentPathsTest, TheTreeIsCopiedOnceAndUserFilesAreNeverReplaced) {
    makeFactoryTree();
    start();
    TempFolder::writeText(content() + "Midi Maps/Default.afm", "my own map");
    fs::remove(content() + "Effect Presets/Looper/Slow.afo");
    TempFolder::writeText(folder.path("factory/Global Presets/New.afo"), "added later");
    EXPECT_EQ(start(), 2);
    EXPECT_EQ(start(), 3);
    EXPECT_EQ(TempFolder::readText(content() + "Midi Maps/Default.afm"), "my own map");
    EXPECT_FALSE(fs::exists(content() + "Effect Presets/Looper/Slow.afo"));
    EXPECT_FALSE(fs::exists(content() + "Global Presets/New.afo"));

    // Settings lost (a damaged file reads as empty): the set-up runs again and only fills the gaps.
    TempFolder::writeText(settingsFile(), std::string("\x00\xFF junk", 7));
    fs::remove(content() + "Global Presets/default.afo");
    fs::create_symlink(folder.path("elsewhere"), content() + "Global Presets/default.afo");
    fs::remove(content() + "Global Presets/New.afo");
    EXPECT_EQ(start(), 1);
    EXPECT_EQ(TempFolder::readText(content() + "Midi Maps/Default.afm"), "my own map");
    EXPECT_EQ(TempFolder::readText(content() + "Effect Presets/Looper/Slow.afo"), "factory looper");
    EXPECT_EQ(TempFolder::readText(content() + "Global Presets/New.afo"), "added later");
    EXPECT_TRUE(fs::is_symlink(content() + "Global Presets/default.afo"));
    EXPECT_FALSE(fs::exists(folder.path("elsewhere")));
}

TEST_F(AFContentPathsTest, AMissingFactoryTreeStillGivesTheEmptyFolders) {
    EXPECT_EQ(start(), 1);
    EXPECT_TRUE(fs::is_directory(content() + "Midi Maps"));
    EXPECT_TRUE(fs::is_directory(content() + "Effect Presets/Spectralizer"));
    EXPECT_FALSE(fs::exists(content() + "Midi Maps/Default.afm"));
}

TEST_F(AFContentPathsTest, AStoredContentPathIsKeptAndAStoredInstallPathToo) {
    makeFactoryTree();
    {
        AFSettingsStore store(settingsFile());
        store.write("contentpath", folder.path("mine") + "/");
        store.write("installpath", std::string("/opt/orvanto/"));
    }
    start();
    const AFSettingsStore store(settingsFile());
    EXPECT_EQ(text(store, "contentpath"), folder.path("mine") + "/");
    EXPECT_EQ(text(store, "installpath"), "/opt/orvanto/");
    EXPECT_EQ(text(store, "presetpath0"), folder.path("mine") + "/Global Presets/");
    EXPECT_EQ(TempFolder::readText(folder.path("mine/Midi Maps/Default.afm")), "factory map");
    EXPECT_FALSE(fs::exists(content()));
}

TEST_F(AFContentPathsTest, ARelativeContentPathIsReplacedAndATargetInsideTheSourceIsNotFilled) {
    makeFactoryTree();
    {
        AFSettingsStore store(settingsFile());
        store.write("contentpath", std::string("relative/Content/"));
    }
    start();
    EXPECT_EQ(text(AFSettingsStore(settingsFile()), "contentpath"), content());
    EXPECT_EQ(TempFolder::readText(content() + "Midi Maps/Default.afm"), "factory map");

    AFContentPaths::copyTreeWithoutOverwrite(folder.path("factory"), folder.path("factory/Inner/"));
    EXPECT_FALSE(fs::exists(folder.path("factory/Inner")));
    AFContentPaths::copyTreeWithoutOverwrite(folder.path("factory/"), folder.path("factory"));
    EXPECT_EQ(TempFolder::readText(folder.path("factory/Midi Maps/Default.afm")), "factory map");
}

TEST_F(AFContentPathsTest, HostileCountersAndFlags) {
    {
        AFSettingsStore store(settingsFile());
        store.write("usage", INT_MAX);
        store.write("firstuse", -3);
    }
    EXPECT_EQ(start(), INT_MAX);
    EXPECT_EQ(number(AFSettingsStore(settingsFile()), "usage"), INT_MAX);
    // A set-up that counts as done does not run again.
    EXPECT_EQ(text(AFSettingsStore(settingsFile()), "presetpath0"), "<absent>");
    EXPECT_FALSE(fs::exists(content()));
}

TEST_F(AFContentPathsTest, UnsetOrRelativeBaseFoldersFallBackToHome) {
    const ScopedEnvironment home("HOME", folder.path("home").c_str());
    for (const char* unusable : {static_cast<const char*>(nullptr), "", "relative"}) {
        const ScopedEnvironment config("XDG_CONFIG_HOME", unusable);
        const ScopedEnvironment dataHome("XDG_DATA_HOME", unusable);
        EXPECT_EQ(AFUserFolders::configHome(), folder.path("home/.config"));
        EXPECT_EQ(AFUserFolders::dataHome(), folder.path("home/.local/share"));
        EXPECT_EQ(AFContentPaths::defaultContentPath(), folder.path("home/.local/share/Orvanto/Content/"));
    }
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path("cfg").c_str());
    EXPECT_EQ(AFUserFolders::configHome(), folder.path("cfg"));
    EXPECT_EQ(AFUserFolders::dataHome(), folder.path("data"));
}

TEST_F(AFContentPathsTest, TheClientRunsTheSetUpAndOffersThePaths) {
    makeFactoryTree();
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path("config").c_str());
    {
        TestHost host;
        const AFContentPaths& paths = host.client().getContentPaths();
        EXPECT_EQ(paths.getUsage(), 1);
        EXPECT_EQ(paths.defaultMidiMapPath(), content() + "Midi Maps/Default.afm");
        EXPECT_EQ(TempFolder::readText(paths.defaultMidiMapPath()), "factory map");
        EXPECT_EQ(paths.presetPath(0), content() + "Global Presets/");
        host.client().getContentPaths().rememberFolder(AFContentPaths::kCcSavePath, content() + "Midi Maps/");
    }
    TestHost next;
    EXPECT_EQ(next.client().getContentPaths().getUsage(), 2);
    EXPECT_EQ(next.client().getContentPaths().ccSavePath(), content() + "Midi Maps/");
}

} // namespace
