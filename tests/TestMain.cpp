#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

// Every test starts from the options a new user has: what one test's plug-in writes when it closes must not
// change how the next test's plug-in starts.
class FreshSettings : public ::testing::EmptyTestEventListener {
public:
    explicit FreshSettings(std::filesystem::path folder) : settingsFolder(std::move(folder)) {}
    void OnTestStart(const ::testing::TestInfo&) override {
        std::error_code ignored;
        std::filesystem::remove_all(settingsFolder, ignored);
    }

private:
    std::filesystem::path settingsFolder;
};

} // namespace

// Tests never touch the user's own settings or content: HOME and the XDG folders point at a fresh temporary
// directory for the whole run.
int main(int argc, char** argv) {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvanto-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) return 2;
    const std::filesystem::path home = pattern;
    std::filesystem::create_directories(home / ".config");
    std::filesystem::create_directories(home / ".local/share");
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home / ".config").c_str(), 1);
    setenv("XDG_DATA_HOME", (home / ".local/share").c_str(), 1);

    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new FreshSettings(home / ".config/Orvanto"));
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(home, ignored);
    return result;
}
