#include "effects/framework/AFEffect.h"

#include "effects/framework/AFSystemInfo.h"

#include <cmath>
#include <cstdio>
#include <cstring>

AFEffect::AFEffect(uint32_t type, int32_t count, AFSystemInfo* system, uint32_t flag)
    : dryGain(std::sqrt(0.5f)), wetGain(std::sqrt(0.5f)), effectType(type),
      parameterCount(count < 0 ? 0 : count), systemInfo(system),
      hostWord(system != nullptr ? system->hostWord : 0), constructionFlag(flag) {
    std::snprintf(name, sizeof(name), "%s", "AFEffect unspecified");
    if (parameterCount > 0) {
        const auto n = static_cast<std::size_t>(parameterCount);
        parameterValues.assign(n, 0.0f);
        parameterNames.assign(n, "no name set");
        parameterAux.assign(n, 0.5f);
    }
}

AFEffect::AFEffect(const AFEffectDescriptor& entry, uint32_t type, AFSystemInfo* system, uint32_t flag,
                   int32_t count)
    : AFEffect(type, count < 0 ? static_cast<int32_t>(entry.parameters.size()) : count, system, flag) {
    catalogueEntry = &entry;
    setName(entry.className);
    for (std::size_t i = 0; i < entry.parameters.size(); ++i)
        defineParameter(static_cast<int>(i), entry.parameters[i].name, entry.parameters[i].defaultValue);
}

AFEffect::~AFEffect() = default;

void AFEffect::analyze(float*, float*, int) noexcept {}

void AFEffect::process(float*, float*, int) noexcept {}

void AFEffect::setParameter(int index, float value) {
    parameterValues[static_cast<std::size_t>(index)] = value;
}

void AFEffect::setOption(int, int32_t) {}

int32_t AFEffect::getOption(int) {
    return 0;
}

void AFEffect::getOptionList(int index, AFWordList& list) {
    appendWords(list, optionWords(index));
}

void AFEffect::getParameterName(int index, char* text) {
    if (index < 0 || index >= parameterCount) {
        std::snprintf(text, kEffectTextSize, "%s", "unused");
        return;
    }
    std::snprintf(text, kEffectTextSize, "%s", parameterNames[static_cast<std::size_t>(index)].c_str());
}

void AFEffect::setMix(float value) {
    mix = value;
    wetGain = std::sqrt(value);
    dryGain = std::sqrt(1.0f - value);
}

float AFEffect::getParameterAux(int index) {
    if (index < 0 || index >= parameterCount) return 0.0f;
    return parameterAux[static_cast<std::size_t>(index)];
}

void AFEffect::formatParameter(int, float value, char* text) {
    std::snprintf(text, kEffectTextSize, "%f", static_cast<double>(value));
}

void AFEffect::setAuxWord(uint32_t word) {
    auxWord = word;
    for (int i = 0; i < parameterCount; ++i)
        setParameter(i, parameterValues[static_cast<std::size_t>(i)]);
}

void AFEffect::setName(const char* text) {
    std::snprintf(name, sizeof(name), "%s", text);
}

void AFEffect::defineParameter(int index, const char* parameterName, float defaultValue) {
    parameterNames[static_cast<std::size_t>(index)] = std::string(parameterName).substr(0, 31);
    AFEffect::setParameter(index, defaultValue);
}
