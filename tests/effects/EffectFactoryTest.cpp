#include "effects/framework/EffectFactory.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/AFSystemInfo.h"
#include "engine/KnobEngine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

struct FactoryFixture : ::testing::Test {
    AFBpmListenerList listeners;
    AFSystemInfo system{64.0f, &listeners};
};

} // namespace

TEST_F(FactoryFixture, IdsWithoutClassGiveNull) {
    for (int id : {0, 6, 10, 15, 29, 30, -1, -100})
        EXPECT_EQ(EffectFactory::create(&system, id), nullptr) << id;
}

TEST_F(FactoryFixture, EveryOtherIdBuildsItsTypeWithFourParameters) {
    for (int id = 0; id < EffectFactory::kTypeCount; ++id) {
        auto effect = EffectFactory::create(&system, id);
        EXPECT_EQ(effect != nullptr, EffectFactory::hasClass(id)) << id;
        if (!effect) continue;
        EXPECT_EQ(effect->getEffectType(), static_cast<uint32_t>(id));
        EXPECT_EQ(EffectFactory::effectNumber(id), 4);
        EXPECT_GE(effect->getParameterCount(), 4) << id;
        char text[kEffectTextSize];
        effect->getParameterName(effect->getParameterCount(), text);
        EXPECT_STREQ(text, "unused");
        EXPECT_EQ(effect->getParameterAux(effect->getParameterCount()), 0.0f);
    }
    EXPECT_EQ(EffectFactory::effectNumber(0), 3);
}

// A descriptor line in the wrong place or a slot default naming no row would go unnoticed until a preset
// sounds wrong.
TEST_F(FactoryFixture, EveryEntrySitsAtItsIdAndItsSlotDefaultsNameRows) {
    for (int id = 0; id < EffectFactory::kTypeCount; ++id) {
        const AFEffectDescriptor& entry = *EffectFactory::descriptor(id);
        EXPECT_EQ(entry.typeId, id);
        for (const AFSlotDefault& d : entry.slotDefaults)
            EXPECT_GE(KnobEngine::rowByName(d.row), 0) << id << " " << d.row;
        for (const AFAmountDefault& d : entry.amountDefaults)
            EXPECT_TRUE(d.source >= 0 && d.source < 3 && d.target >= 0 && d.target < 5) << id;
        if (auto effect = EffectFactory::create(&system, id)) {
            EXPECT_EQ(effect->getDescriptor(), &entry);
        }
    }
    EXPECT_EQ(EffectFactory::descriptor(EffectFactory::kTypeCount), nullptr);
}

TEST_F(FactoryFixture, MenuOrderReadsAsCatalogued) {
    const char* expected[] = {
        "Pattern Delay", "Reverse Delay", "Pitch Delay",   "Flanger",        "Phaser",        "Tonalizer",
        "Reverb",        "FreezeVerb",    "Ringmodulator", "Vocodizer",      "Levelizer",     "Guitar Amp",
        "Looper",        "Pitch Looper",  "Pan Looper",    "Reactor",        "Slicearranger", "Granulizer",
        "Stutter",       "Vinylizer",     "Filter",        "Filter Pattern", "Vowel Filter",  "Spectralizer"};
    for (int i = 0; i < EffectFactory::kMenuCount; ++i)
        EXPECT_STREQ(EffectFactory::menuEffectName(i), expected[i]);
    EXPECT_EQ(EffectFactory::menuTypeId(24), -1);
    for (int id : {0, 6, 10, 15, 28})
        EXPECT_EQ(EffectFactory::menuPosition(id), -1);
    EXPECT_STREQ(EffectFactory::effectName(EffectFactory::kFirstSlotEffect), "Slicearranger");
}

TEST_F(FactoryFixture, ParameterNamesAndDefaultsAsCatalogued) {
    struct Case {
        int id;
        const char* names[4];
        float defaults[4];
    };
    const Case cases[] = {
        {9, {"Size", "Decay", "Shape", "Pan"}, {0.5f, 1.0f, 0.0f, 0.3f}},
        {16, {"Size", "Slow Down", "Down Slope", "Up Slope"}, {0.44f, 0.0f, 0.23f, 0.0f}},
        {20, {"Delay Time", "Pattern", "Amount", "Decay"}, {0.3f, 0.27f, 1.0f, 0.8f}},
        {22, {"Volume", "Pan", "Crush", "Samplerate"}, {0.5f, 0.5f, 0.0f, 0.0f}},
        {27, {"Delay Left", "Delay Right", "Feedback", "Filter"}, {0.0f, 0.01f, 0.58f, 0.5f}},
    };
    for (const auto& c : cases) {
        auto effect = EffectFactory::create(&system, c.id);
        ASSERT_NE(effect, nullptr);
        for (int p = 0; p < 4; ++p) {
            char text[kEffectTextSize];
            effect->getParameterName(p, text);
            EXPECT_STREQ(text, c.names[p]) << c.id;
            EXPECT_FLOAT_EQ(effect->getParameterValue(p), c.defaults[p]) << c.id << " " << p;
        }
    }
}

TEST_F(FactoryFixture, OptionListsKeepTheirWordsAndGaps) {
    auto stutter = EffectFactory::create(&system, 9);
    AFWordList words;
    stutter->getOptionList(0, words);
    EXPECT_EQ(words, (AFWordList{"Sync", "SyncT", "Free", "Sync X", "Sync TP", "Sync PPQ"}));
    words.clear();
    stutter->getOptionList(2, words);
    EXPECT_TRUE(words.empty());

    auto amper = EffectFactory::create(&system, 22);
    words.clear();
    amper->getOptionList(0, words);
    EXPECT_TRUE(words.empty()); // option numbers follow the knob, so 0 and 1 are gaps
    amper->getOptionList(3, words);
    EXPECT_EQ(words, (AFWordList{"Normal", "Dynamic", "Absurd"}));

    auto pitchDelay = EffectFactory::create(&system, 11);
    words.clear();
    pitchDelay->getOptionList(3, words);
    ASSERT_EQ(words.size(), 27u);
    EXPECT_EQ(words[1], "+LP "); // trailing blank kept
    auto tonalizer = EffectFactory::create(&system, 7);
    words.clear();
    tonalizer->getOptionList(1, words);
    EXPECT_EQ(words[3], "4rd");
}

TEST_F(FactoryFixture, HostileOptionValuesStayInsideTheMenu) {
    auto stutter = EffectFactory::create(&system, 9);
    stutter->setOption(0, 99);
    EXPECT_EQ(stutter->getOption(0), 5);
    stutter->setOption(1, -7);
    EXPECT_EQ(stutter->getOption(1), 0);
    stutter->setOption(3, 2);
    EXPECT_EQ(stutter->getOption(3), 0);
}
