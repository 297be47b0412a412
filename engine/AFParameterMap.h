#pragma once

#include "engine/KnobEngine.h"

// Where everything sits in the host parameter table (0..251) and in the internal indices beyond it: the eight
// Controls, the Dictator, the master Dry/Wet and Randomize, eight blocks of 29 slot rows, eight FX Gains, and
// from 261 the modulation amounts, 15 per slot. Every index computation goes through here. Any thread.
class AFParameterMap {
public:
    static constexpr int kSlots = 8;
    static constexpr int kSlotRows = KnobEngine::kParameterCount;
    static constexpr int kAmounts = KnobEngine::kAmountCount;
    static constexpr int kDictator = 8;
    static constexpr int kDryWet = 9;
    static constexpr int kRandomize = 10;
    static constexpr int kSlotBlockStart = 12;
    static constexpr int kFxGainStart = kSlotBlockStart + kSlots * kSlotRows;
    static constexpr int kHostParameters = kFxGainStart + kSlots;
    static constexpr int kAmountStart = 261;
    static constexpr int kAmountEnd = kAmountStart + kSlots * kAmounts; // guarded and unused

    // Row `row` (0..28) of a slot's block.
    static constexpr int slotRow(int slot, int row) noexcept {
        return kSlotBlockStart + kSlotRows * slot + row;
    }
    static constexpr int fxGain(int slot) noexcept { return kFxGainStart + slot; }
    // Amount `index` of a slot: source (0 LFO 1, 1 envelope, 2 LFO 2) times five plus target.
    static constexpr int amount(int slot, int index) noexcept {
        return kAmountStart + kAmounts * slot + index;
    }
    static constexpr bool isSlotRow(int index) noexcept {
        return index >= kSlotBlockStart && index < kFxGainStart;
    }
    // The slot and the row of an index inside the slot blocks.
    static constexpr int slotOf(int index) noexcept { return (index - kSlotBlockStart) / kSlotRows; }
    static constexpr int rowOf(int index) noexcept { return (index - kSlotBlockStart) % kSlotRows; }
};

static_assert(AFParameterMap::kHostParameters == 252 && AFParameterMap::kAmountEnd == 381);
