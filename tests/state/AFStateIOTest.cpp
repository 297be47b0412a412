#include "state/AFStateIO.h"

#include "TestHost.h"
#include "effects/framework/AFEffect.h"
#include "engine/KnobEngine.h"
#include "modulation/AFLfo.h"
#include "state/AFMessageSink.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// A word image written by hand from the layout tables.
struct Words {
    std::vector<uint32_t> w;
    void i(int32_t v) { w.push_back(static_cast<uint32_t>(v)); }
    void f(float v) { w.push_back(std::bit_cast<uint32_t>(v)); }
    void s(const std::string& text) {
        i(static_cast<int32_t>(text.size()));
        for (std::size_t k = 0; k < text.size(); k += 4) {
            uint32_t word = 0;
            for (std::size_t b = 0; b < 4 && k + b < text.size(); ++b)
                word |= static_cast<uint32_t>(static_cast<uint8_t>(text[k + b])) << (8 * b);
            w.push_back(word);
        }
    }
    // Chunk header with a size filled in by finish(), and the state prefix.
    void header(float tempo = 120.0f, float rate = 44100.0f, int32_t version = 0) {
        i(0), i(version), f(tempo), f(rate), i(26101977);
    }
    void prefix(int32_t stateVersion = 13, int32_t id = 1, int32_t magic = 18467) {
        i(5), i(id), i(stateVersion), i(magic);
    }
    std::vector<uint32_t> finish() {
        w[0] = static_cast<uint32_t>(w.size());
        return w;
    }
};

std::vector<uint8_t> bytesOf(const std::vector<uint32_t>& words) {
    std::vector<uint8_t> bytes(words.size() * 4);
    if (!bytes.empty()) std::memcpy(bytes.data(), words.data(), bytes.size());
    return bytes;
}

bool loadWords(AFChunk& chunk, const std::vector<uint32_t>& words) {
    const auto bytes = bytesOf(words);
    return chunk.loadBytes(bytes.data(), bytes.size(), true);
}

std::vector<uint32_t> wordsOf(const AFChunk& chunk) {
    std::vector<uint32_t> words(chunk.getSizeInWords());
    for (std::size_t k = 0; k < words.size(); ++k)
        words[k] = chunk.word(k);
    return words;
}

// The messages of one client while it lives.
struct Messages {
    std::vector<std::string> texts;
    AFMessageSink& sink;
    explicit Messages(AFUniClient& client) : sink(client.getMessageSink()) {
        sink.setHandler(
            [](void* user, const char* text) { static_cast<Messages*>(user)->texts.emplace_back(text); },
            this);
    }
    ~Messages() { sink.setHandler(nullptr, nullptr); }
};

// One slot record as the tables lay it out, its values derived from `base` so that a check can recompute
// them. Options are (index, mode) pairs.
struct SlotSpec {
    int32_t type = 22;
    float base = 0.1f;
    std::vector<std::pair<int32_t, int32_t>> options{{2, 1}, {3, 2}};
    std::string name = "Hand Made";
};

float control(const SlotSpec& s, int r) {
    return s.base + 0.01f * static_cast<float>(r);
}
float knob(const SlotSpec& s, int r) {
    return s.base + 0.05f + 0.01f * static_cast<float>(r);
}
float depth(int i, int source) {
    return 0.02f * static_cast<float>(i + 1) + 0.2f * static_cast<float>(source);
}
float modulatorValue(const SlotSpec& s, int m, int k) {
    return s.base + 0.1f * static_cast<float>(m + 1) + 0.01f * static_cast<float>(k);
}
float modulatorKnob(int m, int k) {
    return 0.3f + 0.1f * static_cast<float>(m) + 0.01f * static_cast<float>(k);
}
constexpr int32_t kRateModes[2] = {1, 2}, kTriggers[2] = {2, 1}, kQuantize[2] = {3, 4}, kWaves[2] = {13, 5};
constexpr float kDivides[2] = {0.6f, 0.7f};
float stepValue(int lfo, int k) {
    return lfo == 0 ? static_cast<float>(k) / 16.0f : 1.0f - static_cast<float>(k) / 16.0f;
}

void appendSlot(Words& w, const SlotSpec& s, int32_t version = 4307) {
    w.i(version);
    w.i(s.type);
    for (int r = 0; r < 5; ++r)
        w.f(control(s, r));
    if (version >= 4305) w.f(control(s, 4));
    for (int r = 0; r < 5; ++r)
        w.f(knob(s, r));
    for (int r = 0; r < 5; ++r)
        w.i(r + 3);
    for (int r = 0; r < 5; ++r)
        w.f(depth(r, 0)), w.f(depth(r, 1)), w.f(depth(r, 2));
    w.i(3);
    for (const auto& [index, mode] : s.options)
        w.i(index), w.i(mode);
    w.i(6675);
    w.i(564667589);
    for (int m = 0; m < 3; ++m) {
        for (int k = 0; k < 3; ++k)
            w.f(modulatorValue(s, m, k));
        for (int k = 0; k < 3; ++k)
            w.f(modulatorKnob(m, k));
        for (int k = 0; k < 3; ++k)
            w.i(4 + 3 * m + k);
        if (m != 1) {
            const int l = m / 2;
            w.i(kRateModes[l]), w.i(kTriggers[l]), w.i(kQuantize[l]), w.i(kWaves[l]);
            if (version >= 4306) w.f(kDivides[l]);
            if (version >= 4304) {
                for (int k = 0; k < 16; ++k)
                    w.f(stepValue(l, k));
            } else if (version >= 4302) {
                // A glide table of one row and 16 columns.
                w.i(918221533), w.i(1), w.i(1), w.i(16), w.i(0), w.i(1);
                for (int k = 0; k < 16; ++k)
                    w.f(0.25f), w.i(k % 2);
            }
        }
        w.i(564667589);
    }
    if (version >= 4301) w.i(4);
    if (version >= 4303) w.s(s.name);
    if (version >= 4307) w.f(0.8f);
}

int row(int slot, int r) {
    return AFUniClient::kSlotBlockStart + 29 * slot + r;
}

// Checks a slot against a record of `version` made from `s`. `oldDivide` is LFO 2's rate divide before the
// load; `oldSteps` tells whether the steps predate it.
void expectSlot(AFUniClient& c, int slot, const SlotSpec& s, int32_t version = 4307,
                float oldDivide2 = 0.0f) {
    SCOPED_TRACE("slot " + std::to_string(slot) + " version " + std::to_string(version));
    KnobEngine& e = c.getSlot(slot);
    EXPECT_EQ(e.getEffectType(), s.type);
    for (int r = 0; r < 5; ++r) {
        EXPECT_FLOAT_EQ(c.getParameter(row(slot, r)), control(s, r));
        EXPECT_FLOAT_EQ(c.getParameter(row(slot, 6 + r)), knob(s, r));
        EXPECT_EQ(e.getParameterCurve(r), r + 3);
        for (int source = 0; source < 3; ++source)
            EXPECT_FLOAT_EQ(c.getModulationAmount(slot, 5 * source + r), depth(r, source));
    }
    EXPECT_EQ(e.getMixLaw(), 3);
    for (const auto& [index, mode] : s.options)
        EXPECT_EQ(e.getEffect()->getOption(index), mode);
    static constexpr int kRows[3] = {11, 14, 17};
    for (int m = 0; m < 3; ++m)
        for (int k = 0; k < 3; ++k) {
            EXPECT_FLOAT_EQ(c.getParameter(row(slot, kRows[m] + k)), modulatorValue(s, m, k));
            EXPECT_FLOAT_EQ(c.getParameter(row(slot, 20 + 3 * m + k)), modulatorKnob(m, k));
            EXPECT_EQ(e.getModulatorCurve(3 * m + k), 4 + 3 * m + k);
        }
    for (int l = 0; l < 2; ++l) {
        AFLfo& lfo = *e.getLfo(l);
        EXPECT_EQ(lfo.getParameterMode(0), kRateModes[l]);
        EXPECT_EQ(lfo.getTriggerMode(), kTriggers[l]);
        EXPECT_EQ(lfo.getQuantizeSteps(), kQuantize[l]);
        EXPECT_EQ(lfo.getWaveform(), kWaves[l]);
        if (version >= 4304) {
            for (int k = 0; k < 16; ++k) {
                EXPECT_FLOAT_EQ(lfo.getStep(k), stepValue(l, k));
            }
        }
    }
    if (version >= 4306) {
        EXPECT_FLOAT_EQ(e.getLfo(0)->getRateDivide(), kDivides[0]);
        EXPECT_FLOAT_EQ(e.getLfo(1)->getRateDivide(), kDivides[1]);
    } else {
        // Older records clear LFO 1's rate divide and leave LFO 2's.
        EXPECT_EQ(e.getLfo(0)->getRateDivide(), 0.0f);
        EXPECT_FLOAT_EQ(e.getLfo(1)->getRateDivide(), oldDivide2);
    }
    EXPECT_EQ(e.getQuantiseMode(), version >= 4301 ? 4 : 0);
    EXPECT_EQ(c.getPresetName(slot), version >= 4303 ? s.name : std::string(e.getEffect()->getName()));
    EXPECT_FLOAT_EQ(c.getParameter(AFUniClient::kFxGainStart + slot), version >= 4307 ? 0.8f : 0.5f);
}

std::vector<uint32_t> effectPreset(const SlotSpec& s, int32_t version = 4307) {
    Words w;
    w.header();
    w.prefix();
    appendSlot(w, s, version);
    return w.finish();
}

const SlotSpec kRinger{8, 0.2f, {{0, 1}}, "Ring"};

// A global image: eight records alternating Levelizer and Ringmodulator, then the global section.
std::vector<uint32_t> globalImage(int32_t stateVersion = 13, int32_t slotVersion = 4307) {
    Words w;
    w.header();
    w.prefix(stateVersion);
    for (int s = 0; s < 8; ++s) {
        SlotSpec setup = s % 2 == 0 ? SlotSpec{} : kRinger;
        setup.base = 0.05f * static_cast<float>(s);
        appendSlot(w, setup, slotVersion);
    }
    if (stateVersion >= 9) w.i(0), w.i(0), w.i(1), w.i(1), w.f(0.03f);
    if (stateVersion >= 13) w.i(0);
    if (stateVersion >= 5) w.i(-2);
    if (stateVersion >= 8) {
        w.i(0), w.f(0.2f), w.i(5), w.f(0.9f), w.i(-23);
        for (int r = 1; r < 8; ++r)
            w.i(0), w.f(0.0f), w.i(r), w.f(0.1f * static_cast<float>(r)), w.i(-23);
    } else if (stateVersion >= 6) {
        w.i(77), w.i(88), w.i(-23); // old table words, skipped up to the terminator
    }
    if (stateVersion >= 6) {
        w.i(-3);
        w.f(0.4f), w.f(0.75f);
        for (int s = 0; s < 8; ++s)
            w.f(0.3f + 0.05f * static_cast<float>(s));
        w.i(-4);
    }
    if (stateVersion >= 7) w.s("My Global");
    if (stateVersion >= 11) w.i(0);
    if (stateVersion >= 12) w.i(7);
    return w.finish();
}

SlotSpec globalSpec(int s) {
    SlotSpec setup = s % 2 == 0 ? SlotSpec{} : kRinger;
    setup.base = 0.05f * static_cast<float>(s);
    return setup;
}

} // namespace

// ---- Word-exact images ------------------------------------------------------------------------------------

TEST(AFStateIOTest, EffectPresetLoadsAndWritesBackTheHandWrittenWords) {
    TestHost host;
    AFUniClient& c = host.client();
    const auto image = effectPreset(SlotSpec{});
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, image));
    ASSERT_TRUE(c.readState(chunk, 2, false));
    expectSlot(c, 2, SlotSpec{});
    AFChunk written;
    c.writeState(written, 2);
    EXPECT_EQ(wordsOf(written), image);
}

TEST(AFStateIOTest, GlobalPresetLoadsAndWritesBackTheHandWrittenWords) {
    TestHost host;
    AFUniClient& c = host.client();
    auto& o = c.getOptions();
    o.offOnTopPP.store(true), o.thresholdPP.store(true);
    const auto image = globalImage();
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, image));
    ASSERT_TRUE(c.readState(chunk, -1, false));
    for (int s = 0; s < 8; ++s)
        expectSlot(c, s, globalSpec(s));
    EXPECT_FALSE(o.dynamicSigFlow.load());
    EXPECT_TRUE(o.offOnTop.load());
    EXPECT_FLOAT_EQ(o.threshold.load(), 0.03f);
    EXPECT_FLOAT_EQ(c.getParameter(AFUniClient::kDictator), 0.4f);
    EXPECT_FLOAT_EQ(c.getParameter(AFUniClient::kDryWet), 0.75f);
    for (int s = 0; s < 8; ++s)
        EXPECT_FLOAT_EQ(c.getParameter(s), 0.3f + 0.05f * static_cast<float>(s));
    EXPECT_TRUE(c.getDictator().node(0, 5).set);
    EXPECT_FLOAT_EQ(c.getDictator().node(0, 5).value, 0.9f);
    EXPECT_FLOAT_EQ(c.getDictator().node(3, 3).value, 0.3f);
    EXPECT_EQ(c.getGlobalPresetName(), "My Global");
    EXPECT_EQ(c.getSelectedContentIndex(), 7);
    AFChunk written;
    c.writeState(written, -1);
    EXPECT_EQ(wordsOf(written), image);
}

TEST(AFStateIOTest, DictatorPresetWordsAndRoundTrip) {
    TestHost host;
    AFUniClient& c = host.client();
    Words w;
    w.header();
    w.i(3), w.f(0.5f), w.i(9), w.f(0.25f), w.i(-23);
    for (int r = 1; r < 8; ++r)
        w.i(-23);
    w.i(-4);
    w.s("Dict");
    const auto image = w.finish();
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, image));
    c.getDictator().node(4, 2).set = true;
    ASSERT_TRUE(c.readDictator(chunk, false));
    EXPECT_FALSE(c.getDictator().node(4, 2).set); // every cell is cleared first
    EXPECT_TRUE(c.getDictator().node(0, 3).set);
    EXPECT_FLOAT_EQ(c.getDictator().node(0, 9).value, 0.25f);
    EXPECT_EQ(c.getDictatorPresetName(), "Dict");
    AFChunk written;
    c.writeDictator(written);
    EXPECT_EQ(wordsOf(written), image);

    const auto path = (fs::path(std::getenv("HOME")) / "state-test.dic").string();
    ASSERT_TRUE(c.saveDictatorPreset(path));
    TestHost other;
    ASSERT_TRUE(other.client().loadDictatorPreset(path, false));
    for (int r = 0; r < 8; ++r)
        for (int n = 0; n < 17; ++n) {
            EXPECT_EQ(other.client().getDictator().node(r, n).set, c.getDictator().node(r, n).set);
            EXPECT_EQ(other.client().getDictator().node(r, n).value, c.getDictator().node(r, n).value);
        }
    fs::remove(path);
}

// ---- Round trips ------------------------------------------------------------------------------------------

TEST(AFStateIOTest, HostStateRoundTripsEverything) {
    TestHost a;
    AFUniClient& c = a.client();
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unitDraw(0.0f, 1.0f);
    const int types[8] = {22, 8, 1, 5, 13, 19, 26, 27};
    for (int s = 0; s < 8; ++s) {
        c.setSlotEffect(s, types[s]);
        for (int r = 0; r < 29; ++r)
            if (r != KnobEngine::kBypass) c.setParameter(row(s, r), unitDraw(random));
        for (int k = 0; k < 15; ++k)
            c.setParameter(AFUniClient::kAmountStart + 15 * s + k, unitDraw(random) - 0.5f);
        c.setParameter(AFUniClient::kFxGainStart + s, unitDraw(random));
        c.getSlot(s).setParameterCurve(s % 5, 11 + s);
        c.getSlot(s).setModulatorCurve(s % 9, 2 + s);
        c.getSlot(s).setMixLaw(s % 5);
        c.getSlot(s).setQuantiseMode(s % 6);
        c.getSlot(s).getLfo(1)->setWaveform(s);
        c.getSlot(s).getLfo(0)->setStep(s, 0.125f * static_cast<float>(s));
        c.getSlot(s).getLfo(0)->setRateDivide(0.1f * static_cast<float>(s));
        c.setParameter(s, unitDraw(random));
        c.getDictator().record(s, 0.5f, unitDraw(random));
    }
    c.setSlotOption(0, 2, 3);
    c.setSlotOption(1, 0, 1);
    c.setParameter(AFUniClient::kDryWet, 0.6f);
    c.getOptions().resetAfterLoad.store(false);

    void* data = nullptr;
    const int32_t size = c.getChunk(&data, false);
    ASSERT_GT(size, 0);
    const std::vector<uint8_t> image(static_cast<uint8_t*>(data), static_cast<uint8_t*>(data) + size);

    TestHost b;
    AFUniClient& d = b.client();
    EXPECT_EQ(d.setChunk(const_cast<uint8_t*>(image.data()), size, false), 1);
    for (int i = 0; i < AFUniClient::kHostParameters; ++i) {
        if (i == AFUniClient::kRandomize) continue;
        EXPECT_EQ(d.getParameter(i), c.getParameter(i)) << "parameter " << i;
    }
    for (int s = 0; s < 8; ++s) {
        KnobEngine& x = c.getSlot(s);
        KnobEngine& y = d.getSlot(s);
        EXPECT_EQ(y.getEffectType(), x.getEffectType());
        for (int k = 0; k < 15; ++k)
            EXPECT_EQ(d.getModulationAmount(s, k), c.getModulationAmount(s, k));
        for (int k = 0; k < 5; ++k)
            EXPECT_EQ(y.getParameterCurve(k), x.getParameterCurve(k));
        for (int k = 0; k < 9; ++k)
            EXPECT_EQ(y.getModulatorCurve(k), x.getModulatorCurve(k));
        EXPECT_EQ(y.getMixLaw(), x.getMixLaw());
        EXPECT_EQ(y.getQuantiseMode(), x.getQuantiseMode());
        for (int o = 0; o < 4; ++o)
            EXPECT_EQ(y.getEffect()->getOption(o), x.getEffect()->getOption(o));
        for (int l = 0; l < 2; ++l) {
            EXPECT_EQ(y.getLfo(l)->getWaveform(), x.getLfo(l)->getWaveform());
            EXPECT_EQ(y.getLfo(l)->getRateDivide(), x.getLfo(l)->getRateDivide());
            for (int k = 0; k < 16; ++k)
                EXPECT_EQ(y.getLfo(l)->getStep(k), x.getLfo(l)->getStep(k));
        }
        for (int n = 0; n < 17; ++n) {
            EXPECT_EQ(d.getDictator().node(s, n).set, c.getDictator().node(s, n).set);
            EXPECT_EQ(d.getDictator().node(s, n).value, c.getDictator().node(s, n).value);
        }
        EXPECT_EQ(d.getPresetName(s), c.getPresetName(s));
    }
    // A get chunk right after the set chunk returns the image just loaded.
    void* again = nullptr;
    const int32_t againSize = d.getChunk(&again, false);
    ASSERT_EQ(againSize, size);
    EXPECT_EQ(std::memcmp(again, image.data(), static_cast<std::size_t>(size)), 0);
}

TEST(AFStateIOTest, EffectPresetFileGoesIntoOneSlotOnly) {
    TestHost a;
    a.client().setSlotEffect(0, 22);
    a.client().setParameter(row(0, 1), 0.33f);
    const auto path = (fs::path(std::getenv("HOME")) / "one.afo").string();
    ASSERT_TRUE(a.client().savePreset(path, 0));
    TestHost b;
    AFUniClient& c = b.client();
    std::vector<int> before;
    for (int s = 0; s < 8; ++s)
        before.push_back(c.getSlot(s).getEffectType());
    ASSERT_TRUE(c.loadPreset(path, 3, false));
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(c.getSlot(s).getEffectType(), s == 3 ? 22 : before[static_cast<std::size_t>(s)]);
    EXPECT_FLOAT_EQ(c.getParameter(row(3, 1)), 0.33f);
    fs::remove(path);
}

// ---- Older versions ---------------------------------------------------------------------------------------

TEST(AFStateIOTest, OlderSlotRecordsReadTheirOwnFields) {
    for (int32_t version = 4300; version <= 4307; ++version) {
        TestHost host;
        AFUniClient& c = host.client();
        c.getSlot(1).getLfo(1)->setRateDivide(0.25f);
        c.getSlot(1).getLfo(0)->setRateDivide(0.5f);
        AFChunk chunk;
        ASSERT_TRUE(loadWords(chunk, effectPreset(SlotSpec{}, version)));
        Messages messages(c);
        ASSERT_TRUE(c.readState(chunk, 1, false)) << version;
        EXPECT_TRUE(messages.texts.empty());
        EXPECT_FALSE(chunk.isOverrun());
        EXPECT_EQ(chunk.getPosition(), static_cast<int32_t>(chunk.getSizeInWords())) << version;
        expectSlot(c, 1, SlotSpec{}, version, 0.25f);
        if (version < 4304) { // the steps stay as they were: a new LFO's lone 0.5 at step 2
            EXPECT_EQ(c.getSlot(1).getLfo(0)->getStep(2), 0.5f);
        }
        if (version == 4302 || version == 4303) {
            EXPECT_EQ(c.getSlot(1).getLfo(0)->getGlideTable().getGlide(0, 1), 1);
        }
    }
}

TEST(AFStateIOTest, OlderStateVersionsReadTheirOwnGlobalFields) {
    for (int32_t version = 5; version <= 13; ++version) {
        SCOPED_TRACE("state version " + std::to_string(version));
        TestHost host;
        AFUniClient& c = host.client();
        auto& o = c.getOptions();
        o.offOnTopPP.store(true);
        c.setSelectedContentIndex(-5);
        AFChunk chunk;
        ASSERT_TRUE(loadWords(chunk, globalImage(version)));
        ASSERT_TRUE(c.readState(chunk, -1, false));
        EXPECT_EQ(chunk.getPosition(), static_cast<int32_t>(chunk.getSizeInWords()));
        for (int s = 0; s < 8; ++s)
            expectSlot(c, s, globalSpec(s));
        EXPECT_EQ(o.offOnTop.load(), version >= 9);
        EXPECT_EQ(o.dynamicSigFlow.load(), version < 9);
        EXPECT_EQ(c.getDictator().node(0, 5).set, version >= 8);
        EXPECT_FLOAT_EQ(c.getParameter(AFUniClient::kDictator), version >= 6 ? 0.4f : 0.0f);
        EXPECT_FLOAT_EQ(c.getParameter(AFUniClient::kDryWet), version >= 10 ? 0.75f : 1.0f);
        EXPECT_FLOAT_EQ(c.getParameter(7), version >= 6 ? 0.65f : 0.0f);
        EXPECT_EQ(c.getGlobalPresetName(), version >= 7 ? "My Global" : "Global Preset");
        EXPECT_EQ(c.getSelectedContentIndex(), version >= 12 ? 7 : -5);
    }
}

// ---- Messages ---------------------------------------------------------------------------------------------

TEST(AFStateIOTest, PrefixMessagesAndTheirSilence) {
    struct Case {
        int32_t version, id, magic;
        const char* text;
        bool silentToo;
    };
    const Case cases[] = {
        {13, 1, 18466, "This is not a Orvanto file", false},
        {13, 2, 18467, "wrong plugin version", false},
        {14, 1, 18467, "This Preset was written with a newer version, please update Orvanto.", true},
    };
    for (const Case& k : cases) {
        for (bool silent : {false, true}) {
            TestHost host;
            Words w;
            w.header();
            w.prefix(k.version, k.id, k.magic);
            appendSlot(w, SlotSpec{});
            AFChunk chunk;
            ASSERT_TRUE(loadWords(chunk, w.finish()));
            const int before = host.client().getSlot(0).getEffectType();
            Messages messages(host.client());
            EXPECT_FALSE(host.client().readState(chunk, 0, silent));
            EXPECT_EQ(host.client().getSlot(0).getEffectType(), before);
            if (!silent || k.silentToo) {
                ASSERT_EQ(messages.texts.size(), 1u);
                EXPECT_EQ(messages.texts[0], k.text);
            } else {
                EXPECT_TRUE(messages.texts.empty());
            }
        }
    }
}

TEST(AFStateIOTest, FileMessages) {
    TestHost host;
    AFUniClient& c = host.client();
    const fs::path home = std::getenv("HOME");
    {
        Messages messages(c);
        const auto bad = (home / "no-such-folder" / "x.afog").string();
        EXPECT_FALSE(c.savePreset(bad, -1));
        EXPECT_FALSE(c.saveDictatorPreset(bad));
        ASSERT_EQ(messages.texts.size(), 2u);
        EXPECT_EQ(messages.texts[0], "saving preset to " + bad + " failed");
        EXPECT_EQ(messages.texts[1], "saving preset to " + bad + " failed");
    }
    {
        const auto path = (home / "newer.afog").string();
        Words w;
        w.header(120.0f, 44100.0f, 5);
        w.prefix();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytesOf(w.finish()).data()),
                   static_cast<std::streamsize>(w.w.size() * 4));
        Messages messages(c);
        EXPECT_FALSE(c.loadPreset(path, -1, false));
        EXPECT_FALSE(c.loadPreset(path, -1, true));
        ASSERT_EQ(messages.texts.size(), 1u);
        EXPECT_EQ(messages.texts[0], "preset was written with a newer version of Orvanto");
        fs::remove(path);
    }
    {
        const auto path = (home / "garbage.afo").string();
        std::ofstream(path) << "this is not a chunk at all";
        Messages messages(c);
        EXPECT_FALSE(c.loadPreset(path, 0, false));
        ASSERT_EQ(messages.texts.size(), 1u);
        EXPECT_EQ(messages.texts[0], "\t This is no valid Orvanto format!");
        fs::remove(path);
    }
    {
        // A glide table that cannot be there is a nested failure: reported, and the reader carries on.
        Words w;
        w.header();
        w.prefix();
        SlotSpec setup;
        Words slot;
        appendSlot(slot, setup, 4302);
        // Find the first table's row count (magic, version, rows) and make it 0.
        for (std::size_t k = 0; k + 2 < slot.w.size(); ++k)
            if (slot.w[k] == 918221533u) {
                slot.w[k + 2] = 0;
                slot.w.erase(slot.w.begin() + static_cast<long>(k + 6),
                             slot.w.begin() + static_cast<long>(k + 38));
                break;
            }
        w.w.insert(w.w.end(), slot.w.begin(), slot.w.end());
        AFChunk chunk;
        ASSERT_TRUE(loadWords(chunk, w.finish()));
        Messages messages(c);
        EXPECT_TRUE(c.readState(chunk, 0, false));
        ASSERT_EQ(messages.texts.size(), 1u);
        EXPECT_EQ(messages.texts[0], "TODO CHUNK ERROR");
        EXPECT_EQ(c.getSlot(0).getEffectType(), 22);
        EXPECT_EQ(c.getPresetName(0), c.getSlot(0).getEffect()->getName()); // no name before 4303
    }
}

// ---- Deliberate quirks ------------------------------------------------------------------------------------

TEST(AFStateIOTest, TwoInstancesEachHearOnlyTheirOwnMessages) {
    TestHost first;
    TestHost second;
    Messages heardByFirst(first.client());
    Messages heardBySecond(second.client());
    const auto bad = (fs::path(std::getenv("HOME")) / "no-such-folder" / "x.afog").string();
    EXPECT_FALSE(first.client().savePreset(bad, -1));
    Words w;
    w.header();
    w.prefix(13, 1, 18466);
    appendSlot(w, SlotSpec{});
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, w.finish()));
    EXPECT_FALSE(second.client().readState(chunk, 0, false));
    EXPECT_EQ(heardByFirst.texts, std::vector<std::string>{"saving preset to " + bad + " failed"});
    EXPECT_EQ(heardBySecond.texts, std::vector<std::string>{"This is not a Orvanto file"});
}

TEST(AFStateIOTest, FiveOptionPairsTakeTheTerminatorForTheGuardWord) {
    TestHost host;
    AFUniClient& c = host.client();
    SlotSpec setup;
    setup.options = {{2, 1}, {3, 1}, {2, 2}, {3, 0}, {2, 3}};
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, effectPreset(setup)));
    c.readState(chunk, 0, true);
    EXPECT_EQ(c.getSlot(0).getEffect()->getOption(2), 3);
    // The guard word is read as LFO 1's rate, and everything after it sits one word late.
    EXPECT_EQ(c.getParameter(row(0, KnobEngine::kLfoRate)), std::bit_cast<float>(564667589u));
    EXPECT_FLOAT_EQ(c.getParameter(row(0, KnobEngine::kLfoPhase)), modulatorValue(setup, 0, 0));
}

TEST(AFStateIOTest, MidiOutTwinReadsOneFurtherWord) {
    TestHost a;
    for (int s = 0; s < 8; ++s)
        a.client().setParameter(s, 0.5f);
    AFChunk chunk;
    a.client().writeState(chunk, -1);
    TestHost b;
    AFUniClient& c = b.client();
    c.getOptions().midiOutPP.store(true);
    AFChunk copy;
    copy.copyFrom(chunk);
    c.readState(copy, -1, true);
    // The flag comes from the binding terminator, and the rest of the section is read one word off.
    EXPECT_TRUE(c.getOptions().midiOut.load());
    EXPECT_EQ(c.getParameter(0), 0.0f);

    TestHost d;
    d.client().getOptions().midiOutPP.store(false);
    AFChunk again;
    again.copyFrom(chunk);
    d.client().readState(again, -1, true);
    EXPECT_FALSE(d.client().getOptions().midiOut.load());
    EXPECT_EQ(d.client().getParameter(0), 0.5f);
}

TEST(AFStateIOTest, NineWordChunksLoadNothingAndSayNothing) {
    TestHost host;
    AFUniClient& c = host.client();
    const int before = c.getSlot(0).getEffectType();
    for (int words = 5; words <= 9; ++words) {
        Words w;
        w.header();
        w.prefix(13, 2, 1);
        w.w.resize(static_cast<std::size_t>(words));
        const auto image = w.finish();
        AFChunk chunk;
        ASSERT_TRUE(loadWords(chunk, image));
        Messages messages(c);
        EXPECT_FALSE(c.readState(chunk, -1, false));
        auto bytes = bytesOf(image);
        EXPECT_EQ(c.setChunk(bytes.data(), static_cast<int32_t>(bytes.size()), false), 1);
        EXPECT_TRUE(messages.texts.empty());
    }
    EXPECT_EQ(c.getSlot(0).getEffectType(), before);
}

TEST(AFStateIOTest, DefaultAfoIsLoadedAsAGlobalPresetAtConstruction) {
    const fs::path folder = [] {
        TestHost probe;
        return fs::path(probe.client().getContentPaths().presetPath(0));
    }();
    fs::create_directories(folder);
    for (const char* file : {"default.afo", "Default.afo"}) {
        const auto image = bytesOf(globalImage());
        std::ofstream(folder / file, std::ios::binary)
            .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
        {
            TestHost host;
            for (int s = 0; s < 8; ++s)
                expectSlot(host.client(), s, globalSpec(s));
        }
        {
            TestHost maker(44100.0f, 512, "Amber Forge"); // the maker's own host does not get it
            EXPECT_NE(maker.client().getPresetName(0), "Hand Made");
        }
        fs::remove(folder / file);
    }
}

TEST(AFStateIOTest, EffectIdsWithoutASlotClassNeverReachASlot) {
    for (int32_t type : {0, 6, 10, 15, 29, -1, 1000}) {
        TestHost host;
        AFUniClient& c = host.client();
        c.setSlotEffect(0, 5);
        c.setParameter(row(0, 0), 0.9f);
        Words w;
        w.header();
        w.prefix();
        SlotSpec bad;
        bad.type = type;
        bad.options = {};
        appendSlot(w, bad);
        for (int s = 1; s < 8; ++s)
            appendSlot(w, globalSpec(s));
        AFChunk chunk;
        ASSERT_TRUE(loadWords(chunk, w.finish()));
        EXPECT_TRUE(c.readState(chunk, -1, true));
        EXPECT_EQ(c.getSlot(0).getEffectType(), 5) << type;
        EXPECT_FLOAT_EQ(c.getParameter(row(0, 0)), 0.9f);
        EXPECT_EQ(c.getPresetName(0), "Default");
        expectSlot(c, 1, globalSpec(1)); // the following records still load
    }
}

// ---- Settings that travel with presets --------------------------------------------------------------------

TEST(AFStateIOTest, TwinsDecideWhatALoadTakes) {
    TestHost host;
    AFUniClient& c = host.client();
    auto& o = c.getOptions();
    o.dynamicSigFlowPP.store(false), o.offOnTopPP.store(false), o.thresholdPP.store(false);
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, globalImage()));
    c.readState(chunk, -1, true);
    EXPECT_TRUE(o.dynamicSigFlow.load());
    EXPECT_FALSE(o.offOnTop.load());
    EXPECT_FLOAT_EQ(o.threshold.load(), 0.01f);
}

TEST(AFStateIOTest, ResetAfterLoadBypassLockAndBatch) {
    auto image = globalImage();
    TestHost host;
    AFUniClient& c = host.client();
    auto& o = c.getOptions();
    o.resetAfterLoad.store(true);
    c.setParameter(row(2, KnobEngine::kBypass), 1.0f);
    o.bypassLock.store(true);
    c.setBatch(true);
    AFChunk chunk;
    ASSERT_TRUE(loadWords(chunk, image));
    c.readState(chunk, -1, true);
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(c.getParameter(s), 0.0f);
    EXPECT_EQ(c.getParameter(AFUniClient::kDictator), 0.0f);
    EXPECT_EQ(c.getParameter(row(2, KnobEngine::kBypass)), 1.0f);
    EXPECT_FALSE(c.getDictator().node(0, 5).set); // batch on: the rows stay
    EXPECT_TRUE(c.isBatch());

    o.bypassLock.store(false);
    c.setBatch(false);
    AFChunk again;
    ASSERT_TRUE(loadWords(again, image));
    c.readState(again, -1, true);
    EXPECT_EQ(c.getParameter(row(2, KnobEngine::kBypass)), 0.0f);
    EXPECT_TRUE(c.getDictator().node(0, 5).set);
}

// ---- Programs ---------------------------------------------------------------------------------------------

TEST(AFStateIOTest, ProgramsAreTheGlobalPresetsOfTheBank) {
    const fs::path folder = fs::path(std::getenv("HOME")) / "bank";
    fs::create_directories(folder);
    TestHost maker;
    AFUniClient& m = maker.client();
    m.setParameter(row(0, 0), 0.2f);
    ASSERT_TRUE(m.savePreset((folder / "B Second.afog").string(), -1));
    m.setParameter(row(0, 0), 0.7f);
    ASSERT_TRUE(m.savePreset((folder / "A First.afog").string(), -1));
    std::ofstream(folder / "ignored.afo") << "x";

    TestHost host;
    AFUniClient& c = host.client();
    c.rescanPresetBank(folder.string());
    EXPECT_EQ(c.getNumPrograms(), 2);
    char text[kHostTextSize];
    ASSERT_TRUE(c.getProgramNameIndexed(0, 1, text));
    EXPECT_STREQ(text, "B Second");
    EXPECT_FALSE(c.getProgramNameIndexed(0, 2, text));
    c.setProgram(1);
    EXPECT_EQ(c.getProgram(), 1);
    EXPECT_FLOAT_EQ(c.getParameter(row(0, 0)), 0.2f);
    c.setProgram(0);
    EXPECT_FLOAT_EQ(c.getParameter(row(0, 0)), 0.7f);
    c.getProgramName(text);
    EXPECT_STREQ(text, "Global Preset");
    fs::remove_all(folder);
}

// ---- Hostile images ---------------------------------------------------------------------------------------

TEST(AFStateIOTest, TruncatedImagesStopAndKeepTheSlotThatWasCut) {
    const auto image = globalImage();
    TestHost host;
    AFUniClient& c = host.client();
    const int before = c.getSlot(7).getEffectType();
    for (std::size_t words = 0; words <= image.size(); ++words) {
        // Both forms: the size word kept (the rest reads as zeros) and the size word cut with the image.
        for (bool cutSize : {false, true}) {
            std::vector<uint32_t> cut(image.begin(), image.begin() + static_cast<long>(words));
            if (cutSize && !cut.empty()) cut[0] = static_cast<uint32_t>(words);
            const auto bytes = bytesOf(cut);
            EXPECT_EQ(
                c.setChunk(const_cast<uint8_t*>(bytes.data()), static_cast<int32_t>(bytes.size()), false), 1);
            AFChunk chunk;
            if (chunk.loadBytes(bytes.data(), bytes.size(), true)) c.readState(chunk, -1, true);
        }
    }
    // The last record was cut in every pass but the full one; the slot it names loaded only then.
    EXPECT_NE(before, -1);
    expectSlot(c, 7, globalSpec(7));
}

TEST(AFStateIOTest, ACutRecordLeavesItsSlotAndKeepsTheSlotsBeforeIt) {
    Words start;
    start.header();
    start.prefix();
    for (int s = 0; s < 3; ++s)
        appendSlot(start, globalSpec(s));
    const std::size_t slot3 = start.w.size();
    for (std::size_t into : {std::size_t{1}, std::size_t{20}, std::size_t{90}}) {
        auto cut = globalImage();
        cut.resize(slot3 + into);
        cut[0] = static_cast<uint32_t>(cut.size());
        TestHost host;
        AFUniClient& c = host.client();
        c.setParameter(row(3, 0), 0.123f);
        const int before = c.getSlot(3).getEffectType();
        AFChunk chunk;
        ASSERT_TRUE(loadWords(chunk, cut));
        EXPECT_FALSE(c.readState(chunk, -1, true));
        for (int s = 0; s < 3; ++s)
            expectSlot(c, s, globalSpec(s));
        EXPECT_EQ(c.getSlot(3).getEffectType(), before);
        EXPECT_FLOAT_EQ(c.getParameter(row(3, 0)), 0.123f);
        EXPECT_EQ(c.getPresetName(3), "Default");
        EXPECT_EQ(c.getGlobalPresetName(), "Global Preset");
    }
}

TEST(AFStateIOTest, RandomWordsAndHugeSizesNeverCrash) {
    TestHost host;
    AFUniClient& c = host.client();
    std::mt19937 random(1977);
    const auto valid = globalImage();
    for (int round = 0; round < 300; ++round) {
        auto words = valid;
        // Random words everywhere, or a valid image with a few words spoiled.
        const bool all = round % 3 == 0;
        for (std::size_t k = 5; k < words.size(); ++k)
            if (all || random() % 40 == 0) words[k] = static_cast<uint32_t>(random());
        if (round % 5 == 0) words[9 + random() % 20] = 0x7FFFFFFFu;
        const auto bytes = bytesOf(words);
        c.setChunk(const_cast<uint8_t*>(bytes.data()), static_cast<int32_t>(bytes.size()), false);
        AFChunk dictator;
        if (dictator.loadBytes(bytes.data(), bytes.size(), true)) c.readDictator(dictator, true);
    }
    for (uint32_t size : {0x7FFFFFFFu, 0xFFFFFFFFu, 16u * 1024u * 1024u + 1u}) {
        auto words = valid;
        words[0] = size;
        const auto bytes = bytesOf(words);
        Messages messages(c);
        EXPECT_EQ(c.setChunk(const_cast<uint8_t*>(bytes.data()), static_cast<int32_t>(bytes.size()), false),
                  1);
        AFChunk chunk;
        chunk.setMessageSink(&c.getMessageSink());
        EXPECT_FALSE(chunk.loadBytes(bytes.data(), bytes.size(), false));
        ASSERT_EQ(messages.texts.size(), 1u);
        EXPECT_EQ(messages.texts[0], "\t This is no valid Orvanto format!");
    }
    for (int s = 0; s < 8; ++s) {
        const int type = c.getSlot(s).getEffectType();
        EXPECT_TRUE(type != 0 && type != 6 && type != 10 && type != 15);
        EXPECT_LE(c.getSlot(s).getQuantiseMode(), 5);
        EXPECT_LE(c.getSlot(s).getLfo(0)->getWaveform(), 13);
    }
}
