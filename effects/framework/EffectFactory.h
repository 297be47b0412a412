#pragma once

#include "effects/framework/AFEffectDescriptor.h"

#include <memory>

// The catalogue of effects: the descriptors by type id (the id stored in presets and chunks), and the factory
// that builds the class of an id. An effect joins it with its descriptor and one line in the list.
class EffectFactory {
public:
    static constexpr int kTypeCount = 29;
    static constexpr int kMenuCount = 24;
    static constexpr int kFirstSlotEffect = 17; // what a new slot holds until a preset replaces it

    // Any thread: the entry of an id, null outside 0..28.
    static const AFEffectDescriptor* descriptor(int typeId);
    // Any thread with the audio held off. Null for ids without a class (0, 6, 10, 15) and out-of-range ids.
    static std::unique_ptr<AFEffect> create(AFSystemInfo* systemInfo, int typeId);

    // Any thread; ids outside 0..28 give "" and 0.
    static const char* effectName(int typeId);
    static int effectNumber(int typeId);
    // Whether the id builds a class, and whether that class has its full sound (otherwise it passes audio
    // through unchanged).
    static bool hasClass(int typeId);
    static bool hasSound(int typeId);

    // Menu order: position 0..23 to type id and back (-1 when absent).
    static int menuTypeId(int position);
    static int menuPosition(int typeId);
    static const char* menuEffectName(int position);
    // A type id by display name, exact match; -1 when none.
    static int typeIdByName(const char* displayName);
};
