#pragma once

#include <cstdint>
#include <memory>
#include <span>

class AFEffect;
class AFSystemInfo;

// The words of one option menu, in option value order.
using AFWords = std::span<const char* const>;

// One knob of an effect: its name and the value a new effect starts at.
struct AFParameterInfo {
    const char* name;
    float defaultValue;
};

// A slot row a new slot of the effect starts at instead of the generic slot default, by the row's name
// ("Param2 Knob Amt").
struct AFSlotDefault {
    const char* row;
    float value;
};

// A modulation depth a new slot of the effect starts with. Source 0 is LFO 1, 1 the envelope follower, 2 LFO
// 2; target 0..3 the effect's parameters, 4 Dry Wet.
struct AFAmountDefault {
    int source;
    int target;
    float value;
};

// An option a new slot sets on its effect.
struct AFOptionDefault {
    int option;
    int32_t value;
};

// Everything the catalogue, the slot, the menus and the tools know of an effect type without building it.
// Each effect class defines its own; the catalogue lists them by type id.
struct AFEffectDescriptor {
    using Creator = std::unique_ptr<AFEffect> (*)(AFSystemInfo*, int);

    int typeId = 0;
    const char* displayName = "";
    int number = 4;
    // The name the class gives itself (what getName answers).
    const char* className = "";
    // Null: the id has a name and nothing else.
    Creator create = nullptr;
    std::span<const AFParameterInfo> parameters{};
    // Option index to its words; an empty entry has no menu.
    std::span<const AFWords> options{};
    // Place in the effect menu, -1 when the menu does not offer it.
    int menuPosition = -1;
    // The quantise mode a new slot of the effect starts with.
    int quantise = 0;
    std::span<const AFSlotDefault> slotDefaults{};
    std::span<const AFAmountDefault> amountDefaults{};
    std::span<const AFOptionDefault> optionDefaults{};

    // Any thread: the words of option `index`, empty outside the menus.
    AFWords optionWords(int index) const noexcept {
        if (index < 0 || static_cast<std::size_t>(index) >= options.size()) return {};
        return options[static_cast<std::size_t>(index)];
    }
};

// The creator of a catalogue entry.
template <class T>
std::unique_ptr<AFEffect> makeEffect(AFSystemInfo* systemInfo, int typeId) {
    return std::make_unique<T>(static_cast<uint32_t>(typeId), systemInfo, 0u);
}
