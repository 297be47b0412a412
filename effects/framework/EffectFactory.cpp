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

// Ids that keep a name and a place in stored files and have no class.
constexpr AFEffectDescriptor kClassicFilter{.typeId = 0, .displayName = "Classic Filter", .number = 3};
constexpr AFEffectDescriptor kSpectralLooper{.typeId = 6, .displayName = "SpectralLooper"};
constexpr AFEffectDescriptor kSliceLooper{.typeId = 10, .displayName = "Slice Looper"};
constexpr AFEffectDescriptor kHoldSwapper{.typeId = 15, .displayName = "HoldSwapper"};

struct Entry {
    const AFEffectDescriptor* descriptor;
    bool sound; // false: the class passes audio through until its sound lands
};

// One line per type id, in id order.
constexpr std::array<Entry, EffectFactory::kTypeCount> kCatalogue{{
    {&kClassicFilter, false},
    {&AFTriggerLooper::descriptor, true},
    {&AFPitchLooper::descriptor, true},
    {&AFTransientLooper::descriptor, true},
    {&AFBeatStretcherKN::descriptor, true},
    {&AFFilterBank::descriptor, true},
    {&kSpectralLooper, false},
    {&AFTonalizer::descriptor, true},
    {&AFRinger::descriptor, true},
    {&AFStutter::descriptor, true},
    {&kSliceLooper, false},
    {&AFPitchDelayT::descriptor, true},
    {&AFPanLooper::descriptor, true},
    {&AFReverbHQ::descriptor, true},
    {&AFKnobixPhaser::descriptor, true},
    {&kHoldSwapper, false},
    {&AFTapeStopper::descriptor, true},
    {&AFSliceArranger::descriptor, true},
    {&AFVowelFilter::descriptor, true},
    {&AFVocodil::descriptor, true},
    {&AFPatternDelay::descriptor, true},
    {&AFReverseDelayV::descriptor, true},
    {&AFAmper::descriptor, true},
    {&AFMetalAmpT::descriptor, true},
    {&AFMultiModeFilter::descriptor, true},
    {&AFFilterPattern::descriptor, true},
    {&AFReverb3::descriptor, true},
    {&AFFlangerT::descriptor, true},
    {&AFTest::descriptor, true},
}};

bool inRange(int typeId) {
    return typeId >= 0 && typeId < EffectFactory::kTypeCount;
}

} // namespace

const AFEffectDescriptor* EffectFactory::descriptor(int typeId) {
    return inRange(typeId) ? kCatalogue[static_cast<std::size_t>(typeId)].descriptor : nullptr;
}

std::unique_ptr<AFEffect> EffectFactory::create(AFSystemInfo* systemInfo, int typeId) {
    if (!hasClass(typeId)) return nullptr;
    return descriptor(typeId)->create(systemInfo, typeId);
}

const char* EffectFactory::effectName(int typeId) {
    return inRange(typeId) ? descriptor(typeId)->displayName : "";
}

int EffectFactory::effectNumber(int typeId) {
    return inRange(typeId) ? descriptor(typeId)->number : 0;
}

bool EffectFactory::hasClass(int typeId) {
    return inRange(typeId) && descriptor(typeId)->create != nullptr;
}

bool EffectFactory::hasSound(int typeId) {
    return inRange(typeId) && kCatalogue[static_cast<std::size_t>(typeId)].sound;
}

int EffectFactory::menuTypeId(int position) {
    if (position < 0 || position >= kMenuCount) return -1;
    for (const Entry& e : kCatalogue)
        if (e.descriptor->menuPosition == position) return e.descriptor->typeId;
    return -1;
}

int EffectFactory::menuPosition(int typeId) {
    return inRange(typeId) ? descriptor(typeId)->menuPosition : -1;
}

const char* EffectFactory::menuEffectName(int position) {
    return effectName(menuTypeId(position));
}

int EffectFactory::typeIdByName(const char* displayName) {
    for (const Entry& e : kCatalogue)
        if (std::strcmp(e.descriptor->displayName, displayName) == 0) return e.descriptor->typeId;
    return -1;
}
