#include "tools/ContentAudit.h"

#include "engine/AFRandom.h"
#include "engine/AFUniClient.h"
#include "host/AFPluginTypes.h"
#include "tools/DemoLoop.h"
#include "tools/JsonValue.h"
#include "tools/PresetCompiler.h"
#include "tools/RenderHost.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr int kRate = 48000;
constexpr double kTempo = 120.0;
constexpr int kBlock = 512;
constexpr int32_t kSeed = 1;
constexpr double kWindowSeconds = 0.25;
// The gate's fade: a slot is seen running from the start of its fade in and stopped after its fade out, one
// block at most from where the fade lies.
constexpr double kFadeSeconds = 0.01;
constexpr float kSilenceFloor = 1e-6f; // -120 dBFS
constexpr double kQuietInput = 1e-6;   // mean square of a window the input is taken to play in

// The Control sweep of an effect preset: rest, up over two seconds, held, back down, rest.
constexpr double kControlSeconds = 7.0;
constexpr double kControlUp = 0.5;
constexpr double kControlHeldFrom = 2.5;
constexpr double kControlHeldTo = 4.5;
constexpr double kControlDown = 6.5;
// The Dictator sweep: rest, then sixteen nodes over eight seconds, then the last node held.
constexpr double kDictatorSeconds = 9.5;
constexpr double kDictatorFrom = 0.5;
constexpr double kDictatorTo = 8.5;

double controlAt(double t) {
    if (t < kControlUp || t >= kControlDown) return 0.0;
    if (t < kControlHeldFrom) return (t - kControlUp) / (kControlHeldFrom - kControlUp);
    if (t < kControlHeldTo) return 1.0;
    return (kControlDown - t) / (kControlDown - kControlHeldTo);
}

double dictatorAt(double t) {
    return std::clamp((t - kDictatorFrom) / (kDictatorTo - kDictatorFrom), 0.0, 1.0);
}

// The offline host under this maker's name, so no user's default preset is loaded into the instance.
intptr_t answer(AFPluginBase* plugin, int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
    if (opcode == audioMasterGetVendorString && ptr != nullptr) {
        std::snprintf(static_cast<char*>(ptr), kHostTextSize, "%s", AFIdentity::kVendor);
        return 1;
    }
    return RenderHost::callback(plugin, opcode, index, value, ptr, opt);
}

// An A major chord of band-limited saws, A2 to E4, peaking at -12 dBFS, the same on both channels.
std::vector<float> chord(std::size_t frames) {
    const double notes[] = {110.0, 220.0, 277.1826, 329.6276};
    std::vector<double> sum(frames, 0.0);
    for (const double f : notes) {
        const double step = 2.0 * std::numbers::pi * f / kRate;
        const int harmonics = static_cast<int>(8000.0 / f);
        for (std::size_t i = 0; i < frames; ++i) {
            // sin(k x) by the Chebyshev recurrence, one sine and one cosine per sample.
            const double x = std::fmod(step * static_cast<double>(i), 2.0 * std::numbers::pi);
            const double c = 2.0 * std::cos(x);
            double before = 0.0, current = std::sin(x), saw = 0.0;
            for (int k = 1; k <= harmonics; ++k) {
                saw += current / k;
                const double next = c * current - before;
                before = current;
                current = next;
            }
            sum[i] += saw;
        }
    }
    double peak = 0.0;
    for (const double s : sum)
        peak = std::max(peak, std::abs(s));
    const double gain = std::pow(10.0, -12.0 / 20.0) / peak;
    std::vector<float> out(frames);
    for (std::size_t i = 0; i < frames; ++i)
        out[i] = static_cast<float>(sum[i] * gain);
    return out;
}

double decibels(double ratio) {
    return ratio > 0.0 ? 10.0 * std::log10(ratio) : -200.0;
}

float largestStep(const std::vector<float>& left, const std::vector<float>& right, std::ptrdiff_t from,
                  std::ptrdiff_t to) {
    from = std::max<std::ptrdiff_t>(from, 1);
    to = std::min<std::ptrdiff_t>(to, static_cast<std::ptrdiff_t>(left.size()));
    float step = 0.0f;
    for (std::ptrdiff_t i = from; i < to; ++i) {
        const auto n = static_cast<std::size_t>(i);
        step = std::max({step, std::abs(left[n] - left[n - 1]), std::abs(right[n] - right[n - 1])});
    }
    return step;
}

} // namespace

ContentAudit::ContentAudit(fs::path contentFolder) : folder(std::move(contentFolder)) {
    std::string pattern = (fs::temp_directory_path() / "orvanto-audit-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a scratch folder");
    scratch = pattern;

    const auto frames = static_cast<std::size_t>(std::llround(kDictatorSeconds * kRate));
    Signal loop{"demo loop", std::vector<float>(frames), std::vector<float>(frames)};
    DemoLoop(kRate, kTempo).render(0, loop.left.data(), loop.right.data(), frames);
    signals.push_back(std::move(loop));
    std::vector<float> tones = chord(frames);
    signals.push_back(Signal{"chord", tones, tones});
}

ContentAudit::~ContentAudit() {
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
}

std::vector<fs::path> ContentAudit::sources(const std::vector<std::string>& filters) const {
    std::vector<fs::path> found;
    for (const char* kind : {"Effect Presets", "Global Presets", "Dictator Presets"}) {
        std::error_code error;
        for (const auto& entry : fs::recursive_directory_iterator(folder / kind, error)) {
            if (!entry.is_regular_file() || entry.path().extension() != ".json") continue;
            const std::string name = fs::relative(entry.path(), folder).string();
            const bool wanted = filters.empty() || std::any_of(filters.begin(), filters.end(), [&](auto& f) {
                                    return name.find(f) != std::string::npos;
                                });
            if (wanted) found.push_back(entry.path());
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string ContentAudit::compiled(const JsonValue& source, const std::string& extension) {
    const fs::path path = scratch / (std::to_string(counter++) + "." + extension);
    PresetCompiler::compile(source, path.string());
    return path.string();
}

ContentAudit::Result ContentAudit::audit(const fs::path& source) {
    const JsonValue json = JsonValue::fromFile(source.string());
    Result result;
    result.name = fs::relative(source, folder).replace_extension().string();
    const JsonValue* silences = json.find("silences");
    result.silences = silences != nullptr && silences->boolean;
    const JsonValue* format = json.find("format");
    const std::string kind = format != nullptr ? format->text : "";
    try {
        if (kind == "orvanto-effect-preset") {
            const std::string preset = compiled(json, "afo");
            for (const Signal& s : signals)
                play(s, Sweep::Control, preset, "", result);
        } else if (kind == "orvanto-global-preset") {
            const std::string preset = compiled(json, "afog");
            const Sweep sweep = source.stem() == "default" ? Sweep::AllControls : Sweep::Dictator;
            for (const Signal& s : signals)
                play(s, sweep, preset, "", result);
        } else if (kind == "orvanto-dictator-preset") {
            // Dictator rows play over the content a fresh instance starts with.
            if (defaultGlobal.empty())
                defaultGlobal = compiled(
                    JsonValue::fromFile((folder / "Global Presets" / "default.json").string()), "afog");
            const std::string rows = compiled(json, "dic");
            for (const Signal& s : signals)
                play(s, Sweep::Dictator, defaultGlobal, rows, result);
        } else {
            throw std::runtime_error("not a preset source");
        }
    } catch (const std::runtime_error& e) {
        throw std::runtime_error(source.string() + ": " + e.what());
    }
    return result;
}

void ContentAudit::play(const Signal& input, Sweep sweep, const std::string& preset,
                        const std::string& dictator, Result& result) {
    const bool controls = sweep != Sweep::Dictator;
    const double seconds = controls ? kControlSeconds : kDictatorSeconds;
    const auto frames = static_cast<std::size_t>(std::llround(seconds * kRate));
    RenderHost::Transport transport;
    transport.sampleRate = kRate;
    transport.tempo = kTempo;
    RenderHost host(transport);
    auto client = std::make_unique<AFUniClient>(&answer, &host);
    AFRandom::seed(kSeed);
    client->setSampleRate(static_cast<float>(kRate));
    client->setBlockSize(kBlock);
    client->resume();
    if (!client->loadPreset(preset, sweep == Sweep::Control ? 0 : -1, true))
        throw std::runtime_error("the engine refuses the compiled preset");
    if (!dictator.empty() && !client->loadDictatorPreset(dictator, true))
        throw std::runtime_error("the engine refuses the compiled Dictator rows");

    const int swept = sweep == Sweep::AllControls ? AFUniClient::kSlots : sweep == Sweep::Control ? 1 : 0;
    std::vector<float> outLeft(frames), outRight(frames);
    std::vector<float> blockLeft(kBlock), blockRight(kBlock);
    std::vector<std::pair<std::size_t, int>> gateChanges; // frame, slot
    bool running[AFUniClient::kSlots] = {};
    for (std::size_t start = 0; start < frames; start += kBlock) {
        const int n = static_cast<int>(std::min<std::size_t>(kBlock, frames - start));
        const double t = static_cast<double>(start) / kRate;
        if (sweep == Sweep::Dictator)
            client->setParameter(AFUniClient::kDictator, static_cast<float>(dictatorAt(t)));
        for (int s = 0; s < swept; ++s)
            client->setParameter(s, static_cast<float>(controlAt(t)));
        std::copy_n(input.left.begin() + static_cast<std::ptrdiff_t>(start), n, blockLeft.begin());
        std::copy_n(input.right.begin() + static_cast<std::ptrdiff_t>(start), n, blockRight.begin());
        float* inputs[2] = {blockLeft.data(), blockRight.data()};
        float* outputs[2] = {outLeft.data() + start, outRight.data() + start};
        client->processReplacing(inputs, outputs, n);
        host.advance(n);
        for (int s = 0; s < AFUniClient::kSlots; ++s) {
            const bool now = client->getSlot(s).isRunning();
            if (start > 0 && now != running[s]) gateChanges.emplace_back(start, s);
            running[s] = now;
        }
    }
    client->suspend();

    auto fault = [&](bool bad, const std::string& what, std::size_t frame) {
        if (!bad) return;
        char line[160];
        std::snprintf(line, sizeof line, "%s at %.2f s (%s)", what.c_str(),
                      static_cast<double>(frame) / kRate, input.name);
        result.faults.emplace_back(line);
    };
    bool finite = true;
    double peak = 0.0;
    std::size_t firstBad = 0, peakAt = 0;
    for (std::vector<float>* channel : {&outLeft, &outRight})
        for (std::size_t i = 0; i < frames; ++i) {
            float& x = (*channel)[i];
            if (!std::isfinite(x)) {
                firstBad = finite ? i : std::min(firstBad, i);
                finite = false;
                x = 0.0f;
            }
            if (std::abs(x) > peak) {
                peak = std::abs(x);
                peakAt = i;
            }
        }
    const double peakDb = 20.0 * std::log10(std::max(peak, 1e-10));

    const auto window = static_cast<std::size_t>(kWindowSeconds * kRate);
    // The change is taken over the whole time the sweep is up, since capturing effects change late.
    const double upFrom = controls ? kControlUp : kDictatorFrom;
    const double upTo = controls ? kControlDown : kDictatorSeconds;
    double drop = -200.0;
    std::size_t dropAt = 0;
    double upInput = 0.0, upChange = 0.0;
    for (std::size_t w = 0; w + window <= frames; w += window) {
        double in = 0.0, out = 0.0, change = 0.0;
        for (std::size_t i = w; i < w + window; ++i) {
            in += input.left[i] * input.left[i] + input.right[i] * input.right[i];
            out += outLeft[i] * outLeft[i] + outRight[i] * outRight[i];
            const double dl = outLeft[i] - input.left[i], dr = outRight[i] - input.right[i];
            change += dl * dl + dr * dr;
        }
        if (in < kQuietInput * 2.0 * static_cast<double>(window)) continue;
        const double fall = out > 0.0 ? std::min(decibels(in / out), 200.0) : 200.0;
        if (fall > drop) {
            drop = fall;
            dropAt = w;
        }
        const double t = static_cast<double>(w) / kRate;
        if (t >= upFrom && t + kWindowSeconds <= upTo) {
            upInput += in;
            upChange += change;
        }
    }

    const double difference = upInput > 0.0 ? decibels(upChange / upInput) : 200.0;

    std::size_t run = 0, longest = 0, silentAt = 0;
    for (std::size_t i = 0; i < frames; ++i) {
        run = std::abs(outLeft[i]) < kSilenceFloor && std::abs(outRight[i]) < kSilenceFloor ? run + 1 : 0;
        if (run > longest) {
            longest = run;
            silentAt = i + 1 - run;
        }
    }
    const double silence = static_cast<double>(longest) / kRate;

    double click = 0.0;
    std::size_t clickAt = 0;
    int clickSlot = 0;
    const auto near = static_cast<std::ptrdiff_t>(kWindowSeconds * kRate);
    const auto fadeSpan = static_cast<std::ptrdiff_t>(kFadeSeconds * kRate) + kBlock;
    for (const auto& [change, slot] : gateChanges) {
        const auto at = static_cast<std::ptrdiff_t>(change);
        const float out = largestStep(outLeft, outRight, at - fadeSpan, at + fadeSpan);
        const float in = largestStep(input.left, input.right, at - near, at + near);
        const double ratio = static_cast<double>(out) / std::max(static_cast<double>(in), 1e-9);
        if (ratio > click) {
            click = ratio;
            clickAt = change;
            clickSlot = slot;
        }
    }

    fault(!finite, "non-finite", firstBad);
    fault(peakDb > kMaxPeakDb, "peak", peakAt);
    fault(!result.silences && drop > kMaxDropDb, "drop", dropAt);
    fault(!result.silences && silence > kMaxSilenceSeconds, "silence", silentAt);
    fault(difference < kMinDifferenceDb, "no change", static_cast<std::size_t>(upFrom * kRate));
    fault(click > kMaxClickRatio, "click of slot " + std::to_string(clickSlot + 1), clickAt);
    result.finite = result.finite && finite;
    result.peakDb = std::max(result.peakDb, peakDb);
    result.dropDb = std::max(result.dropDb, drop);
    result.silenceSeconds = std::max(result.silenceSeconds, silence);
    result.differenceDb = std::min(result.differenceDb, difference);
    result.clickRatio = std::max(result.clickRatio, click);
}

std::string ContentAudit::tableHeader() {
    return "| preset | peak dBFS | drop dB | silence ms | change dB | click x | faults |\n"
           "|---|---:|---:|---:|---:|---:|---|\n";
}

std::string ContentAudit::tableRow(const Result& r) {
    std::string faults;
    for (const auto& f : r.faults)
        faults += (faults.empty() ? "" : ", ") + f;
    char line[1024];
    std::snprintf(line, sizeof line, "| %s%s | %.1f | %.1f | %.0f | %.1f | %.2f | %s |\n", r.name.c_str(),
                  r.silences ? " (silences)" : "", r.peakDb, r.dropDb, r.silenceSeconds * 1000.0,
                  r.differenceDb, r.clickRatio, faults.empty() ? "ok" : faults.c_str());
    return line;
}
