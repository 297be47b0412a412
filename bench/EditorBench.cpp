#include "BenchRig.h"

#include "editor/AFEditorHost.h"
#include "editor/AFFrame.h"
#include "editor/AFLayout.h"
#include "editor/AFUniClientEditor.h"
#include "editor/ModulatorView.h"
#include "engine/KnobEngine.h"
#include "modulation/AFLfo.h"

#include <cairo.h>

#include <ctime>

namespace {

// One editor timer period of audio: 30 ms at 48 kHz in 480-sample blocks.
constexpr int kTickMs = AFUniClientEditor::kTimerPeriodMs;
constexpr int kTickBlocks = 3;
constexpr int kBlock = 480;

// CPU time of this thread: what the GUI thread spends, whatever else the machine runs.
double threadMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

struct Backbuffer {
    cairo_surface_t* surface = cairo_image_surface_create(
        CAIRO_FORMAT_RGB24, static_cast<int>(AFLayout::kWidth), static_cast<int>(AFLayout::kHeight));
    ~Backbuffer() { cairo_surface_destroy(surface); }
    void paint(AFFrame& frame, bool all) {
        cairo_t* cr = cairo_create(surface);
        frame.paint(cr, all);
        cairo_destroy(cr);
    }
};

// Editor open (images decoded, view tree built) to the whole first frame drawn.
void BM_EditorOpenToFirstFrame(benchmark::State& state) {
    bench::Rig rig(kBlock);
    AFEditorHost host;
    for (auto _ : state) {
        AFUniClientEditor editor(*rig.client, host);
        editor.open();
        Backbuffer buffer;
        editor.idle(0.0);
        buffer.paint(*editor.getFrame(), true);
    }
}
BENCHMARK(BM_EditorOpenToFirstFrame)->Unit(benchmark::kMillisecond)->UseRealTime();

// The GUI thread's work per timer period: the timer, the idle pass and redrawing what changed. The audio of
// the period runs outside the timing. gui_cpu_percent is that work as a share of one core.
// With `sweepDictator` the host moves the Dictator a little every period, so its position line moves on the
// page shown.
void editorTicks(benchmark::State& state, bool running, const char* page = "main",
                 bool sweepDictator = false) {
    bench::Rig rig(kBlock);
    if (running)
        for (int slot = 0; slot < AFUniClient::kSlots; ++slot) {
            rig.runSlot(slot, rig.client->getSlot(slot).getEffectType(), true);
            const int base = AFUniClient::kSlotBlockStart + KnobEngine::kParameterCount * slot;
            rig.client->setParameter(base + KnobEngine::kLfoAmount, 0.6f);
            rig.client->setParameter(base + KnobEngine::kLfo2Amount, 0.4f);
            rig.client->setParameter(base + KnobEngine::kEfAmount, 0.5f);
            rig.client->setParameter(base + KnobEngine::kLfoRate, 0.7f);
            if (std::string(page) == "modulators") rig.client->getSlot(slot).getLfo(1)->setWaveform(13);
        }
    if (sweepDictator)
        for (int row = 0; row < AFUniClient::kSlots; ++row) {
            rig.client->getDictator().randomise(row);
            rig.client->getDictator().rebuild(row);
        }
    for (int i = 0; i < 64; ++i)
        rig.step();
    AFEditorHost host;
    AFUniClientEditor editor(*rig.client, host);
    editor.open();
    editor.showPage(page);
    Backbuffer buffer;
    buffer.paint(*editor.getFrame(), true);
    double now = 0.0;
    float dictator = 0.0f;
    double busy = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        for (int i = 0; i < kTickBlocks; ++i)
            rig.step();
        now += kTickMs;
        if (sweepDictator) {
            dictator = dictator >= 1.0f ? 0.0f : dictator + 0.01f;
            rig.client->setParameter(AFUniClient::kDictator, dictator);
        }
        state.ResumeTiming();
        const double start = threadMs();
        editor.idle(now);
        buffer.paint(*editor.getFrame(), false);
        busy += threadMs() - start;
    }
    state.counters["gui_cpu_percent"] = 100.0 * busy / (static_cast<double>(state.iterations()) * kTickMs);
}

void BM_EditorTickAllSlotsModulated(benchmark::State& state) {
    editorTicks(state, true);
}
BENCHMARK(BM_EditorTickAllSlotsModulated)->Unit(benchmark::kMicrosecond);

void BM_EditorTickModulatorPage(benchmark::State& state) {
    editorTicks(state, true, "modulators");
}
BENCHMARK(BM_EditorTickModulatorPage)->Unit(benchmark::kMicrosecond);

void BM_EditorTickIdle(benchmark::State& state) {
    editorTicks(state, false);
}
BENCHMARK(BM_EditorTickIdle)->Unit(benchmark::kMicrosecond);

// The Dictator page with every row holding key frames while the Dictator sweeps and all slots run.
void BM_EditorTickDictatorPageSweeping(benchmark::State& state) {
    editorTicks(state, true, "dictator", true);
}
BENCHMARK(BM_EditorTickDictatorPageSweeping)->Unit(benchmark::kMicrosecond);

} // namespace
