#include "tools/DemoLoop.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;

double noteFrequency(int midiNote) {
    return 440.0 * std::pow(2.0, (midiNote - 69) / 12.0);
}

} // namespace

DemoLoop::DemoLoop(double sampleRate, double tempo)
    : rate(sampleRate), samplesPerBeat(sampleRate * 60.0 / tempo) {
    const auto frames = static_cast<std::size_t>(std::llround(kBeats * samplesPerBeat));
    left.assign(frames, 0.0f);
    right.assign(frames, 0.0f);

    // Kick on the downbeats with a push before the third beat of the second bar.
    for (double beat : {0.0, 1.75, 2.0, 4.0, 5.75, 6.0, 6.5})
        kick(beat, beat == 0.0 || beat == 4.0 ? 1.0f : 0.85f);
    for (double beat : {1.0, 3.0, 5.0, 7.0})
        snare(beat, 1.0f);
    snare(7.75, 0.35f); // ghost note leading back to the top
    for (int step = 0; step < kBeats * 4; ++step) {
        const double beat = step * 0.25;
        const bool open = step % 8 == 6;
        const float accent = step % 2 == 0 ? 0.75f : 0.4f;
        hat(beat, open ? 0.6f : accent, open);
    }
    // A minor line in eighths and sixteenths, root A1.
    struct Note {
        double beat, beats;
        int note;
        float velocity;
    };
    static constexpr Note kLine[] = {
        {0.0, 0.75, 33, 1.0f},  {0.75, 0.25, 33, 0.6f}, {1.5, 0.5, 45, 0.8f},   {2.0, 0.5, 36, 0.9f},
        {2.5, 0.5, 33, 0.7f},   {3.0, 0.5, 40, 0.85f},  {3.5, 0.5, 43, 0.7f},   {4.0, 0.75, 29, 1.0f},
        {4.75, 0.25, 29, 0.6f}, {5.5, 0.5, 41, 0.8f},   {6.0, 0.5, 31, 0.9f},   {6.5, 0.5, 43, 0.75f},
        {7.0, 0.5, 35, 0.85f},  {7.5, 0.25, 36, 0.7f},  {7.75, 0.25, 40, 0.7f},
    };
    for (const Note& n : kLine)
        bass(n.beat, n.beats, n.note, n.velocity);
    normalise();
}

void DemoLoop::render(int64_t frame, float* outLeft, float* outRight, std::size_t frames) const {
    const auto size = static_cast<int64_t>(left.size());
    auto at = static_cast<std::size_t>(((frame % size) + size) % size);
    for (std::size_t i = 0; i < frames; ++i) {
        outLeft[i] = left[at];
        outRight[i] = right[at];
        if (++at == left.size()) at = 0;
    }
}

float DemoLoop::peak() const {
    float p = 0.0f;
    for (std::size_t i = 0; i < left.size(); ++i)
        p = std::max({p, std::fabs(left[i]), std::fabs(right[i])});
    return p;
}

float DemoLoop::noise() {
    noiseState ^= noiseState << 13;
    noiseState ^= noiseState >> 17;
    noiseState ^= noiseState << 5;
    return static_cast<float>(noiseState) / 2147483648.0f - 1.0f;
}

void DemoLoop::kick(double beat, float velocity) {
    std::vector<float> voice(static_cast<std::size_t>(0.45 * rate));
    double phase = 0.0;
    for (std::size_t i = 0; i < voice.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        const double frequency = 45.0 + 105.0 * std::exp(-t * 28.0);
        phase += kTwoPi * frequency / rate;
        const double body = std::sin(phase) * std::exp(-t * 7.0);
        const double click = std::exp(-t * 900.0) * 0.5;
        voice[i] = static_cast<float>(velocity * std::tanh(1.6 * (body + click)));
    }
    add(static_cast<std::size_t>(std::llround(beat * samplesPerBeat)), voice, 0.0f);
}

void DemoLoop::snare(double beat, float velocity) {
    std::vector<float> voice(static_cast<std::size_t>(0.3 * rate));
    // Noise through a two-pole band-pass near 3 kHz, over a short 190 Hz body.
    const double w = kTwoPi * 3000.0 / rate;
    const double r = 0.93;
    const double a1 = 2.0 * r * std::cos(w), a2 = -r * r;
    double y1 = 0.0, y2 = 0.0;
    for (std::size_t i = 0; i < voice.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        const double y = (1.0 - r) * noise() + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        const double rattle = 4.0 * y * std::exp(-t * 18.0);
        const double body = 0.6 * std::sin(kTwoPi * 190.0 * t) * std::exp(-t * 30.0);
        voice[i] = static_cast<float>(velocity * 0.7 * (rattle + body));
    }
    add(static_cast<std::size_t>(std::llround(beat * samplesPerBeat)), voice, 0.1f);
}

void DemoLoop::hat(double beat, float velocity, bool open) {
    std::vector<float> voice(static_cast<std::size_t>((open ? 0.35 : 0.08) * rate));
    const double decay = open ? 9.0 : 60.0;
    float previous = 0.0f;
    for (std::size_t i = 0; i < voice.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        const float n = noise();
        const float high = n - previous; // first difference: the bright part of the noise
        previous = n;
        voice[i] = static_cast<float>(velocity * 0.18 * high * std::exp(-t * decay));
    }
    add(static_cast<std::size_t>(std::llround(beat * samplesPerBeat)), voice, open ? 0.35f : -0.3f);
}

void DemoLoop::bass(double beat, double beats, int midiNote, float velocity) {
    const double gate = beats * samplesPerBeat * 0.9;
    const double release = 0.02 * rate;
    std::vector<float> voice(static_cast<std::size_t>(gate + release));
    const double frequency = noteFrequency(midiNote);
    double phase = 0.0, detuned = 0.3;
    double low = 0.0, band = 0.0;
    for (std::size_t i = 0; i < voice.size(); ++i) {
        const double t = static_cast<double>(i) / rate;
        phase += frequency / rate;
        phase -= std::floor(phase);
        detuned += frequency * 1.004 / rate;
        detuned -= std::floor(detuned);
        // Two saws a few cents apart through a state-variable low-pass whose cutoff falls after the attack.
        const double saw = (2.0 * phase - 1.0) + (2.0 * detuned - 1.0);
        const double cutoff = 120.0 + 1600.0 * std::exp(-t * 14.0);
        const double f = 2.0 * std::sin(std::numbers::pi * std::min(cutoff / rate, 0.2));
        low += f * band;
        const double high = 0.5 * saw - low - 0.5 * band;
        band += f * high;
        const double attack = std::min(1.0, static_cast<double>(i) / (0.003 * rate));
        const double fall = static_cast<double>(i) < gate ? 1.0 : std::max(0.0, 1.0 - (i - gate) / release);
        voice[i] = static_cast<float>(velocity * 0.55 * std::tanh(1.5 * low) * attack * fall);
    }
    add(static_cast<std::size_t>(std::llround(beat * samplesPerBeat)), voice, 0.0f);
}

void DemoLoop::add(std::size_t start, const std::vector<float>& voice, float pan) {
    const float gainLeft = std::sqrt(0.5f * (1.0f - pan));
    const float gainRight = std::sqrt(0.5f * (1.0f + pan));
    const std::size_t size = left.size();
    std::size_t at = start % size;
    for (float v : voice) {
        left[at] += v * gainLeft;
        right[at] += v * gainRight;
        if (++at == size) at = 0;
    }
}

void DemoLoop::normalise() {
    const float p = peak();
    if (p <= 0.0f) return;
    const float gain = kPeak / p;
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] *= gain;
        right[i] *= gain;
    }
}
