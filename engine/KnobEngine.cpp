#include "engine/KnobEngine.h"

#include "effects/framework/AFBPMChangeInterface.h"
#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFEffect.h"
#include "effects/framework/AFSystemInfo.h"
#include "effects/framework/ClampUnit.h"
#include "effects/framework/EffectFactory.h"
#include "engine/AFAudioGate.h"
#include "engine/AFGlobalOptions.h"
#include "engine/AFProcessingOrder.h"
#include "modulation/AFEnvFollower.h"
#include "modulation/AFLfo.h"
#include "modulation/ControlCurveBank.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

constexpr double kGainSnap = 1e-8;
constexpr double kGridQuarters[KnobEngine::kQuantiseModes] = {0.0, 0.25, 0.5, 1.0, 2.0, 4.0};

} // namespace

KnobEngine::KnobEngine(AFSystemInfo* systemInfo, AFAudioGate& audioGate, const AFGlobalOptions& globalOptions,
                       AFProcessingOrder& chainOrder, int slotIndex, std::atomic<float>* params,
                       std::atomic<float>* modulationAmounts)
    : system(systemInfo), gate(audioGate), options(globalOptions), order(chainOrder), parameters(params),
      amounts(modulationAmounts), index(slotIndex) {
    effect = EffectFactory::create(system, EffectFactory::kFirstSlotEffect);
    lfo1 = std::make_unique<AFLfo>(system);
    lfo2 = std::make_unique<AFLfo>(system);
    envelope = std::make_unique<AFEnvFollower>(system);
    applyDefaults();
}

KnobEngine::~KnobEngine() = default;

int KnobEngine::rowByName(const char* name) noexcept {
    for (int row = 0; row < kParameterCount; ++row)
        if (std::strcmp(kRowNames[static_cast<std::size_t>(row)], name) == 0) return row;
    return -1;
}

int KnobEngine::getEffectType() const noexcept {
    return static_cast<int>(effect->getEffectType());
}

void KnobEngine::setMixLaw(int law) noexcept {
    mixLaw.store(std::clamp(law, 0, kMixLaws - 1), std::memory_order_relaxed);
}

int KnobEngine::getParameterCurve(int i) const noexcept {
    return parameterCurves[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
}

void KnobEngine::setParameterCurve(int i, int curve) noexcept {
    parameterCurves[static_cast<std::size_t>(i)].store(
        std::clamp(curve, 0, ControlCurveBank::kCurveCount - 1), std::memory_order_relaxed);
    dirty[static_cast<std::size_t>(i)].store(1, std::memory_order_relaxed);
}

int KnobEngine::getModulatorCurve(int i) const noexcept {
    return modulatorCurves[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
}

void KnobEngine::setModulatorCurve(int i, int curve) noexcept {
    modulatorCurves[static_cast<std::size_t>(i)].store(
        std::clamp(curve, 0, ControlCurveBank::kCurveCount - 1), std::memory_order_relaxed);
}

void KnobEngine::setModulatorKnobAmount(int which, float hostValue) {
    modulatorKnobAmounts[static_cast<std::size_t>(which)].store(hostValue + hostValue - 1.0f,
                                                                std::memory_order_relaxed);
}

void KnobEngine::applyDefaults() {
    lfo1->setOption(0, 0);
    lfo2->setOption(0, 0);
    for (auto& c : modulatorCurves)
        c.store(0, std::memory_order_relaxed);
    for (auto& c : parameterCurves)
        c.store(0, std::memory_order_relaxed);

    setParameterRow(kDryWet, 1.0f);
    for (int row = kParam1KnobAmt; row <= kDryWetKnobAmt; ++row)
        setParameterRow(row, 0.5f);
    for (int row = kLfoRateKA; row < kParameterCount; ++row)
        setParameterRow(row, 0.5f);
    setParameterRow(kLfoRate, 0.5f);
    setParameterRow(kLfo2Rate, 0.5f);
    setParameterRow(kLfoPhase, 0.0f);
    setParameterRow(kLfo2Phase, 0.0f);
    setParameterRow(kLfoAmount, 0.5f);
    setParameterRow(kLfo2Amount, 0.5f);
    setParameterRow(kEfAttack, 0.5f);
    setParameterRow(kEfRelease, 0.5f);
    setParameterRow(kEfAmount, 0.5f);
    const int own = std::min(effect->getParameterCount(), 4);
    for (int i = 0; i < own; ++i)
        setParameterRow(kParameter1 + i, effect->getParameterValue(i));

    for (int i = 0; i < kAmountCount; ++i)
        amounts[i].store(0.0f, std::memory_order_relaxed);
    // What the effect's own entry changes of these. Every slot effect comes from the catalogue.
    const AFEffectDescriptor& entry = *effect->getDescriptor();
    for (const AFSlotDefault& d : entry.slotDefaults)
        if (const int row = rowByName(d.row); row >= 0) setParameterRow(row, d.value);
    for (const AFAmountDefault& d : entry.amountDefaults)
        amounts[d.source * 5 + d.target].store(d.value, std::memory_order_relaxed);
    for (const AFOptionDefault& d : entry.optionDefaults)
        effect->setOption(d.option, d.value);
    quantiseMode.store(entry.quantise, std::memory_order_relaxed);
    mixLaw.store(1, std::memory_order_relaxed);
    for (int j = 0; j < kModulatorCount; ++j)
        setModulatorKnobAmount(j, parameter(kLfoRateKA + j));
}

void KnobEngine::setEffect(int type) {
    // The whole swap in one turn: another writer (a state load on the host's thread) must not see the slot,
    // its spare or its retired effects half changed.
    const std::lock_guard<std::recursive_mutex> turn(gate.turn());
    if (type == getEffectType()) return;
    const bool prepared = spare && static_cast<int>(spare->getEffectType()) == type;
    const bool activated = prepared && spareActivated;
    auto replacement = prepared ? std::move(spare) : EffectFactory::create(system, type);
    if (!replacement) return; // never hand a slot an id without a class
    if (deferring) retired.reserve(retired.size() + 1);
    const AFAudioGate::Writer writer(gate);
    if (deferring) retired.push_back(std::move(effect));
    effect = std::move(replacement);
    applyDefaults();
    parameterChanged(kParameter1);
    if (isRunning() && !activated) effect->activate();
    for (auto& d : dirty)
        d.store(1, std::memory_order_relaxed);
}

void KnobEngine::prepareEffect(int type) {
    dropRetired();
    if (type == getEffectType()) return;
    spare = EffectFactory::create(system, type);
    // Started here when the slot runs, unless the slot's defaults set an option first: the swap then starts
    // it as it would have. A slot that stops before the swap starts it again when it next runs.
    spareActivated = spare && isRunning() && spare->getDescriptor()->optionDefaults.empty();
    if (spareActivated) spare->activate();
}

void KnobEngine::dropRetired() {
    if (spare) retired.push_back(std::move(spare));
    if (retired.empty()) return;
    // Only the tempo listeners still reach an effect that left its slot. Once out of them it is freed while
    // the audio runs.
    if (system->bpmListeners != nullptr) {
        const AFAudioGate::Writer writer(gate);
        for (const auto& old : retired)
            if (auto* listener = dynamic_cast<AFBPMChangeInterface*>(old.get()))
                system->bpmListeners->remove(listener);
    }
    retired.clear();
}

void KnobEngine::controlMoved(float value) {
    std::array<float, ControlCurveBank::kCurveCount> bank{};
    ControlCurveBank::compute(value, options.threshold.load(std::memory_order_relaxed), bank.data());
    for (std::size_t i = 0; i < bank.size(); ++i)
        curves[i].store(bank[i], std::memory_order_relaxed);
    for (int i = 0; i < 5; ++i)
        if (parameter(kParam1KnobAmt + i) != 0.5f)
            dirty[static_cast<std::size_t>(i)].store(1, std::memory_order_relaxed);
}

void KnobEngine::applyGate(float value) {
    const float t = options.threshold.load(std::memory_order_relaxed);
    const float upper = options.offOnTop.load(std::memory_order_relaxed) ? 1.0f - t : 2.0f;
    if (t < value && value < upper)
        pending.store(isRunning() ? 0 : 1, std::memory_order_relaxed);
    else
        pending.store(isRunning() ? -1 : 0, std::memory_order_relaxed);
}

void KnobEngine::parameterChanged(int) {
    if (!isRunning()) {
        if (recomputeHeld.load(std::memory_order_relaxed)) {
            lfo1->setParameter(1, modulatorValue(0));
            lfo2->setParameter(1, modulatorValue(6));
            return;
        }
        updateModulators();
        for (int i = 0; i < 5; ++i)
            recomputeEffective(i);
        return;
    }
    for (auto& d : dirty)
        d.store(1, std::memory_order_relaxed);
}

void KnobEngine::restartThroughQuantiser() {
    if (!isRunning()) return;
    running.store(0.0f, std::memory_order_relaxed);
    pending.store(1, std::memory_order_relaxed);
}

int KnobEngine::samplesToGrid(double position) const noexcept {
    const int mode = quantiseMode.load(std::memory_order_relaxed);
    if (mode <= 0 || mode >= kQuantiseModes) return 0;
    const double grid = kGridQuarters[mode];
    const double beats = position / grid;
    double f = beats - std::trunc(beats);
    f -= std::trunc(f);
    if (f < 0.0) f += 1.0;
    const double gridSamples = static_cast<double>(system->samplesPerBeat) * grid;
    // A grid line less than half a sample away, on either side, counts as reached: rounding of the position
    // must never push a start back by a whole grid, nor leave a sub-block of zero samples.
    const double ahead = (1.0 - f) * gridSamples;
    if (f == 0.0 || ahead < 0.5 || f * gridSamples < 0.5) return 0;
    return static_cast<int>(std::lround(ahead));
}

void KnobEngine::start() noexcept {
    updateModulators();
    lfo1Output = lfo1->restart() * lfo1Amount;
    lfo2Output = lfo2->restart() * lfo2Amount;
    envelope->reset();
    envelopeOutput = 0.0f;
    const int handed =
        std::min({EffectFactory::effectNumber(getEffectType()), effect->getParameterCount(), 4});
    for (int i = 0; i < 5; ++i) {
        recomputeEffective(i);
        if (i < handed) effect->setParameter(i, effective[static_cast<std::size_t>(i)]);
    }
    effect->activate();
    tickCountdown = 0;
    fade = fadeStep = system->controlTime * 100.0f;
    dryNow = 1.0;
    wetNow = 0.0;
    running.store(1.0f, std::memory_order_relaxed);
}

void KnobEngine::stop() noexcept {
    fadeStep = system->controlTime * -100.0f;
}

float KnobEngine::modulatorValue(int j) const noexcept {
    const auto jj = static_cast<std::size_t>(j);
    const float curve =
        curves[static_cast<std::size_t>(modulatorCurves[jj].load(std::memory_order_relaxed))].load(
            std::memory_order_relaxed);
    return clampUnit(parameter(kLfoRate + j) +
                     modulatorKnobAmounts[jj].load(std::memory_order_relaxed) * curve);
}

void KnobEngine::updateModulators() noexcept {
    std::array<float, kModulatorCount> v{};
    for (int j = 0; j < kModulatorCount; ++j)
        v[static_cast<std::size_t>(j)] = modulatorValue(j);
    lfo1Rate = v[0], lfo1Phase = v[1], lfo1Amount = v[2];
    envelopeAttack = v[3], envelopeRelease = v[4], envelopeAmount = v[5];
    lfo2Rate = v[6], lfo2Phase = v[7], lfo2Amount = v[8];
    envelope->setParameter(0, envelopeAttack);
    envelope->setParameter(1, envelopeRelease);
    lfo1->setParameter(0, lfo1Phase);
    lfo1->setParameter(1, lfo1Rate);
    lfo2->setParameter(0, lfo2Phase);
    lfo2->setParameter(1, lfo2Rate);
}

void KnobEngine::recomputeEffective(int i) noexcept {
    const auto ii = static_cast<std::size_t>(i);
    const float curve =
        curves[static_cast<std::size_t>(parameterCurves[ii].load(std::memory_order_relaxed))].load(
            std::memory_order_relaxed);
    const float value = amounts[i].load(std::memory_order_relaxed) * lfo1Output +
                        amounts[10 + i].load(std::memory_order_relaxed) * lfo2Output +
                        amounts[5 + i].load(std::memory_order_relaxed) * envelopeOutput * 2.0f +
                        curve * (parameter(kParam1KnobAmt + i) * 2.0f - 1.0f) + parameter(kParameter1 + i);
    effective[ii] = clampUnit(value);
}

bool KnobEngine::controlTick() noexcept {
    updateModulators();
    lfo1Output = lfo1->tick() * lfo1Amount;
    envelopeOutput = static_cast<float>(envelope->value()) * envelopeAmount;
    lfo2Output = lfo2->tick() * lfo2Amount;

    const int handed = std::min(effect->getParameterCount(), 4);
    for (int i = 0; i < 5; ++i) {
        const auto ii = static_cast<std::size_t>(i);
        const bool modulated = amounts[i].load(std::memory_order_relaxed) != 0.0f ||
                               amounts[5 + i].load(std::memory_order_relaxed) != 0.0f ||
                               amounts[10 + i].load(std::memory_order_relaxed) != 0.0f;
        if (!modulated && dirty[ii].load(std::memory_order_relaxed) == 0) continue;
        dirty[ii].store(0, std::memory_order_relaxed);
        recomputeEffective(i);
        if (i < handed) effect->setParameter(i, effective[ii]);
    }

    // S-curve of the slot's dry/wet.
    const float w = effective[4];
    if (w < 0.5f) {
        wetAmount = ((w + w) * (w + w)) * 0.5f;
    } else {
        const float u = (1.0f - w) + (1.0f - w);
        wetAmount = ((1.0f - u * u) + 1.0f) * 0.5f;
    }

    if (fade > 1.0f && fadeStep > 0.0f) {
        fade = 1.0f;
        fadeStep = 0.0f;
    }
    if (fade >= 0.0f) {
        fade += fadeStep;
        return true;
    }
    fade = 0.0f;
    fadeStep = 0.0f;
    running.store(0.0f, std::memory_order_relaxed);
    effect->deactivate();
    return false;
}

void KnobEngine::computeGains() noexcept {
    const double w = wetAmount;
    const double a = fade;
    if (parameter(kBypass) > 0.5f) {
        dryTarget = 1.0;
        wetTarget = 0.0;
    } else {
        switch (mixLaw.load(std::memory_order_relaxed)) {
        case 0:
            dryTarget = 1.0 - w, wetTarget = w * a;
            break;
        case 2:
            dryTarget = 1.0, wetTarget = w * a;
            break;
        case 3:
            dryTarget = w, wetTarget = a;
            break;
        case 4:
            dryTarget = 0.0, wetTarget = w * a;
            break;
        default:
            dryTarget = std::sqrt(1.0 - w), wetTarget = std::sqrt(w) * a;
            break;
        }
        // As the fade falls the dry path opens to 1 whatever the law.
        dryTarget = (1.0 - dryTarget) * (1.0 - a) + dryTarget;
    }
    const double tick = system->controlInterval;
    dryStep = (dryTarget - dryNow) / tick;
    if (std::fabs(dryStep) < kGainSnap) {
        dryStep = 0.0;
        dryNow = dryTarget;
    }
    wetStep = (wetTarget - wetNow) / tick;
    if (std::fabs(wetStep) < kGainSnap) {
        wetStep = 0.0;
        wetNow = wetTarget;
    }
}

bool KnobEngine::process(float* signalLeft, float* signalRight, int frames) noexcept {
    int k = frames;
    while (k >= 1) {
        int chunk;
        if (tickCountdown > 0) {
            chunk = std::min(k, tickCountdown);
            envelope->analyze(signalLeft, signalRight, chunk);
        } else {
            tickCountdown = system->controlInterval;
            chunk = std::min(k, tickCountdown);
            envelope->analyze(signalLeft, signalRight, chunk);
            if (!controlTick()) {
                order.remove(index);
                return false;
            }
            effect->controlTick();
            computeGains();
        }

        float* wl = left.data();
        float* wr = right.data();
        std::copy_n(signalLeft, chunk, wl);
        std::copy_n(signalRight, chunk, wr);
        effect->process(wl, wr, chunk);

        // signal = dry * signal + wet * gain * effect(signal), in one pass.
        const double g = gain.load(std::memory_order_relaxed);
        if (wetStep == 0.0 && dryStep == 0.0) {
            const auto wg = static_cast<float>(g * wetNow);
            const auto dg = static_cast<float>(dryNow);
            for (int i = 0; i < chunk; ++i) {
                signalLeft[i] = signalLeft[i] * dg + wl[i] * wg;
                signalRight[i] = signalRight[i] * dg + wr[i] * wg;
            }
        } else {
            for (int i = 0; i < chunk; ++i) {
                wetNow += wetStep;
                dryNow += dryStep;
                const auto wg = static_cast<float>(g * wetNow);
                const auto dg = static_cast<float>(dryNow);
                signalLeft[i] = signalLeft[i] * dg + wl[i] * wg;
                signalRight[i] = signalRight[i] * dg + wr[i] * wg;
            }
        }

        tickCountdown -= chunk;
        signalLeft += chunk;
        signalRight += chunk;
        k -= chunk;
    }
    return true;
}
