// Runs orvanto-preset as a user would: every compiled content file checks and describes, damaged files are
// refused with the word at fault, and a source made into a file reads back with its values.

#include "tools/JsonValue.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// A private folder for the run, removed at exit.
struct Scratch {
    fs::path dir = fs::temp_directory_path() / ("orvanto-preset-cli-" + std::to_string(::getpid()));
    Scratch() { fs::create_directories(dir); }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }
};

fs::path scratch() {
    static const Scratch s;
    return s.dir;
}

Outcome run(const std::vector<std::string>& args) {
    std::string command = "HOME=" + quoted(scratch().string()) +
                          " XDG_CONFIG_HOME=" + quoted(scratch().string()) +
                          " XDG_DATA_HOME=" + quoted(scratch().string()) + " " + quoted(ORVANTO_PRESET);
    for (const auto& a : args)
        command += " " + quoted(a);
    const fs::path errPath = scratch() / "stderr.txt";
    command += " 2>" + quoted(errPath.string());
    Outcome o;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return o;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0;)
        o.out.append(buffer, n);
    const int status = ::pclose(pipe);
    o.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    o.err = slurp(errPath);
    return o;
}

std::vector<uint32_t> words(const fs::path& path) {
    const std::string bytes = slurp(path);
    std::vector<uint32_t> w(bytes.size() / 4);
    std::memcpy(w.data(), bytes.data(), w.size() * 4);
    return w;
}

void writeWords(const fs::path& path, const std::vector<uint32_t>& w) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(w.data()), static_cast<std::streamsize>(w.size() * 4));
}

uint32_t floatWord(float v) {
    uint32_t w;
    std::memcpy(&w, &v, 4);
    return w;
}

std::vector<fs::path> contentFiles() {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(ORVANTO_CONTENT_DIR))
        if (entry.is_regular_file() && entry.path().filename() != ".keep") files.push_back(entry.path());
    return files;
}

fs::path contentFile(const std::string& relative) {
    return fs::path(ORVANTO_CONTENT_DIR) / relative;
}

} // namespace

TEST(PresetCli, EveryContentFileChecksAndDescribesAsJson) {
    const auto files = contentFiles();
    std::set<std::string> kinds;
    ASSERT_GE(files.size(), 24u * 3u + 13u + 4u + 6u);
    for (const auto& file : files) {
        const Outcome check = run({"check", file.string()});
        EXPECT_EQ(check.status, 0) << file << ": " << check.err;
        const Outcome info = run({"info", file.string()});
        ASSERT_EQ(info.status, 0) << file << ": " << info.err;
        const JsonValue json = JsonValue::parse(info.out);
        ASSERT_NE(json.find("kind"), nullptr);
        kinds.insert(json.find("kind")->text);
        EXPECT_EQ(json.find("problem"), nullptr) << file;
    }
    EXPECT_EQ(kinds, (std::set<std::string>{"effect preset", "global preset", "Dictator preset",
                                            "step pattern", "MIDI map"}));
}

TEST(PresetCli, ContentTreeHasEveryMenuEffectAndTheDefault) {
    std::size_t folders = 0;
    for (const auto& entry : fs::directory_iterator(contentFile("Effect Presets"))) {
        ++folders;
        std::size_t presets = 0;
        for (const auto& preset : fs::directory_iterator(entry.path()))
            presets += preset.path().extension() == ".afo";
        EXPECT_GE(presets, 3u) << entry.path();
    }
    EXPECT_EQ(folders, 24u);
    EXPECT_TRUE(fs::exists(contentFile("User/.keep")));
    const JsonValue def =
        JsonValue::parse(run({"info", contentFile("Global Presets/default.afo").string()}).out);
    EXPECT_EQ(def.find("kind")->text, "global preset");
    for (const auto& control : def.find("controls")->items)
        EXPECT_EQ(control.number, 0.0);
    EXPECT_EQ(def.find("dictator")->number, 0.0);
}

TEST(PresetCli, DamagedFilesAreRefusedAtTheWordAtFault) {
    const fs::path source = contentFile("Effect Presets/Stutter/Swing Glitch.afo");
    const std::vector<uint32_t> good = words(source);
    ASSERT_EQ(good[0], good.size());

    auto refuse = [&](const std::vector<uint32_t>& w, const std::string& name, const std::string& message) {
        const fs::path path = scratch() / (name + ".afo");
        writeWords(path, w);
        const Outcome o = run({"check", path.string()});
        EXPECT_EQ(o.status, 1) << name;
        EXPECT_NE(o.err.find(message), std::string::npos) << name << ": " << o.err;
    };
    auto truncated = good;
    truncated.resize(good.size() - 3);
    refuse(truncated, "truncated",
           "word " + std::to_string(truncated.size()) + ": the file ends here, its header says " +
               std::to_string(good.size()) + " words");
    auto trailing = good;
    trailing.push_back(0);
    refuse(trailing, "trailing",
           "word " + std::to_string(good.size()) + ": words left over after the last field");
    auto grown = trailing;
    grown[0] += 1;
    refuse(grown, "grown", "word " + std::to_string(good.size()) + ": words left over after the last field");
    auto badId = good;
    badId[10] = 6;
    refuse(badId, "badid", "word 10: unknown effect type id 6");
    auto range = good;
    range[11] = floatWord(1.5f);
    refuse(range, "range", "word 11: value");
    auto noTerminator = good;
    noTerminator.erase(noTerminator.end() - 1);
    noTerminator[0] -= 1;
    refuse(noTerminator, "noterm", "word " + std::to_string(noTerminator.size()) + ": missing");
    refuse({good[0], good[1], good[2], good[3], 77}, "magic", "This is no valid");
}

TEST(PresetCli, DamagedGlobalAndDictatorFilesNameTheField) {
    const std::vector<uint32_t> dic = words(contentFile("Dictator Presets/Staircase.dic"));
    auto badNode = dic;
    badNode[5] = 40;
    writeWords(scratch() / "node.dic", badNode);
    Outcome o = run({"check", (scratch() / "node.dic").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("word 5: node index 40 outside 0..16"), std::string::npos) << o.err;

    auto global = words(contentFile("Global Presets/Riser.afog"));
    // The program and content index close the file; a negative program is out of range.
    global[global.size() - 2] = static_cast<uint32_t>(-5);
    writeWords(scratch() / "program.afog", global);
    o = run({"check", (scratch() / "program.afog").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("word " + std::to_string(global.size() - 2) + ": program -5"), std::string::npos)
        << o.err;
}

TEST(PresetCli, MakeThenInfoGivesTheSourceValuesBack) {
    const fs::path source = scratch() / "round.json";
    std::ofstream(source) << R"({"format": "orvanto-effect-preset", "version": 1, "name": "Round Trip",
        "effect": "Pitch Delay",
        "parameters": {"Delay Left": 0.25, "Parameter 2": 0.625, "Feedback": 0.375, "Pitch": 0.875,
                       "Dry Wet": 0.5, "Lfo Rate": 0.125},
        "options": {"Feedback": "1/8", "Pitch": 3},
        "curves": [1, 2, 3, 4, 5], "modulation": {"envelope": [0.5, -0.25, 0, 0, 1]},
        "mixLaw": 2, "quantise": 3, "volume": 0.75,
        "lfo2": {"waveform": 4, "rateDivide": 0.5}})";
    const fs::path file = scratch() / "round.afo";
    const Outcome made = run({"make", source.string(), "-o", file.string()});
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(run({"check", file.string()}).status, 0);
    const JsonValue info = JsonValue::parse(run({"info", file.string()}).out);
    const JsonValue& slot = *info.find("slot");
    EXPECT_EQ(slot.find("effect")->text, "Pitch Delay");
    EXPECT_EQ(slot.find("name")->text, "Round Trip");
    const JsonValue& p = *slot.find("parameters");
    EXPECT_EQ(p.find("Parameter 1")->number, 0.25);
    EXPECT_EQ(p.find("Parameter 2")->number, 0.625);
    EXPECT_EQ(p.find("Parameter 3")->number, 0.375);
    EXPECT_EQ(p.find("Parameter 4")->number, 0.875);
    EXPECT_EQ(p.find("Dry Wet")->number, 0.5);
    EXPECT_EQ(p.find("Lfo Rate")->number, 0.125);
    const JsonValue& options = *slot.find("options");
    EXPECT_EQ(options.find("Feedback")->find("word")->text, "1/8");
    EXPECT_EQ(options.find("Pitch")->find("value")->number, 3.0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(slot.find("curves")->items[static_cast<std::size_t>(i)].number, i + 1);
    const auto& envelope = slot.find("modulation")->find("envelope")->items;
    EXPECT_EQ(envelope[0].number, 0.5);
    EXPECT_EQ(envelope[1].number, -0.25);
    EXPECT_EQ(envelope[4].number, 1.0);
    EXPECT_EQ(slot.find("mixLaw")->number, 2.0);
    EXPECT_EQ(slot.find("quantise")->number, 3.0);
    EXPECT_EQ(slot.find("volume")->number, 0.75);
    EXPECT_EQ(slot.find("lfo2")->find("waveform")->number, 4.0);
    EXPECT_EQ(slot.find("lfo2")->find("rateDivide")->number, 0.5);
}

TEST(PresetCli, MidiMapsMakeDescribeAndCheck) {
    const fs::path source = scratch() / "map.json";
    std::ofstream(source) << R"({"format": "orvanto-midi-map", "version": 1, "name": "Map",
        "controllers": {"1": [0, 261], "74": [8]}, "notes": {"36": [1]}})";
    const fs::path file = scratch() / "Map.afm";
    const Outcome made = run({"make", source.string(), "-o", file.string()});
    ASSERT_EQ(made.status, 0) << made.err;
    const Outcome check = run({"check", file.string()});
    EXPECT_EQ(check.status, 0) << check.err;
    const Outcome info = run({"info", file.string()});
    ASSERT_EQ(info.status, 0) << info.err;
    const JsonValue json = JsonValue::parse(info.out);
    EXPECT_EQ(json.find("kind")->text, "MIDI map");
    const auto& cc1 = json.find("controllers")->find("1")->items;
    ASSERT_EQ(cc1.size(), 2u);
    EXPECT_EQ(cc1[0].number, 0.0);
    EXPECT_EQ(cc1[1].number, 261.0);
    EXPECT_EQ(json.find("controllers")->find("74")->items[0].number, 8.0);
    EXPECT_EQ(json.find("notes")->find("36")->items[0].number, 1.0);

    auto w = words(file);
    auto trailing = w;
    trailing.push_back(0);
    trailing[0] += 1;
    writeWords(scratch() / "trailing.afm", trailing);
    Outcome o = run({"check", (scratch() / "trailing.afm").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("word " + std::to_string(w.size()) + ": words left over"), std::string::npos)
        << o.err;
    auto version = w;
    version[5] = 500;
    writeWords(scratch() / "version.afm", version);
    o = run({"check", (scratch() / "version.afm").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("word 5: not a MIDI map of a known version"), std::string::npos) << o.err;
}

TEST(PresetCli, BadSourcesAndUsageFail) {
    const fs::path source = scratch() / "bad.json";
    std::ofstream(source)
        << R"({"format": "orvanto-effect-preset", "effect": "Stutter", "parameters": {"Size": 1.5}})";
    Outcome o = run({"make", source.string(), "-o", (scratch() / "bad.afo").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("Size: 1.5"), std::string::npos) << o.err;
    EXPECT_FALSE(fs::exists(scratch() / "bad.afo"));
    EXPECT_EQ(run({"check"}).status, 2);
    o = run({"check", (scratch() / "missing.afo").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("cannot read"), std::string::npos);
    o = run({"info", (scratch() / "missing.afm").string()});
    EXPECT_EQ(o.status, 1);

    // Endless or special files are refused instead of read for ever; a device is written in place.
    const fs::path endless = scratch() / "endless.afo";
    fs::create_symlink("/dev/zero", endless);
    o = run({"info", endless.string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("not a regular file"), std::string::npos) << o.err;
    EXPECT_EQ(run({"make", "/dev/zero", "-o", (scratch() / "zero.afo").string()}).status, 1);
    const fs::path good = scratch() / "good.json";
    std::ofstream(good) << R"({"format": "orvanto-effect-preset", "effect": "Stutter", "parameters": {}})";
    o = run({"make", good.string(), "-o", "/dev/full"});
    EXPECT_EQ(o.status, 2) << o.err;
    EXPECT_EQ(fs::status("/dev/full").type(), fs::file_type::character);
}

TEST(PresetCli, AuditHearsDropsPeaksAndPresetsThatDoNothing) {
    const fs::path folder = scratch() / "audit";
    fs::create_directories(folder / "Effect Presets" / "Filter");
    const auto write = [&](const std::string& name, const std::string& body) {
        std::ofstream(folder / "Effect Presets" / "Filter" / (name + ".json"))
            << R"({"format": "orvanto-effect-preset", "version": 1, "effect": "Filter", )" << body << "}";
    };
    // A high-pass opened to the top by the Control leaves almost nothing of the loop.
    const std::string opened =
        R"("parameters": {"Cutoff L": 0.2, "Param1 Knob Amt": 1.0}, "options": {"Cutoff L": "24dB HP"})";
    write("Opened", opened);
    write("Opened On Purpose", R"("silences": true, )" + opened);
    write("Open", R"("parameters": {"Cutoff L": 1.0}, "options": {"Cutoff L": "Lowpass"})");
    write(
        "Loud",
        R"("parameters": {"Cutoff L": 1.0}, "options": {"Cutoff L": "Lowpass"}, "volume": 1.0, "mixLaw": 2)");

    const Outcome o = run({"audit", "--content", folder.string()});
    EXPECT_EQ(o.status, 1) << o.err;
    const auto row = [&](const std::string& name) {
        const auto at = o.out.find("| Effect Presets/Filter/" + name + " |");
        return at == std::string::npos ? std::string() : o.out.substr(at, o.out.find('\n', at) - at);
    };
    EXPECT_NE(row("Opened").find("drop at"), std::string::npos) << o.out;
    EXPECT_NE(row("Opened On Purpose (silences)").find("| ok |"), std::string::npos) << o.out;
    EXPECT_NE(row("Open").find("no change"), std::string::npos) << o.out;
    EXPECT_NE(row("Loud").find("peak at"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("1 of 4 presets without a fault"), std::string::npos) << o.out;
}
