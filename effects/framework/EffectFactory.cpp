#include "effects/framework/EffectFactory.h"

#include "effects/delay/AFAmper.h"
#include "effects/delay/AFMetalAmpT.h"
#include "effects/delay/AFPatternDelay.h"
#include "effects/delay/AFPitchDelayT.h"
#include "effects/delay/AFReverb3.h"
#include "effects/delay/AFReverbHQ.h"
#include "effects/delay/AFReverseDelayV.h"
#include "effects/delay/AFTest.h"
#include "effects/filter/AFFilterBank.h"
#include "effects/filter/AFFilterPattern.h"
#include "effects/filter/AFFlangerT.h"
#include "effects/filter/AFKnobixPhaser.h"
#include "effects/filter/AFMultiModeFilter.h"
#include "effects/filter/AFRinger.h"
#include "effects/filter/AFTonalizer.h"
#include "effects/filter/AFVocodil.h"
#include "effects/filter/AFVowelFilter.h"
#include "effects/loop/AFBeatStretcherKN.h"
#include "effects/loop/AFPanLooper.h"
#include "effects/loop/AFPitchLooper.h"
#include "effects/loop/AFSliceArranger.h"
#include "effects/loop/AFStutter.h"
#include "effects/loop/AFTapeStopper.h"
#include "effects/loop/AFTransientLooper.h"
#include "effects/loop/AFTriggerLooper.h"

#include <array>
#include <cstring>

namespace {

using Creator = std::unique_ptr<AFEffect> (*)(AFSystemInfo*, int);

template <class T>
std::unique_ptr<AFEffect> make(AFSystemInfo* system, int typeId) {
    return std::make_unique<T>(static_cast<uint32_t>(typeId), system, 0u);
}

struct Row {
    const char* name;
    int number;
    Creator create; // null: the id has a name and nothing else
    bool sound;     // false: the class passes audio through until its sound lands
};

// One row per type id.
constexpr std::array<Row, EffectFactory::kTypeCount> kCatalogue{{
    {"Classic Filter", 3, nullptr, false},
    {"Looper", 4, make<AFTriggerLooper>, true},
    {"Pitch Looper", 4, make<AFPitchLooper>, false},
    {"Reactor", 4, make<AFTransientLooper>, true},
    {"Granulizer", 4, make<AFBeatStretcherKN>, true},
    {"Spectralizer", 4, make<AFFilterBank>, true},
    {"SpectralLooper", 4, nullptr, false},
    {"Tonalizer", 4, make<AFTonalizer>, true},
    {"Ringmodulator", 4, make<AFRinger>, true},
    {"Stutter", 4, make<AFStutter>, true},
    {"Slice Looper", 4, nullptr, false},
    {"Pitch Delay", 4, make<AFPitchDelayT>, false},
    {"Pan Looper", 4, make<AFPanLooper>, false},
    {"Reverb", 4, make<AFReverbHQ>, false},
    {"Phaser", 4, make<AFKnobixPhaser>, true},
    {"HoldSwapper", 4, nullptr, false},
    {"Vinylizer", 4, make<AFTapeStopper>, true},
    {"Slicearranger", 4, make<AFSliceArranger>, false},
    {"Vowel Filter", 4, make<AFVowelFilter>, true},
    {"Vocodizer", 4, make<AFVocodil>, true},
    {"Pattern Delay", 4, make<AFPatternDelay>, true},
    {"Reverse Delay", 4, make<AFReverseDelayV>, true},
    {"Levelizer", 4, make<AFAmper>, true},
    {"Guitar Amp", 4, make<AFMetalAmpT>, false},
    {"Filter", 4, make<AFMultiModeFilter>, true},
    {"Filter Pattern", 4, make<AFFilterPattern>, true},
    {"FreezeVerb", 4, make<AFReverb3>, true},
    {"Flanger", 4, make<AFFlangerT>, true},
    {"Test", 4, make<AFTest>, true},
}};

constexpr std::array<int, EffectFactory::kMenuCount> kMenuOrder{20, 21, 11, 27, 14, 7, 13, 26, 8,  19, 22, 23,
                                                                1,  2,  12, 3,  17, 4, 9,  16, 24, 25, 18, 5};

bool inRange(int typeId) {
    return typeId >= 0 && typeId < EffectFactory::kTypeCount;
}

} // namespace

std::unique_ptr<AFEffect> EffectFactory::create(AFSystemInfo* systemInfo, int typeId) {
    if (!hasClass(typeId)) return nullptr;
    return kCatalogue[static_cast<std::size_t>(typeId)].create(systemInfo, typeId);
}

const char* EffectFactory::effectName(int typeId) {
    return inRange(typeId) ? kCatalogue[static_cast<std::size_t>(typeId)].name : "";
}

int EffectFactory::effectNumber(int typeId) {
    return inRange(typeId) ? kCatalogue[static_cast<std::size_t>(typeId)].number : 0;
}

bool EffectFactory::hasClass(int typeId) {
    return inRange(typeId) && kCatalogue[static_cast<std::size_t>(typeId)].create != nullptr;
}

bool EffectFactory::hasSound(int typeId) {
    return inRange(typeId) && kCatalogue[static_cast<std::size_t>(typeId)].sound;
}

int EffectFactory::menuTypeId(int position) {
    if (position < 0 || position >= kMenuCount) return -1;
    return kMenuOrder[static_cast<std::size_t>(position)];
}

int EffectFactory::menuPosition(int typeId) {
    for (int i = 0; i < kMenuCount; ++i)
        if (kMenuOrder[static_cast<std::size_t>(i)] == typeId) return i;
    return -1;
}

const char* EffectFactory::menuEffectName(int position) {
    return effectName(menuTypeId(position));
}

int EffectFactory::typeIdByName(const char* displayName) {
    for (int i = 0; i < kTypeCount; ++i)
        if (std::strcmp(kCatalogue[static_cast<std::size_t>(i)].name, displayName) == 0) return i;
    return -1;
}
