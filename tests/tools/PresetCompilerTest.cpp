#include "tools/PresetCompiler.h"

#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"
#include "modulation/AFGlideTable.h"
#include "modulation/AFLfo.h"
#include "modulation/AFStepPatternFile.h"
#include "state/AFChunk.h"
#include "tools/JsonValue.h"
#include "tools/ToolClient.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace fs = std::filesystem;

namespace {

fs::path tempFile(const char* name) {
    return fs::temp_directory_path() / (std::string("orvanto-compiler-") + name);
}

std::string faultOf(const std::string& source, const fs::path& output) {
    try {
        PresetCompiler::compile(JsonValue::parse(source), output.string());
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return {};
}

int row(int slot, int r) {
    return AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot + r;
}

} // namespace

TEST(PresetCompiler, EffectPresetLoadsIntoTheEngineAsWritten) {
    const fs::path file = tempFile("effect.afo");
    ASSERT_EQ(faultOf(R"({"format": "orvanto-effect-preset", "name": "Wide", "effect": "Pan Looper",
        "parameters": {"Size": 0.25, "Param2 Knob Amt": 0.75, "Lfo2 Amount": 0.5},
        "options": {"Size": "Sync TP", "Pitch": "Tone", "Amp": 5},
        "modulatorCurves": [1, 0, 0, 0, 0, 0, 0, 0, 2], "modulation": {"lfo2": [0, 0, -1, 0, 0]},
        "lfo1": {"waveform": 2, "quantize": 8, "trigger": 1,
                 "steps": [0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 0.5]}})",
                      file),
              "");
    const auto client = ToolClient::create();
    ASSERT_TRUE(client->loadPreset(file.string(), 3, true));
    KnobEngine& slot = client->getSlot(3);
    EXPECT_STREQ(EffectFactory::effectName(slot.getEffectType()), "Pan Looper");
    EXPECT_EQ(client->getPresetName(3), "Wide");
    EXPECT_EQ(client->getParameter(row(3, KnobEngine::kParameter1)), 0.25f);
    EXPECT_EQ(client->getParameter(row(3, KnobEngine::kParam1KnobAmt + 1)), 0.75f);
    EXPECT_EQ(client->getParameter(row(3, KnobEngine::kLfo2Amount)), 0.5f);
    EXPECT_EQ(slot.getEffect()->getOption(0), 1);
    EXPECT_EQ(slot.getEffect()->getOption(2), 1);
    EXPECT_EQ(slot.getEffect()->getOption(3), 5);
    EXPECT_EQ(slot.getModulatorCurve(0), 1);
    EXPECT_EQ(slot.getModulatorCurve(8), 2);
    EXPECT_EQ(client->getModulationAmount(3, 12), -1.0f);
    EXPECT_EQ(slot.getLfo(0)->getWaveform(), 2);
    EXPECT_EQ(slot.getLfo(0)->getQuantizeSteps(), 8);
    EXPECT_EQ(slot.getLfo(0)->getTriggerMode(), 1);
    EXPECT_EQ(slot.getLfo(0)->getStep(15), 0.5f);
    fs::remove(file);
}

TEST(PresetCompiler, GlobalAndDictatorPresetsCarryRowsNamesAndControls) {
    std::string slots;
    for (int s = 0; s < 8; ++s)
        slots +=
            std::string(s ? ", " : "") + R"({"effect": "Filter", "name": "F)" + std::to_string(s) + "\"}";
    const fs::path global = tempFile("global.afog");
    ASSERT_EQ(faultOf(R"({"format": "orvanto-global-preset", "name": "Set", "slots": [)" + slots +
                          R"(], "controls": [0, 0, 0, 0, 0, 0, 0, 0.5], "dryWet": 0.25,
                          "rows": [{"0": 0.5, "16": 1}, {}, {}, {}, {}, {}, {}, {"3": 0.75}]})",
                      global),
              "");
    const auto client = ToolClient::create();
    ASSERT_TRUE(client->loadPreset(global.string(), -1, true));
    EXPECT_EQ(client->getGlobalPresetName(), "Set");
    EXPECT_EQ(client->getPresetName(7), "F7");
    EXPECT_EQ(client->getParameter(7), 0.5f);
    EXPECT_EQ(client->getParameter(AFUniClient::kDryWet), 0.25f);
    EXPECT_TRUE(client->getDictator().node(0, 16).set);
    EXPECT_EQ(client->getDictator().node(0, 0).value, 0.5f);
    EXPECT_EQ(client->getDictator().node(7, 3).value, 0.75f);
    EXPECT_FALSE(client->getDictator().node(1, 0).set);

    const fs::path dictator = tempFile("rows.dic");
    ASSERT_EQ(faultOf(R"({"format": "orvanto-dictator-preset", "name": "Steps",
        "rows": [{}, {"8": 1}, {}, {}, {}, {}, {}, {}]})",
                      dictator),
              "");
    const auto other = ToolClient::create();
    ASSERT_TRUE(other->loadDictatorPreset(dictator.string(), true));
    EXPECT_EQ(other->getDictatorPresetName(), "Steps");
    EXPECT_EQ(other->getDictator().node(1, 8).value, 1.0f);
    fs::remove(global);
    fs::remove(dictator);
}

TEST(PresetCompiler, StepPatternIsTheDocumentedImage) {
    const fs::path file = tempFile("steps.AFS");
    ASSERT_EQ(faultOf(R"({"format": "orvanto-step-pattern", "version": 1, "name": "P",
        "values": [0, 0.25, 0.5, 0.75, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1],
        "glides": [true, false, false, false, false, false, false, false,
                   false, false, false, false, false, false, false, true]})",
                      file),
              "");
    AFChunk chunk;
    ASSERT_TRUE(chunk.readFile(file.string(), true));
    ASSERT_EQ(chunk.getSizeInWords(), 43u);
    const uint32_t head[] = {43, 0, 0, 0, 26101977, 918221533, 1, 1, 16, 0, 1};
    for (std::size_t i = 0; i < 11; ++i)
        if (i < 1 || i > 3) {
            EXPECT_EQ(chunk.word(i), head[i]) << i;
        }
    EXPECT_EQ(chunk.getTempo(), 120.0f);
    EXPECT_EQ(chunk.getSampleRate(), 44100.0f);
    AFGlideTable table;
    ASSERT_TRUE(AFStepPatternFile::load(file.string(), table));
    EXPECT_EQ(table.getValue(0, 3), 0.75f);
    EXPECT_EQ(table.getGlide(0, 0), 1);
    EXPECT_EQ(table.getGlide(0, 1), 0);
    fs::remove(file);
}

TEST(PresetCompiler, RefusesSourcesOutsideTheirRanges) {
    const fs::path file = tempFile("refused.afo");
    const std::string head = R"({"format": "orvanto-effect-preset", "effect": "Stutter", )";
    EXPECT_EQ(faultOf(R"({"format": "orvanto-effect-preset", "effect": "Classic Filter"})", file),
              "slot 1: no effect \"Classic Filter\"");
    EXPECT_EQ(faultOf(head + R"("parameters": {"Knob": 0.5}})", file), "slot 1: no parameter \"Knob\"");
    EXPECT_EQ(faultOf(head + R"("options": {"Size": "Sometimes"}})", file),
              "slot 1 Size: no option \"Sometimes\"");
    EXPECT_EQ(faultOf(head + R"("options": {"Size": 6}})", file),
              "slot 1 Size: 6.000000 outside 0.000000..5.000000");
    EXPECT_EQ(faultOf(head + R"("options": {"Pan": 0}})", file), "slot 1 Pan: the parameter has no options");
    EXPECT_EQ(faultOf(head + R"("mixLaw": 1.5})", file), "slot 1 mixLaw: whole number expected");
    EXPECT_EQ(faultOf(head + R"("curves": [0, 0]})", file), "slot 1 curves: 5 values expected");
    EXPECT_EQ(faultOf(head + R"("colour": 1})", file), "slot 1: unknown key \"colour\"");
    EXPECT_EQ(faultOf(head + R"("modulation": {"lfo": [2, 0, 0, 0, 0]}})", file),
              "slot 1 modulation depth: 2.000000 outside -1.000000..1.000000");
    EXPECT_EQ(
        faultOf(R"({"format": "orvanto-dictator-preset", "name": "x", "rows": [{"17": 1}, {}, {}, {}, {}, {},
        {}, {}]})",
                file),
        "rows: node \"17\" outside 0..16");
    EXPECT_EQ(faultOf(R"({"format": "something"})", file), "unknown format \"something\"");
    EXPECT_FALSE(fs::exists(file));
}
