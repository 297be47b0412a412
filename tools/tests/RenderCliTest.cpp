// Runs the orvanto-render binary as a user would and checks exit status, files and printed lists.

#include <gtest/gtest.h>
#include <sndfile.h>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        result.push_back(line);
    return result;
}

std::vector<std::string> split(const std::string& line, char mark) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(line);
    while (std::getline(in, part, mark))
        parts.push_back(part);
    if (!line.empty() && line.back() == mark) parts.emplace_back();
    return parts;
}

struct Audio {
    int rate = 0;
    int channels = 0;
    std::vector<float> samples; // interleaved
};

Audio readAudio(const std::string& path) {
    Audio a;
    SF_INFO info{};
    SNDFILE* f = sf_open(path.c_str(), SFM_READ, &info);
    if (f == nullptr) return a;
    a.rate = info.samplerate;
    a.channels = info.channels;
    a.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    sf_readf_float(f, a.samples.data(), info.frames);
    sf_close(f);
    return a;
}

void writeAudio(const std::string& path, int rate, int channels, const std::vector<float>& samples,
                int format) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* f = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(f, nullptr) << sf_strerror(nullptr);
    sf_writef_float(f, samples.data(),
                    static_cast<sf_count_t>(samples.size() / static_cast<std::size_t>(channels)));
    sf_close(f);
}

class RenderCli : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        // The renderer builds the plug-in, which reads per-user settings: keep it away from the real home.
        char pattern[] = "/tmp/orvanto-render-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        home = pattern;
        setenv("HOME", home.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (home + "/config").c_str(), 1);
        setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
    }

    static void TearDownTestSuite() { std::system(("rm -rf '" + home + "'").c_str()); }

    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir = home + "/" + info->name();
        ASSERT_EQ(std::system(("mkdir -p '" + dir + "'").c_str()), 0);
    }

    Outcome run(const std::vector<std::string>& args) {
        Outcome r;
        const std::string outPath = home + "/stdout.txt";
        const std::string errPath = home + "/stderr.txt";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        std::vector<std::string> all{ORVANTO_RENDER};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& a : all)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_t pid = 0;
        if (posix_spawn(&pid, ORVANTO_RENDER, &actions, nullptr, argv.data(), environ) == 0) {
            int status = 0;
            waitpid(pid, &status, 0);
            r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        posix_spawn_file_actions_destroy(&actions);
        r.out = slurp(outPath);
        r.err = slurp(errPath);
        return r;
    }

    std::vector<std::string> files() const {
        std::vector<std::string> names;
        if (DIR* d = opendir(dir.c_str())) {
            while (const dirent* e = readdir(d))
                if (std::string(e->d_name) != "." && std::string(e->d_name) != "..")
                    names.emplace_back(e->d_name);
            closedir(d);
        }
        return names;
    }

    std::string path(const std::string& name) const { return dir + "/" + name; }

    // A short stereo test signal: a sine on the left, a different one on the right, and a few extreme values.
    std::string makeInput(const std::string& name, int channels, int format, int frames = 3001) {
        std::vector<float> s(static_cast<std::size_t>(frames * channels));
        for (int i = 0; i < frames; ++i)
            for (int c = 0; c < channels; ++c)
                s[static_cast<std::size_t>(i * channels + c)] =
                    static_cast<float>(0.7 * std::sin(0.01 * i * (c + 1)) + 0.2 * std::sin(0.37 * i));
        s[0] = 1.0f;
        s[1] = -1.0f;
        writeAudio(path(name), 44100, channels, s, format);
        return path(name);
    }

    static inline std::string home;
    std::string dir;
};

TEST_F(RenderCli, BadInputExitsWithTwoAndLeavesNoFile) {
    const std::string input = makeInput("in.wav", 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    const std::string out = path("out.wav");
    std::ofstream(path("garbage.wav")) << "this is not audio";
    const std::vector<std::vector<std::string>> cases = {
        {"--frobnicate", "-o", out},
        {path("missing.wav"), "-o", out},
        {path("garbage.wav"), "-o", out},
        {"-o", out, "--set", "No Such Knob=0.5"},
        {"-o", out, "--ramp", "Nothing=0:1@0:1"},
        {"-o", out, "--set", "Control 1=1.5"},
        {"-o", out, "--set", "Control 1=-0.1"},
        {"-o", out, "--set", "Control 1=half"},
        {"-o", out, "--set", "381=0.5"},
        {"-o", out, "--set", "252=0.5"},
        {"-o", out, "--ramp", "260=0:1@0:1"},
        {"-o", out, "--effect", "1=Wobbler"},
        {"-o", out, "--effect", "9=Stutter"},
        {"-o", out, "--effect", "1=Classic Filter"},
        {"-o", out, "--effect", "1=29"},
        {"-o", out, "--option", "1:0=99"},
        {"-o", out, "--effect", "1=Stutter", "--option", "1:3=0"},
        {"-o", out, "--effect", "1=Stutter", "--option", "1:0=Loud"},
        {"-o", out, "--tempo", "fast"},
        {"-o", out, "--tempo", "1e9"},
        {"-o", out, "--block", "0"},
        {"-o", out, "--block", "12x"},
        {"-o", out, "--rate", "8000"},
        {"-o", out, "--seconds", "0"},
        {"-o", out, "--seconds", "nan"},
        {"-o", out, "--loop", "8:4"},
        {"-o", out, "--ramp", "Control 1=0:1@2:1"},
        {"-o", out, "--seed", "99999999999"},
        {"-o", path("out.mp3")},
        {"-o", out, "--plot", path("plot.jpg")},
        {"-o", path("no/such/folder/out.wav")},
        {input, "-o", out, "--rate", "44100"},
        {input, input, "-o", out},
        {"--set", "Control 1=0.5"},
        {"-o"},
    };
    for (const auto& args : cases) {
        std::string joined;
        for (const auto& a : args)
            joined += a + " ";
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 2) << joined;
        int reasons = 0;
        for (const auto& line : lines(r.err))
            reasons += line.rfind("orvanto-render: ", 0) == 0 ? 1 : 0;
        EXPECT_EQ(reasons, 1) << joined << "\n" << r.err;
        EXPECT_EQ(files().size(), 2u) << joined; // in.wav and garbage.wav, no output and no partial file
    }
}

TEST_F(RenderCli, ListEffectsPrintsTheCatalogue) {
    const Outcome r = run({"--list-effects"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto rows = lines(r.out);
    ASSERT_EQ(rows.size(), 29u);
    const std::set<std::string> kinds{"sound", "pass-through", "none"};
    int inMenu = 0;
    for (int id = 0; id < 29; ++id) {
        const auto cols = split(rows[static_cast<std::size_t>(id)], '\t');
        ASSERT_EQ(cols.size(), 5u) << rows[static_cast<std::size_t>(id)];
        EXPECT_EQ(cols[0], std::to_string(id));
        EXPECT_TRUE(kinds.count(cols[4])) << cols[4];
        const bool classless = id == 0 || id == 6 || id == 10 || id == 15;
        EXPECT_EQ(cols[4] == "none", classless) << id;
        EXPECT_EQ(cols[3].empty(), classless) << id;
        if (cols[2] != "-") ++inMenu;
    }
    EXPECT_EQ(inMenu, 24);
    EXPECT_EQ(rows[9], "9\tStutter\t18\tSize, Decay, Shape, Pan\t" + split(rows[9], '\t')[4]);
    EXPECT_EQ(split(rows[26], '\t')[3], "Size, Damp, Width, Freeze");
    EXPECT_EQ(split(rows[28], '\t')[2], "-");
}

TEST_F(RenderCli, ListParametersShowsValuesAfterTheOptions) {
    const Outcome r = run({"--list-parameters", "--set", "Control 1=0.25", "--set", "FX2 Parameter 3=0.125",
                           "--ramp", "FX3 Dry Wet=0.3:1@0:4", "--ramp", "Control 2=0.9:0.9@1:1"});
    ASSERT_EQ(r.status, 0) << r.err;
    const auto rows = lines(r.out);
    ASSERT_EQ(rows.size(), 252u);
    for (int i = 0; i < 252; ++i)
        EXPECT_EQ(split(rows[static_cast<std::size_t>(i)], '\t').size(), 3u) << i;
    EXPECT_EQ(rows[0], "0\tControl 1\t0.250000");
    EXPECT_EQ(rows[1], "1\tControl 2\t0.000000");              // a step at 1 s is not due at time 0
    EXPECT_EQ(rows[12 + 58 + 4], "74\tFX3 Dry Wet\t0.300000"); // a ramp starting at 0 is due at 0
    EXPECT_EQ(rows[9], "9\tDry/Wet\t1.000000");
    EXPECT_EQ(rows[12 + 29 + 2], "43\tFX2 Parameter 3\t0.125000");
    EXPECT_EQ(rows[251], "251\tFX8 FX Gain\t0.500000");
}

TEST_F(RenderCli, DefaultSettingsPassAFileThroughBitExactly) {
    struct Case {
        const char* name;
        int channels;
        int format;
        const char* block;
    };
    for (const Case c : {Case{"stereo.wav", 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT, "256"},
                         Case{"mono.wav", 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16, "100"}}) {
        const std::string input = makeInput(c.name, c.channels, c.format);
        const Audio in = readAudio(input);
        const Outcome r = run({input, "-o", path("out.wav"), "--block", c.block, "--quiet"});
        ASSERT_EQ(r.status, 0) << r.err;
        const Audio out = readAudio(path("out.wav"));
        EXPECT_EQ(out.rate, 44100);
        ASSERT_EQ(out.channels, 2);
        const std::size_t frames = in.samples.size() / static_cast<std::size_t>(c.channels);
        ASSERT_EQ(out.samples.size(), 2 * frames) << c.name;
        std::size_t differing = 0;
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t ch = 0; ch < 2; ++ch)
                if (out.samples[2 * i + ch] != in.samples[i * static_cast<std::size_t>(c.channels) +
                                                          std::min<std::size_t>(ch, c.channels - 1)])
                    ++differing;
        EXPECT_EQ(differing, 0u) << c.name;
    }
}

TEST_F(RenderCli, TailAddsSecondsAfterTheInput) {
    const std::string input = makeInput("in.wav", 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1000);
    const Outcome r = run({input, "-o", path("out.flac"), "--seconds", "0.5", "--quiet"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Audio out = readAudio(path("out.flac"));
    EXPECT_EQ(out.samples.size(), 2u * (1000 + 22050));
    EXPECT_EQ(out.samples.back(), 0.0f);
}

TEST_F(RenderCli, SameSeedGivesTheSameFile) {
    const std::vector<std::string> args{
        "--seconds", "1",           "--effect", "1=Stutter", "--ramp", "Control 1=0:1@0:1",
        "--set",     "Dry/Wet=0.8", "--seed",   "1234",      "--quiet"};
    auto first = args, second = args;
    first.insert(first.end(), {"-o", path("a.wav")});
    second.insert(second.end(), {"-o", path("b.wav"), "--plot", path("b.png")});
    ASSERT_EQ(run(first).status, 0);
    ASSERT_EQ(run(second).status, 0);
    const std::string a = slurp(path("a.wav"));
    EXPECT_GT(a.size(), 48000u * 8);
    EXPECT_EQ(a, slurp(path("b.wav")));
    EXPECT_EQ(slurp(path("b.png")).substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
}

TEST_F(RenderCli, DemoLoopHasTheRequestedLengthAndRate) {
    const Outcome r =
        run({"-o", path("demo.wav"), "--rate", "44100", "--seconds", "5", "--tempo", "97", "--quiet"});
    ASSERT_EQ(r.status, 0) << r.err;
    const Audio out = readAudio(path("demo.wav"));
    EXPECT_EQ(out.rate, 44100);
    ASSERT_EQ(out.samples.size(), 2u * 220500); // longer than the loop, so its loudest hit is in
    float peak = 0.0f;
    for (float s : out.samples)
        peak = std::max(peak, std::fabs(s));
    EXPECT_NEAR(peak, 0.5f, 1e-6f);
    EXPECT_TRUE(r.err.empty() ||
                r.err.find("orvanto-render [") == std::string::npos); // no bar off a terminal
}

TEST_F(RenderCli, SavedStateLoadsBackAsStateAndAsGlobalPreset) {
    const std::vector<std::string> scene{"--effect", "2=Stutter",     "--set", "FX2 Parameter 1=0.3",
                                         "--set",    "Control 3=0.7", "--set", "Dry/Wet=0.45"};
    auto render = scene;
    render.insert(render.end(),
                  {"-o", path("a.wav"), "--seconds", "0.2", "--quiet", "--save-state", path("scene.afog")});
    ASSERT_EQ(run(render).status, 0);
    EXPECT_EQ(files().size(), 2u); // a.wav and scene.afog, no temporary left
    auto direct = scene;
    direct.push_back("--list-parameters");
    const Outcome expected = run(direct);
    ASSERT_EQ(expected.status, 0) << expected.err;
    const Outcome viaState = run({"--list-parameters", "--state", path("scene.afog")});
    ASSERT_EQ(viaState.status, 0) << viaState.err;
    EXPECT_EQ(viaState.out, expected.out);
    const Outcome viaPreset = run({"--list-parameters", "--preset", path("scene.afog")});
    ASSERT_EQ(viaPreset.status, 0) << viaPreset.err;
    EXPECT_EQ(viaPreset.out, expected.out);
    EXPECT_EQ(lines(viaPreset.out)[12 + 29], "41\tFX2 Parameter 1\t0.300000");

    // The preset comes first, the options after it win.
    const Outcome overridden =
        run({"--list-parameters", "--preset", path("scene.afog"), "--set", "FX2 Parameter 1=0.6"});
    ASSERT_EQ(overridden.status, 0) << overridden.err;
    EXPECT_EQ(lines(overridden.out)[12 + 29], "41\tFX2 Parameter 1\t0.600000");

    // Saving again what was loaded gives the same image.
    ASSERT_EQ(run({"-o", path("b.wav"), "--seconds", "0.01", "--quiet", "--state", path("scene.afog"),
                   "--save-state", path("again.afog")})
                  .status,
              0);
    EXPECT_EQ(slurp(path("again.afog")), slurp(path("scene.afog")));
}

TEST_F(RenderCli, MidiFileRendersLikeTheSameSceneWithoutIt) {
    // Format 0, two notes and a CC: nothing is bound, so the sound stays that of the scene.
    const std::string mid{"MThd\0\0\0\6\0\0\0\1\1\xE0"
                          "MTrk\0\0\0\x10"
                          "\0\x90\x3C\x64\x60\xB0\x01\x40\x60\x80\x3C\0\0\xFF\x2F\0",
                          38};
    std::ofstream(path("notes.mid"), std::ios::binary) << mid;
    ASSERT_EQ(run({"-o", path("plain.wav"), "--seconds", "0.5", "--seed", "3", "--quiet"}).status, 0);
    const Outcome r = run(
        {"-o", path("midi.wav"), "--seconds", "0.5", "--seed", "3", "--quiet", "--midi", path("notes.mid")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(slurp(path("midi.wav")), slurp(path("plain.wav")));
}

// A pipe with no writer is refused at once instead of waiting for one; a device named for the saved state is
// written in place (and reports a full disk) instead of being replaced by a file; the temporary files of a
// render killed outright are removed by the next render into the same folder.
TEST_F(RenderCli, SpecialFilesNeitherBlockNorGetReplaced) {
    const std::string pipe = path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string out = path("out.wav");
    for (const auto& args : std::vector<std::vector<std::string>>{{pipe, "-o", out},
                                                                  {"-o", out, "--state", pipe},
                                                                  {"-o", out, "--midi", pipe},
                                                                  {"-o", out, "--preset", pipe + "@1"}}) {
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 2) << args[args.size() - 1];
        EXPECT_NE(r.err.find("not a regular file"), std::string::npos) << r.err;
    }
    const Outcome full = run({"-o", out, "--seconds", "0.01", "--quiet", "--save-state", "/dev/full"});
    EXPECT_EQ(full.status, 2);
    EXPECT_NE(full.err.find("/dev/full"), std::string::npos) << full.err;
    struct stat device {};
    ASSERT_EQ(stat("/dev/full", &device), 0);
    EXPECT_TRUE(S_ISCHR(device.st_mode));

    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    waitpid(gone, nullptr, 0);
    const std::string stale = ".out.wav.part-" + std::to_string(gone) + "-a1b2c3";
    const std::string live = ".out.wav.part-" + std::to_string(getpid()) + "-a1b2c3";
    std::ofstream(path(stale)) << "left by a killed render";
    std::ofstream(path(live)) << "a render still running";
    ASSERT_EQ(run({"-o", out, "--seconds", "0.01", "--quiet"}).status, 0);
    const std::vector<std::string> names = files();
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
              (std::set<std::string>{"pipe", "out.wav", live}));
}

TEST_F(RenderCli, BadStateMidiAndPresetFilesExitWithTwo) {
    std::ofstream(path("garbage.afo")) << "this is not a preset";
    std::ofstream(path("garbage.mid")) << "MThd but not really";
    const std::string out = path("out.wav");
    ASSERT_EQ(run({"-o", path("seed.wav"), "--seconds", "0.01", "--quiet", "--save-state", path("good.afog")})
                  .status,
              0);
    std::remove(path("seed.wav").c_str());
    const std::string good = slurp(path("good.afog"));
    std::ofstream(path("cut.afog"), std::ios::binary) << good.substr(0, good.size() / 2);
    const std::vector<std::vector<std::string>> cases = {
        {"-o", out, "--preset", path("missing.afo")},
        {"-o", out, "--preset", path("garbage.afo")},
        {"-o", out, "--preset", path("garbage.afo") + "@2"},
        {"-o", out, "--preset", path("good.afog") + "@2"},
        {"-o", out, "--preset", path("good.afog") + "@9"},
        {"-o", out, "--preset", path("cut.afog")},
        {"-o", out, "--state", path("missing.afog")},
        {"-o", out, "--state", path("garbage.afo")},
        {"-o", out, "--state", path("cut.afog")},
        {"-o", out, "--state", dir},
        {"-o", out, "--midi", path("missing.mid")},
        {"-o", out, "--midi", path("garbage.mid")},
        {"-o", out, "--midi", dir},
        {"-o", out, "--save-state", path("no/such/folder/s.afog")},
        {"-o", out, "--save-state", out},
        {"--list-parameters", "--preset", path("garbage.afo")},
    };
    for (const auto& args : cases) {
        std::string joined;
        for (const auto& a : args)
            joined += a + " ";
        const Outcome r = run(args);
        EXPECT_EQ(r.status, 2) << joined;
        EXPECT_EQ(lines(r.err).size(), 1u) << joined << "\n" << r.err;
        EXPECT_EQ(r.err.rfind("orvanto-render: ", 0), 0u) << r.err;
        EXPECT_EQ(files().size(), 4u) << joined; // the three bad files and the good state
        EXPECT_TRUE(r.out.empty()) << joined;
    }
}

} // namespace

TEST_F(RenderCli, FactoryMidiMapPlaysControlsAndDictator) {
    // A fresh user with the factory tree: first use installs "Midi Maps/Default.afm", which binds CC 20 to
    // Control 1, CC 28 to the Dictator and note 37 to Control 2. The Dictator comes first: moving it sets the
    // Controls from its rows.
    setenv("XDG_DATA_HOME", path("data").c_str(), 1);
    setenv("XDG_CONFIG_HOME", path("config").c_str(), 1);
    setenv("ORVANTO_CONTENT_SOURCE", ORVANTO_CONTENT_DIR, 1);
    const std::string mid{"MThd\0\0\0\6\0\0\0\1\1\xE0"
                          "MTrk\0\0\0\x10"
                          "\0\xB0\x1C\x40\0\xB0\x14\x7F\0\x90\x25\x7F\0\xFF\x2F\0",
                          38};
    std::ofstream(path("map.mid"), std::ios::binary) << mid;
    const Outcome r = run({"-o", path("out.wav"), "--seconds", "0.1", "--quiet", "--midi", path("map.mid"),
                           "--save-state", path("after.afog")});
    const Outcome listed = run({"--list-parameters", "--state", path("after.afog")});
    unsetenv("ORVANTO_CONTENT_SOURCE");
    setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/config").c_str(), 1);
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(listed.status, 0) << listed.err;
    const auto rows = lines(listed.out);
    ASSERT_GT(rows.size(), 9u);
    EXPECT_EQ(rows[0], "0\tControl 1\t1.000000");
    EXPECT_EQ(rows[1], "1\tControl 2\t0.992188");
    EXPECT_EQ(rows[8], "8\tDictator\t0.503937");
}
