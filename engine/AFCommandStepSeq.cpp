#include "engine/AFCommandStepSeq.h"

#include "engine/AFUniClient.h"
#include "engine/KnobEngine.h"

AFCommandStepSeq::AFCommandStepSeq(const AFUniClient& client, int slot, int lfo) : slot(slot), lfo(lfo) {
    if (const AFLfo* source = target(client))
        for (int i = 0; i < AFLfo::kStepCount; ++i)
            before[static_cast<std::size_t>(i)] = source->getStep(i);
}

AFLfo* AFCommandStepSeq::target(const AFUniClient& client) const {
    if (slot < 0 || slot >= AFUniClient::kSlots || lfo < 0 || lfo > 1) return nullptr;
    return client.getSlot(slot).getLfo(lfo);
}

void AFCommandStepSeq::undo(AFUniClient& client) {
    AFLfo* lfoObject = target(client);
    if (lfoObject == nullptr) return;
    for (int i = 0; i < AFLfo::kStepCount; ++i) {
        after[static_cast<std::size_t>(i)] = lfoObject->getStep(i);
        lfoObject->setStep(i, before[static_cast<std::size_t>(i)]);
    }
}

void AFCommandStepSeq::redo(AFUniClient& client) {
    AFLfo* lfoObject = target(client);
    if (lfoObject == nullptr) return;
    for (int i = 0; i < AFLfo::kStepCount; ++i)
        lfoObject->setStep(i, after[static_cast<std::size_t>(i)]);
}

bool AFCommandStepSeq::refreshNeeded() const {
    return true;
}

const char* AFCommandStepSeq::name() const {
    return "Step Sequencer";
}
