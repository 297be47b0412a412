#pragma once

#include "effects/framework/AFEffectDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

class AFSystemInfo;

// Size of every display and name buffer handed to an effect.
inline constexpr std::size_t kEffectTextSize = 64;

using AFWordList = std::vector<std::string>;

// Base of every effect in the catalogue and of the modulators. The slot drives it in short stereo blocks and
// does all dry/wet work itself, so an effect only rewrites the two buffers it is handed. The order of the
// virtual operations is part of the design and kept, including the ones nothing calls.
class AFEffect {
public:
    AFEffect(uint32_t effectType, int32_t parameterCount, AFSystemInfo* systemInfo,
             uint32_t constructionFlag);
    // A catalogue effect: names, defaults and option words from its descriptor. `parameterCount` only when
    // the class keeps more values than it names.
    AFEffect(const AFEffectDescriptor& descriptor, uint32_t effectType, AFSystemInfo* systemInfo,
             uint32_t constructionFlag, int32_t parameterCount = -1);
    AFEffect(const AFEffect&) = delete;
    AFEffect& operator=(const AFEffect&) = delete;

    // 1. Any thread with the audio held off.
    virtual ~AFEffect();
    // 2. Nobody calls it.
    virtual void processPair(uint32_t, uint32_t) {}
    // 3. Audio thread; only the envelope follower uses it.
    virtual void analyze(float* left, float* right, int count) noexcept;
    // 4. Audio thread: in place, count <= 64, possibly 0 or 1.
    virtual void process(float* left, float* right, int count) noexcept;
    // 5. Audio thread at a control tick, or any thread with the audio held off. No range check.
    virtual void setParameter(int index, float value);
    // 6. Any thread; a single word read by the audio thread.
    virtual void setOption(int index, int32_t value);
    // 7. Any thread.
    virtual int32_t getOption(int index);
    // 8. GUI thread or chunk save: appends the option's words, from the descriptor.
    virtual void getOptionList(int index, AFWordList& list);
    // 9-12. Nobody calls them.
    virtual int32_t queryWord(uint32_t) { return 0; }
    virtual void noticeWord(uint32_t) {}
    virtual int32_t queryZeroA() { return 0; }
    virtual int32_t queryZeroB() { return 0; }
    // 13. GUI thread: "unused" for an index outside the parameters.
    virtual void getParameterName(int index, char* text);
    // 14. The effect's own code, from its constructor or activate.
    virtual void reset() {}
    // 15. Audio thread, once per control tick before process.
    virtual void controlTick() noexcept {}
    // 16. Audio thread, through bpmChanged.
    virtual void tempoChanged(int32_t) {}
    // 17. Audio thread when the slot starts, or with the audio held off on a swap. Returns 1.
    virtual int32_t activate() { return 1; }
    // 18. Audio thread when the slot's fade-out reaches zero.
    virtual void deactivate() {}
    // 19. Nobody in the running system.
    virtual bool hasFlag() { return false; }
    // 20-21. Nobody calls them.
    virtual void noticeA(uint32_t) {}
    virtual void noticeB(uint32_t) {}
    // 22. Not used by the slot.
    virtual void setMix(float value);
    // 23. Never overridden.
    virtual float getParameterAux(int index);
    // 24-25. Overridden by the modulators only.
    virtual int32_t modulatorQuery(uint32_t, uint32_t) { return 1; }
    virtual void modulatorNotice(uint32_t) {}
    // 26. Never overridden.
    virtual void setHostWord(uint32_t word) { hostWord = word; }
    // 27. GUI thread: the knob's value text, at most kEffectTextSize bytes.
    virtual void formatParameter(int index, float value, char* text);
    // 28. GUI thread.
    virtual bool isSpecialParameter(int) { return false; }
    // 29. Stores the word, then re-sends every parameter through the overriding setParameter.
    virtual void setAuxWord(uint32_t word);
    // 30. GUI thread.
    virtual void getParameterWords(int, AFWordList&) {}
    // 31. GUI thread.
    virtual float getParameterSteps(int) { return 0.0f; }

    int32_t getParameterCount() const noexcept { return parameterCount; }
    uint32_t getEffectType() const noexcept { return effectType; }
    const char* getName() const noexcept { return name; }
    float getParameterValue(int index) const noexcept {
        return parameterValues[static_cast<std::size_t>(index)];
    }
    AFSystemInfo* getSystemInfo() const noexcept { return systemInfo; }
    // Null for the modulators, which are not in the catalogue.
    const AFEffectDescriptor* getDescriptor() const noexcept { return catalogueEntry; }
    // Any thread: the words of option `index`, empty when the option has no menu.
    AFWords optionWords(int index) const noexcept {
        return catalogueEntry != nullptr ? catalogueEntry->optionWords(index) : AFWords{};
    }
    float getMix() const noexcept { return mix; }
    uint32_t getHostWord() const noexcept { return hostWord; }
    uint32_t getAuxWord() const noexcept { return auxWord; }

protected:
    // Constructor helpers of the concrete classes.
    void setName(const char* text);
    // Names parameter `index` and stores its default through the base setParameter.
    void defineParameter(int index, const char* parameterName, float defaultValue = 0.0f);

    std::vector<float> parameterValues;
    float unusedHalf = 0.5f;
    float dryGain;
    float wetGain;
    float mix = 0.5f;
    int32_t reservedWord = 0;
    char name[32];
    std::vector<std::string> parameterNames;
    std::vector<float> parameterAux;
    uint32_t effectType;
    int32_t parameterCount;
    AFSystemInfo* systemInfo;
    uint32_t hostWord;
    uint32_t auxWord = 0;
    uint32_t constructionFlag;
    const AFEffectDescriptor* catalogueEntry = nullptr;
};

// Appends a fixed word list to an option list.
inline void appendWords(AFWordList& list, std::span<const char* const> words) {
    for (const char* w : words)
        list.emplace_back(w);
}

// An option value kept inside its menu: a stored or hostile value never indexes past the words.
inline int32_t clampOption(int32_t value, std::span<const char* const> words) {
    const auto last = static_cast<int32_t>(words.size()) - 1;
    return value < 0 ? 0 : (value > last ? last : value);
}
