#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

class AFAudioGate;
class AFEffect;
class AFProcessingOrder;
struct AFGlobalOptions;
class AFEnvFollower;
class AFLfo;
class AFSystemInfo;

// One effect slot: an effect, its main control, two LFOs and an envelope follower, and the logic that starts,
// stops and mixes the effect into the serial chain.
class KnobEngine {
public:
    static constexpr int kParameterCount = 29;
    static constexpr int kAmountCount = 15;
    static constexpr int kModulatorCount = 9;
    static constexpr int kBufferSize = 64;
    static constexpr int kQuantiseModes = 6;
    static constexpr int kMixLaws = 5;

    // Slot parameter rows, k in the slot's block of the host table.
    enum Row : int {
        kParameter1 = 0,
        kDryWet = 4,
        kBypass = 5,
        kParam1KnobAmt = 6,
        kDryWetKnobAmt = 10,
        kLfoRate = 11,
        kLfoPhase = 12,
        kLfoAmount = 13,
        kEfAttack = 14,
        kEfRelease = 15,
        kEfAmount = 16,
        kLfo2Rate = 17,
        kLfo2Phase = 18,
        kLfo2Amount = 19,
        kLfoRateKA = 20,
    };
    // The rows' names, as the host table shows them after "FXn ".
    static constexpr std::array<const char*, kParameterCount> kRowNames{
        "Parameter 1",     "Parameter 2",     "Parameter 3",     "Parameter 4",     "Dry Wet",
        "Bypass",          "Param1 Knob Amt", "Param2 Knob Amt", "Param3 Knob Amt", "Param4 Knob Amt",
        "DryWet Knob Amt", "Lfo Rate",        "Lfo Phase",       "Lfo Amount",      "EF Attack",
        "EF Relese",       "EF Amount",       "Lfo2 Rate",       "Lfo2 Phase",      "Lfo2 Amount",
        "Lfo Rate KA",     "Lfo Phase KA",    "Lfo Amount KA",   "EF Attack KA",    "EF Release KA",
        "EF Amount KA",    "Lfo2 Rate KA",    "Lfo2 Phase KA",   "Lfo2 Amount KA"};
    // Any thread: the row of a name, -1 when none.
    static int rowByName(const char* name) noexcept;

    // Construction, on the host thread. `parameters` points at the slot's 29 host parameters, `amounts` at
    // its 15 modulation amounts, both inside the client's table; the main control arrives through
    // controlMoved. The gate, the options and the chain order are the client's.
    KnobEngine(AFSystemInfo* system, AFAudioGate& gate, const AFGlobalOptions& options,
               AFProcessingOrder& order, int index, std::atomic<float>* parameters,
               std::atomic<float>* amounts);
    virtual ~KnobEngine();
    KnobEngine(const KnobEngine&) = delete;
    KnobEngine& operator=(const KnobEngine&) = delete;

    // Audio thread: runs the slot in place over `frames` samples. False when the slot ended in this call and
    // left the chain; the rest of the call then passes the slot untouched.
    bool process(float* left, float* right, int frames) noexcept;

    // Audio thread, from the quantiser.
    void start() noexcept;
    void stop() noexcept;
    // Samples to this slot's next grid line from `position` (quarters); 0 when on the grid or not quantised.
    int samplesToGrid(double position) const noexcept;

    // Any thread: swaps the effect, holding the audio off while it does. Ids without a class are ignored.
    void setEffect(int type);
    // Any thread, in the writers' turn: builds an effect ahead of a state load, taken by the next setEffect
    // to its type instead of one built (and started, in a running slot) while the audio waits.
    void prepareEffect(int type);
    // Any thread, in the writers' turn: while on, setEffect keeps the effects it replaces instead of freeing
    // them under the hold it runs in; dropRetired frees them, each under a short hold of its own (an effect
    // leaves the tempo listeners as it goes), together with an offered effect nobody took.
    void deferFrees(bool on) { deferring = on; }
    void dropRetired();
    // Any thread: the main control moved to `value`; recomputes the curve bank and marks the swept values.
    void controlMoved(float value);
    // Any thread: the Control gate, applied when a Control's value changes.
    void applyGate(float value);
    // Any thread: one of the slot's 29 parameters changed.
    void parameterChanged(int row);
    // Any thread, in the writers' turn: while held, a change to a stopped slot only steps the LFO rates,
    // which remember their last value; the rest waits for the parameterChanged that ends a state load.
    void holdRecompute(bool on) noexcept { recomputeHeld.store(on, std::memory_order_relaxed); }
    // Any thread: a KA parameter (row 20..28) changed.
    void setModulatorKnobAmount(int which, float hostValue);
    // Any thread: the linear FX Gain.
    void setGain(float linear) { gain.store(linear, std::memory_order_relaxed); }
    // Any thread with the audio held off: the defaults of the current effect type.
    void applyDefaults();
    // Any thread: moves a running slot into pending, so that it starts again through the quantiser.
    void restartThroughQuantiser();

    // Accessors for the editor, the state code and tests. Any thread.
    AFEffect* getEffect() const noexcept { return effect.get(); }
    AFLfo* getLfo(int which) const noexcept { return which == 0 ? lfo1.get() : lfo2.get(); }
    AFEnvFollower* getEnvelope() const noexcept { return envelope.get(); }
    int getEffectType() const noexcept;
    bool isRunning() const noexcept { return running.load(std::memory_order_relaxed) != 0.0f; }
    int getPending() const noexcept { return pending.load(std::memory_order_relaxed); }
    float getFade() const noexcept { return fade; }
    float getEffective(int i) const noexcept { return effective[static_cast<std::size_t>(i)]; }
    float getWetAmount() const noexcept { return wetAmount; }
    // GUI thread, for display: the last output times amount of LFO 1 (0), LFO 2 (1) or the follower (2).
    float getModulatorOutput(int which) const noexcept {
        return which == 0 ? lfo1Output : which == 1 ? lfo2Output : envelopeOutput;
    }
    float getCurve(int i) const noexcept {
        return curves[static_cast<std::size_t>(i)].load(std::memory_order_relaxed);
    }
    float getGain() const noexcept { return gain.load(std::memory_order_relaxed); }
    int getIndex() const noexcept { return index; }

    int getQuantiseMode() const noexcept { return quantiseMode.load(std::memory_order_relaxed); }
    void setQuantiseMode(int mode) noexcept { quantiseMode.store(mode, std::memory_order_relaxed); }
    int getMixLaw() const noexcept { return mixLaw.load(std::memory_order_relaxed); }
    void setMixLaw(int law) noexcept;
    int getParameterCurve(int i) const noexcept;
    void setParameterCurve(int i, int curve) noexcept;
    int getModulatorCurve(int i) const noexcept;
    void setModulatorCurve(int i, int curve) noexcept;

    // Audio thread, from the quantiser.
    void arm() noexcept { armed = 1; }
    bool isArmed() const noexcept { return armed != 0; }
    void clearRequest() noexcept {
        pending.store(0, std::memory_order_relaxed);
        armed = 0;
    }

private:
    bool controlTick() noexcept;
    float modulatorValue(int j) const noexcept;
    void updateModulators() noexcept;
    void recomputeEffective(int i) noexcept;
    void computeGains() noexcept;
    float parameter(int row) const noexcept { return parameters[row].load(std::memory_order_relaxed); }
    void setParameterRow(int row, float value) noexcept {
        parameters[row].store(value, std::memory_order_relaxed);
    }

    AFSystemInfo* system;
    std::unique_ptr<AFEffect> effect;
    std::unique_ptr<AFEffect> spare;
    bool spareActivated = false;
    std::vector<std::unique_ptr<AFEffect>> retired;
    bool deferring = false;
    std::atomic<bool> recomputeHeld{false};
    AFAudioGate& gate;
    const AFGlobalOptions& options;
    AFProcessingOrder& order;
    alignas(32) std::array<float, kBufferSize> left{};
    alignas(32) std::array<float, kBufferSize> right{};
    std::array<std::atomic<float>, kModulatorCount> modulatorKnobAmounts{};
    std::array<std::atomic<float>, 20> curves{};
    std::unique_ptr<AFLfo> lfo1;
    std::unique_ptr<AFLfo> lfo2;
    std::unique_ptr<AFEnvFollower> envelope;
    float fade = 0.0f;
    float fadeStep = 0.0f;
    float wetAmount = 0.0f;
    std::atomic<float> gain{1.0f};
    std::array<std::atomic<uint8_t>, 5> dirty{};
    std::array<std::atomic<int>, 5> parameterCurves{};
    std::array<std::atomic<int>, kModulatorCount> modulatorCurves{};
    std::atomic<int> mixLaw{1};
    std::atomic<float>* parameters;
    std::atomic<float>* amounts;
    std::array<float, 5> effective{};
    float lfo1Amount = 0.0f, lfo1Phase = 0.0f, lfo1Rate = 0.0f, lfo1Output = 0.0f;
    float envelopeAmount = 0.0f, envelopeAttack = 0.0f, envelopeRelease = 0.0f, envelopeOutput = 0.0f;
    float lfo2Amount = 0.0f, lfo2Phase = 0.0f, lfo2Rate = 0.0f, lfo2Output = 0.0f;
    std::atomic<int> pending{0};
    int armed = 0;
    std::atomic<float> running{0.0f};
    double wetTarget = 0.0, wetNow = 0.0, wetStep = 0.0;
    double dryTarget = 1.0, dryNow = 1.0, dryStep = 0.0;
    int index;
    std::atomic<int> quantiseMode{0};
    int tickCountdown = 0;
};
