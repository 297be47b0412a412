#include "engine/AFCommandHistory.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFCommandAttribute.h"
#include "engine/AFCommandGUI.h"
#include "engine/AFCommandParameter.h"
#include "engine/AFCommandPrepare.h"
#include "engine/AFCommandRememberAssignmentChunk.h"
#include "engine/AFCommandRememberChunk.h"
#include "engine/AFCommandRememberDictatorChunk.h"
#include "engine/AFCommandStepSeq.h"
#include "engine/AFUniClient.h"
#include "modulation/AFLfo.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <vector>

namespace {

// A host that records what the plug-in tells it; no time record, so blocks run with a stopped transport.
struct RecordingHost {
    std::vector<std::pair<int32_t, int32_t>> calls; // opcode, index
    int automations = 0;

    static intptr_t callback(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t, void*, float) {
        auto* host = plugin != nullptr ? static_cast<RecordingHost*>(plugin->getHostUser()) : nullptr;
        if (host == nullptr) return 0;
        if (opcode == audioMasterAutomate) ++host->automations;
        if (opcode == audioMasterBeginEdit || opcode == audioMasterEndEdit)
            host->calls.emplace_back(opcode, index);
        return 1;
    }
    int count(int32_t opcode) const {
        int n = 0;
        for (const auto& c : calls)
            n += c.first == opcode ? 1 : 0;
        return n;
    }
};

class CommandHistory : public ::testing::Test {
protected:
    CommandHistory() : client(std::make_unique<AFUniClient>(&RecordingHost::callback, &host)) {}

    // One knob drag as the editor sends it.
    void drag(int32_t index, std::initializer_list<float> values) {
        client->beginEdit(index);
        for (float v : values)
            client->setParameterAutomated(index, v);
        client->endEdit(index);
    }
    const AFCommandParameter* parameterCommand(int i) const {
        return dynamic_cast<const AFCommandParameter*>(client->getHistory().at(i));
    }
    static int slotIndex(int slot, int row) { return AFUniClient::kSlotBlockStart + 29 * slot + row; }

    RecordingHost host;
    std::unique_ptr<AFUniClient> client;
};

std::vector<int> typesWithClass() {
    std::vector<int> types;
    for (int id = 0; id < EffectFactory::kTypeCount; ++id)
        if (EffectFactory::hasClass(id)) types.push_back(id);
    return types;
}

// The slot rows every faithful slot image carries: all but Bypass, and the FX Gain.
std::vector<float> slotImage(AFUniClient& client, int slot) {
    std::vector<float> values;
    for (int k = 0; k < 29; ++k)
        if (k != KnobEngine::kBypass) values.push_back(client.getParameter(12 + 29 * slot + k));
    values.push_back(client.getParameter(AFUniClient::kFxGainStart + slot));
    return values;
}

} // namespace

// ---- The history itself ---------------------------------------------------------------------------------

TEST_F(CommandHistory, UndoAndRedoOnAnEmptyHistoryDoNothing) {
    EXPECT_FALSE(client->canUndo());
    EXPECT_FALSE(client->canRedo());
    EXPECT_FALSE(client->undo());
    EXPECT_FALSE(client->redo());
    EXPECT_EQ(client->getHistory().size(), 0);
    EXPECT_STREQ(client->getHistory().undoName(), "");
    EXPECT_STREQ(client->getHistory().redoName(), "");
}

TEST_F(CommandHistory, UndoRedoWalkTheSequenceAndANewCommandCutsTheTail) {
    const int p = slotIndex(1, 0);
    drag(p, {0.1f, 0.3f});
    drag(p, {0.3f, 0.6f});
    drag(p, {0.6f, 0.9f});
    ASSERT_EQ(client->getHistory().size(), 3);
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.9f);

    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.6f);
    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.3f);
    EXPECT_EQ(client->getHistory().getPosition(), 1);
    client->redo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.6f);
    client->undo();
    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.1f);
    EXPECT_FALSE(client->canUndo());
    EXPECT_FALSE(client->undo()); // past the start: nothing moves
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.1f);

    client->redo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.3f);
    // A new gesture now drops the two commands that could have been redone.
    drag(p, {0.3f, 0.45f});
    EXPECT_EQ(client->getHistory().size(), 2);
    EXPECT_EQ(client->getHistory().getPosition(), 2);
    EXPECT_FALSE(client->canRedo());
    EXPECT_FALSE(client->redo());
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.45f);
    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.3f);
    EXPECT_STREQ(client->getHistory().redoName(), "Parameter Change");
}

TEST_F(CommandHistory, HasNoDepthLimit) {
    const int p = slotIndex(0, 1);
    float value = 0.0f;
    for (int i = 1; i <= 2000; ++i) {
        const float next = static_cast<float>(i % 1000) / 1000.0f;
        drag(p, {value, next});
        value = next;
    }
    EXPECT_EQ(client->getHistory().size(), 2000);
    while (client->canUndo())
        client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.0f);
    while (client->canRedo())
        client->redo();
    EXPECT_FLOAT_EQ(client->getParameter(p), value);
}

TEST(CommandHistoryPrepare, SeesEveryAddedCommandBeforeItIsAppended) {
    struct CountingPrepare : AFCommandPrepare {
        std::vector<const AFCommandBase*> seen;
        void prepare(AFCommandBase& command) override { seen.push_back(&command); }
    } prepare;
    AFCommandHistory history(&prepare);
    auto first = std::make_unique<AFCommandParameter>(12, 0.0f, 1.0f);
    const AFCommandBase* firstAddress = first.get();
    history.add(std::move(first));
    history.add(nullptr);
    history.add(std::make_unique<AFCommandBase>());
    ASSERT_EQ(prepare.seen.size(), 2u);
    EXPECT_EQ(prepare.seen[0], firstAddress);
    EXPECT_EQ(history.size(), 2);
    EXPECT_STREQ(history.undoName(), "BaseCmd");
}

// ---- Parameter gestures ---------------------------------------------------------------------------------

TEST_F(CommandHistory, ADragBecomesOneCommandWithItsFirstAndLastValue) {
    const int p = slotIndex(2, 3);
    drag(p, {0.2f, 0.35f, 0.5f, 0.8f});
    ASSERT_EQ(client->getHistory().size(), 1);
    const auto* command = parameterCommand(0);
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(command->getIndex(), p);
    EXPECT_FLOAT_EQ(command->getOldValue(), 0.2f);
    EXPECT_FLOAT_EQ(command->getNewValue(), 0.8f);
    EXPECT_STREQ(command->name(), "Parameter Change");
    EXPECT_FALSE(command->refreshNeeded());
    // The host saw the gesture and every value as automation.
    ASSERT_EQ(host.calls.size(), 2u);
    EXPECT_EQ(host.calls[0], std::make_pair(int32_t{audioMasterBeginEdit}, int32_t{p}));
    EXPECT_EQ(host.calls[1], std::make_pair(int32_t{audioMasterEndEdit}, int32_t{p}));
    EXPECT_EQ(host.automations, 4);
    EXPECT_EQ(client->getGestureIndex(), -1);

    // Undo goes through setParameter and is not reported as automation.
    EXPECT_FALSE(client->undo());
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.2f);
    EXPECT_EQ(host.automations, 4);
}

TEST_F(CommandHistory, GesturesThatLeaveNoCommand) {
    const int p = slotIndex(0, 2);
    drag(p, {0.4f, 0.4f}); // a click that does not move
    drag(p, {});           // no value at all
    drag(p, {0.4f, 1.2f}); // out of range
    drag(p, {-0.1f, 0.5f});

    // Values for another index during the gesture do not count.
    client->beginEdit(p);
    client->setParameterAutomated(p + 1, 0.1f);
    client->setParameterAutomated(p + 1, 0.9f);
    client->endEdit(p);

    // An end for another index clears the gesture without a command.
    client->beginEdit(p);
    client->setParameterAutomated(p, 0.1f);
    client->setParameterAutomated(p, 0.7f);
    client->endEdit(p + 1);
    EXPECT_EQ(client->getGestureIndex(), -1);
    client->endEdit(p);

    // Values set without a gesture are never noted.
    client->setParameterAutomated(p, 0.3f);
    client->beginEdit(p);
    client->endEdit(p);
    EXPECT_EQ(client->getHistory().size(), 0);
}

TEST_F(CommandHistory, AGestureOnTheSameIndexAgainStartsAfresh) {
    const int p = AFUniClient::kDryWet;
    drag(p, {1.0f, 0.5f});
    drag(p, {0.5f, 0.25f});
    ASSERT_EQ(client->getHistory().size(), 2);
    EXPECT_FLOAT_EQ(parameterCommand(1)->getOldValue(), 0.5f);
    EXPECT_FLOAT_EQ(parameterCommand(1)->getNewValue(), 0.25f);
    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.5f);
    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 1.0f);
    client->redo();
    client->redo();
    EXPECT_FLOAT_EQ(client->getParameter(p), 0.25f);
}

TEST_F(CommandHistory, AGestureThatNeverEndedLendsNothingToTheNext) {
    const int a = slotIndex(1, 1), b = slotIndex(1, 2);
    client->beginEdit(a);
    client->setParameterAutomated(a, 0.1f);
    client->beginEdit(b);
    client->setParameterAutomated(b, 0.5f);
    client->setParameterAutomated(b, 0.7f);
    client->endEdit(b);
    ASSERT_EQ(client->getHistory().size(), 1);
    EXPECT_EQ(parameterCommand(0)->getIndex(), b);
    EXPECT_FLOAT_EQ(parameterCommand(0)->getOldValue(), 0.5f);
}

TEST_F(CommandHistory, InternalIndicesAreUndoneButTheHostNeverHearsOfThem) {
    const int amount = AFUniClient::kAmountStart + 15 * 3 + 7; // slot 3, amount 7
    drag(amount, {0.0f, 0.3f, 0.65f});
    EXPECT_TRUE(host.calls.empty());
    EXPECT_EQ(host.automations, 0);
    ASSERT_EQ(client->getHistory().size(), 1);
    EXPECT_FLOAT_EQ(client->getModulationAmount(3, 7), 0.65f);
    client->undo();
    EXPECT_FLOAT_EQ(client->getModulationAmount(3, 7), 0.0f);
    client->redo();
    EXPECT_FLOAT_EQ(client->getModulationAmount(3, 7), 0.65f);
}

TEST_F(CommandHistory, UndoOfTheDictatorPlaysTheRowsAgain) {
    // Row 4 ramps from 0 at node 0 to 1 at node 8.
    auto& dictator = client->getDictator();
    dictator.node(4, 8).value = 1.0f;
    dictator.node(4, 8).set = true;
    dictator.node(4, 0).set = true;
    dictator.rebuild(4);
    drag(AFUniClient::kDictator, {0.0f, 0.25f});
    const float atQuarter = client->getParameter(4);
    EXPECT_GT(atQuarter, 0.4f);
    client->undo();
    EXPECT_FLOAT_EQ(client->getParameter(AFUniClient::kDictator), 0.0f);
    EXPECT_FLOAT_EQ(client->getParameter(4), 0.0f);
    client->redo();
    EXPECT_FLOAT_EQ(client->getParameter(4), atQuarter);
}

// ---- Attributes, steps and editor state ------------------------------------------------------------------

TEST_F(CommandHistory, AttributesUndoAndRedoThroughTheirTargets) {
    auto& history = client->getHistory();
    AFLfo& lfo2 = *client->getSlot(5).getLfo(1);
    const int quantise = client->getSlot(5).getQuantiseMode();
    const int mixLaw = client->getSlot(5).getMixLaw();
    const auto change = [&](int slot, int id, float value, int sub = 0) {
        history.add(std::make_unique<AFCommandAttribute>(
            slot, id, AFCommandAttribute::current(*client, slot, id, sub), value, sub));
        AFCommandAttribute::apply(*client, slot, id, sub, value);
    };
    change(5, AFCommandAttribute::kLfo2Waveform, 7.0f);
    change(5, AFCommandAttribute::kLfo2QuantizeSteps, 3.0f);
    change(5, AFCommandAttribute::kLfo2TriggerMode, 2.0f);
    change(5, AFCommandAttribute::kLfo2RateDivide, 1.0f);
    change(5, AFCommandAttribute::kMixLaw, 3.0f);
    change(5, AFCommandAttribute::kQuantiseMode, 4.0f);
    change(5, AFCommandAttribute::kParameterCurve, 9.0f, 2);
    change(5, AFCommandAttribute::kLfo2ModulatorCurve, 5.0f, 1);
    change(5, AFCommandAttribute::kDictatorLock, 1.0f);
    EXPECT_EQ(lfo2.getWaveform(), 7);
    EXPECT_EQ(lfo2.getQuantizeSteps(), 3);
    EXPECT_EQ(lfo2.getTriggerMode(), 2);
    EXPECT_FLOAT_EQ(lfo2.getRateDivide(), 0.33670032f);
    EXPECT_EQ(client->getSlot(5).getMixLaw(), 3);
    EXPECT_EQ(client->getSlot(5).getQuantiseMode(), 4);
    EXPECT_EQ(client->getSlot(5).getParameterCurve(2), 9);
    EXPECT_EQ(client->getSlot(5).getModulatorCurve(7), 5);
    EXPECT_TRUE(client->isBatch());
    EXPECT_STREQ(history.undoName(), "Attribute Change");

    while (client->canUndo())
        EXPECT_TRUE(client->undo());
    EXPECT_EQ(lfo2.getWaveform(), 0);
    EXPECT_EQ(lfo2.getQuantizeSteps(), 0);
    EXPECT_EQ(lfo2.getTriggerMode(), 0);
    EXPECT_FLOAT_EQ(lfo2.getRateDivide(), 0.0f);
    EXPECT_EQ(client->getSlot(5).getMixLaw(), mixLaw);
    EXPECT_EQ(client->getSlot(5).getQuantiseMode(), quantise);
    EXPECT_EQ(client->getSlot(5).getParameterCurve(2), 0);
    EXPECT_EQ(client->getSlot(5).getModulatorCurve(7), 0);
    EXPECT_FALSE(client->isBatch());
    // LFO 1 of the same slot was never touched.
    EXPECT_EQ(client->getSlot(5).getLfo(0)->getWaveform(), 0);

    while (client->canRedo())
        client->redo();
    EXPECT_EQ(lfo2.getWaveform(), 7);
    EXPECT_EQ(client->getSlot(5).getModulatorCurve(7), 5);
    EXPECT_TRUE(client->isBatch());
}

TEST_F(CommandHistory, EffectOptionAttributeRestoresTheOption) {
    // Any effect whose first option has a second word will do.
    int type = -1;
    for (int id : typesWithClass()) {
        client->setSlotEffect(6, id);
        AFWordList words;
        client->slotEffect(6)->getOptionList(0, words);
        if (words.size() >= 2 && client->slotEffect(6)->getOption(0) == 0) {
            type = id;
            break;
        }
    }
    ASSERT_GE(type, 0);
    auto& history = client->getHistory();
    history.add(std::make_unique<AFCommandAttribute>(6, AFCommandAttribute::kEffectOption, 0.0f, 1.0f, 0));
    AFCommandAttribute::apply(*client, 6, AFCommandAttribute::kEffectOption, 0, 1.0f);
    EXPECT_EQ(client->slotEffect(6)->getOption(0), 1);
    client->undo();
    EXPECT_EQ(client->slotEffect(6)->getOption(0), 0);
    client->redo();
    EXPECT_EQ(client->slotEffect(6)->getOption(0), 1);
}

TEST_F(CommandHistory, HostileAttributesChangeNothing) {
    const int curve = client->getSlot(0).getParameterCurve(0);
    for (int slot : {-1, 8, 1000})
        AFCommandAttribute::apply(*client, slot, AFCommandAttribute::kMixLaw, 0, 2.0f);
    AFCommandAttribute::apply(*client, 0, AFCommandAttribute::kParameterCurve, 5, 3.0f);
    AFCommandAttribute::apply(*client, 0, AFCommandAttribute::kParameterCurve, -1, 3.0f);
    AFCommandAttribute::apply(*client, 0, AFCommandAttribute::kLfo2ModulatorCurve, 3, 3.0f); // row 9
    AFCommandAttribute::apply(*client, 0, AFCommandAttribute::kEffectOption, 4, 1.0f);
    AFCommandAttribute::apply(*client, 0, 12345, 0, 1.0f);
    AFCommandAttribute::apply(*client, 0, AFCommandAttribute::kLfo1Wave, 0, std::nanf(""));
    AFCommandAttribute::apply(*client, 0, AFCommandAttribute::kQuantiseMode, 0, 1.0e30f);
    EXPECT_EQ(client->getSlot(0).getParameterCurve(0), curve);
    for (int i = 0; i < KnobEngine::kModulatorCount; ++i)
        EXPECT_EQ(client->getSlot(0).getModulatorCurve(i), 0);
    EXPECT_EQ(client->getSlot(0).getLfo(0)->getWaveform(), 0);
    EXPECT_EQ(client->getSlot(0).getQuantiseMode(), KnobEngine::kQuantiseModes - 1);
    EXPECT_FLOAT_EQ(AFCommandAttribute::current(*client, 9, AFCommandAttribute::kMixLaw), 0.0f);
}

TEST_F(CommandHistory, StepPatternEditsUndoAndRedo) {
    AFLfo& lfo = *client->getSlot(2).getLfo(0);
    client->getHistory().add(std::make_unique<AFCommandStepSeq>(*client, 2, 0));
    for (int i = 0; i < AFLfo::kStepCount; ++i)
        lfo.setStep(i, static_cast<float>(i) / 16.0f);
    client->undo();
    for (int i = 0; i < AFLfo::kStepCount; ++i)
        EXPECT_FLOAT_EQ(lfo.getStep(i), i == 2 ? 0.5f : 0.0f) << i;
    client->redo();
    for (int i = 0; i < AFLfo::kStepCount; ++i)
        EXPECT_FLOAT_EQ(lfo.getStep(i), static_cast<float>(i) / 16.0f) << i;
    // LFO 2 of the slot keeps its own pattern.
    EXPECT_FLOAT_EQ(client->getSlot(2).getLfo(1)->getStep(5), 0.0f);
}

TEST_F(CommandHistory, EditorStateUndoAndRedo) {
    client->getHistory().add(std::make_unique<AFCommandGUI>(1, 0, 4));
    client->setEditorState(1, 4);
    EXPECT_TRUE(client->undo());
    EXPECT_EQ(client->getEditorState(1), 0);
    client->redo();
    EXPECT_EQ(client->getEditorState(1), 4);
    client->setEditorState(AFUniClient::kEditorStateCount, 9);
    EXPECT_EQ(client->getEditorState(AFUniClient::kEditorStateCount), 0);
}

// ---- Snapshots ------------------------------------------------------------------------------------------

TEST_F(CommandHistory, RedoAfterUndoOfAnEffectChangeRestoresTheEffectAndItsParameters) {
    const auto types = typesWithClass();
    ASSERT_GE(types.size(), 2u);
    const int first = types[1], second = types[2];
    const int slot = 3;
    client->setSlotEffect(slot, first);
    for (int k : {0, 1, 2, 3, 4, 11, 13, 16})
        client->setParameter(slotIndex(slot, k), 0.1f + 0.05f * static_cast<float>(k));
    client->setParameter(AFUniClient::kFxGainStart + slot, 0.7f);
    const auto imageBefore = slotImage(*client, slot);
    const auto otherSlot = slotImage(*client, 4);

    client->getHistory().add(std::make_unique<AFCommandRememberChunk>(*client, slot));
    client->setSlotEffect(slot, second);
    client->setParameter(slotIndex(slot, 2), 0.77f);
    const auto imageAfter = slotImage(*client, slot);
    ASSERT_NE(imageAfter, imageBefore);
    EXPECT_STREQ(client->getHistory().undoName(), "Change Effect");

    EXPECT_TRUE(client->undo());
    EXPECT_EQ(client->getSlot(slot).getEffectType(), first);
    EXPECT_EQ(slotImage(*client, slot), imageBefore);
    EXPECT_TRUE(client->redo());
    EXPECT_EQ(client->getSlot(slot).getEffectType(), second);
    EXPECT_EQ(slotImage(*client, slot), imageAfter);
    EXPECT_FLOAT_EQ(client->getParameter(slotIndex(slot, 2)), 0.77f);
    // A second round trip lands in the same places.
    client->undo();
    EXPECT_EQ(client->getSlot(slot).getEffectType(), first);
    EXPECT_EQ(slotImage(*client, slot), imageBefore);
    client->redo();
    EXPECT_EQ(slotImage(*client, slot), imageAfter);
    EXPECT_EQ(slotImage(*client, 4), otherSlot);
}

TEST_F(CommandHistory, TheEffectMenuSwapIsOneStepAndOnlyWhenTheEffectChanges) {
    const auto types = typesWithClass();
    const int start = client->getSlot(7).getEffectType();
    client->changeSlotEffect(7, start);
    client->changeSlotEffect(7, 0); // no class
    client->changeSlotEffect(8, types[0]);
    client->changeSlotEffect(-1, types[0]);
    EXPECT_EQ(client->getHistory().size(), 0);
    const int other = types[0] != start ? types[0] : types[1];
    client->changeSlotEffect(7, other);
    EXPECT_EQ(client->getSlot(7).getEffectType(), other);
    ASSERT_EQ(client->getHistory().size(), 1);
    client->undo();
    EXPECT_EQ(client->getSlot(7).getEffectType(), start);
    client->redo();
    EXPECT_EQ(client->getSlot(7).getEffectType(), other);
}

TEST_F(CommandHistory, WholeStateSnapshotsAndParameterGesturesInterleave) {
    const auto types = typesWithClass();
    std::array<int, 8> before{};
    for (int s = 0; s < 8; ++s) {
        client->setSlotEffect(s, types[static_cast<std::size_t>(s) % types.size()]);
        before[static_cast<std::size_t>(s)] = client->getSlot(s).getEffectType();
    }
    drag(slotIndex(0, 0), {0.0f, 0.4f});
    client->getHistory().add(std::make_unique<AFCommandRememberChunk>(*client, -1));
    for (int s = 0; s < 8; ++s)
        client->setSlotEffect(s, types[static_cast<std::size_t>(s + 3) % types.size()]);
    drag(slotIndex(0, 0), {0.6f, 0.9f});
    ASSERT_EQ(client->getHistory().size(), 3);

    client->undo(); // the last drag
    client->undo(); // the snapshot
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(client->getSlot(s).getEffectType(), before[static_cast<std::size_t>(s)]) << s;
    EXPECT_FLOAT_EQ(client->getParameter(slotIndex(0, 0)), 0.4f);
    client->undo(); // the first drag
    EXPECT_FLOAT_EQ(client->getParameter(slotIndex(0, 0)), 0.0f);
    client->redo();
    client->redo();
    for (int s = 0; s < 8; ++s)
        EXPECT_EQ(client->getSlot(s).getEffectType(), types[static_cast<std::size_t>(s + 3) % types.size()])
            << s;
    client->redo();
    EXPECT_FLOAT_EQ(client->getParameter(slotIndex(0, 0)), 0.9f);
}

TEST_F(CommandHistory, DictatorSnapshotsRestoreTheNodes) {
    auto& dictator = client->getDictator();
    const auto nodes = [&] {
        std::vector<std::pair<float, bool>> all;
        for (int r = 0; r < 8; ++r)
            for (int n = 0; n < AFDictator::kNodes; ++n)
                all.emplace_back(dictator.node(r, n).value, dictator.node(r, n).set);
        return all;
    };
    dictator.node(2, 3).value = 0.75f, dictator.node(2, 3).set = true;
    dictator.node(2, 10).value = 0.25f, dictator.node(2, 10).set = true;
    dictator.rebuild(2);
    const auto placed = nodes();

    client->getHistory().add(std::make_unique<AFCommandRememberDictatorChunk>(*client));
    dictator.clear(2);
    dictator.node(6, 16).value = 0.5f, dictator.node(6, 16).set = true;
    dictator.rebuild(6);
    const auto edited = nodes();
    EXPECT_STREQ(client->getHistory().undoName(), "Dictator");

    EXPECT_TRUE(client->undo());
    EXPECT_EQ(nodes(), placed);
    EXPECT_TRUE(dictator.node(2, 3).set);
    client->redo();
    EXPECT_EQ(nodes(), edited);
}

TEST_F(CommandHistory, AssignmentSnapshotsGoThroughTheBindingsOwnWriterAndReader) {
    std::vector<int32_t> bindings = {3, 7};
    const auto writer = [&](AFChunk& chunk) {
        chunk.rewindToWrite();
        for (int pass = 0; pass < 2; ++pass) {
            chunk.writeHeader();
            chunk.writeInt(static_cast<int32_t>(bindings.size()));
            for (int32_t b : bindings)
                chunk.writeInt(b);
            if (pass == 0) chunk.allocateCounted();
        }
    };
    const auto reader = [&](AFChunk& chunk) {
        bindings.assign(static_cast<std::size_t>(chunk.readInt()), 0);
        for (auto& b : bindings)
            b = chunk.readInt();
        return true;
    };
    client->getHistory().add(std::make_unique<AFCommandRememberAssignmentChunk>(*client, writer, reader));
    bindings.push_back(261);
    EXPECT_STREQ(client->getHistory().undoName(), "Assignment");
    EXPECT_TRUE(client->undo());
    EXPECT_EQ(bindings, (std::vector<int32_t>{3, 7}));
    client->redo();
    EXPECT_EQ(bindings, (std::vector<int32_t>{3, 7, 261}));

    // Without a writer there is nothing to restore, and nothing breaks.
    client->getHistory().add(std::make_unique<AFCommandRememberAssignmentChunk>(*client, nullptr, nullptr));
    client->undo();
    client->redo();
    EXPECT_EQ(bindings, (std::vector<int32_t>{3, 7, 261}));
}

TEST_F(CommandHistory, CommandNamesAndRefreshAnswers) {
    EXPECT_STREQ(AFCommandBase().name(), "BaseCmd");
    EXPECT_FALSE(AFCommandBase().refreshNeeded());
    EXPECT_STREQ(AFCommandAttribute(0, AFCommandAttribute::kMixLaw, 0, 1).name(), "Attribute Change");
    EXPECT_STREQ(AFCommandStepSeq(*client, 0, 0).name(), "Step Sequencer");
    EXPECT_STREQ(AFCommandGUI(0, 0, 1).name(), "GUI Change");
    EXPECT_TRUE(AFCommandRememberChunk(*client, 0).refreshNeeded());
    EXPECT_TRUE(AFCommandRememberDictatorChunk(*client).refreshNeeded());
}
