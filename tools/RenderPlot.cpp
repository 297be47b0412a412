#include "tools/RenderPlot.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

constexpr int kLeft = 84;
constexpr int kRight = 96;
constexpr int kTop = 56;
constexpr int kGap = 26;
constexpr int kWaveHeight = 160;
constexpr int kSpectrumHeight = 250;
constexpr int kPlotWidth = RenderPlot::kWidth - kLeft - kRight;
constexpr double kLowHz = 20.0;
constexpr float kTopDb = 0.0f;
constexpr float kBottomDb = -90.0f;

struct Colour {
    double r, g, b;
};
constexpr Colour kBackground{0.075, 0.08, 0.095};
constexpr Colour kPanel{0.11, 0.12, 0.14};
constexpr Colour kGrid{0.22, 0.24, 0.28};
constexpr Colour kText{0.86, 0.88, 0.9};
constexpr Colour kDim{0.6, 0.63, 0.68};
constexpr Colour kLeftWave{0.35, 0.75, 1.0};
constexpr Colour kRightWave{1.0, 0.62, 0.3};

void set(cairo_t* cr, Colour c, double alpha = 1.0) {
    cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha);
}

void text(cairo_t* cr, double x, double y, const char* s, double size, Colour c, double alignX = 0.0,
          double alignY = 0.5) {
    cairo_set_font_size(cr, size);
    cairo_text_extents_t e;
    cairo_text_extents(cr, s, &e);
    set(cr, c);
    cairo_move_to(cr, x - e.x_bearing - e.width * alignX, y - e.y_bearing - e.height * alignY);
    cairo_show_text(cr, s);
}

void verticalText(cairo_t* cr, double x, double y, const char* s, double size, Colour c) {
    cairo_save(cr);
    cairo_translate(cr, x, y);
    cairo_rotate(cr, -M_PI / 2.0);
    text(cr, 0.0, 0.0, s, size, c, 0.5, 0.5);
    cairo_restore(cr);
}

// A perceptual dark-to-bright map (black, violet, red, orange, pale yellow) for 0..1.
Colour heat(double v) {
    static constexpr std::array<Colour, 6> kStops{{{0.0, 0.0, 0.02},
                                                   {0.17, 0.06, 0.36},
                                                   {0.5, 0.12, 0.5},
                                                   {0.85, 0.27, 0.35},
                                                   {0.99, 0.6, 0.3},
                                                   {0.99, 0.96, 0.72}}};
    v = std::clamp(v, 0.0, 1.0) * (kStops.size() - 1);
    const auto i = std::min(static_cast<std::size_t>(v), kStops.size() - 2);
    const double f = v - static_cast<double>(i);
    return {kStops[i].r + (kStops[i + 1].r - kStops[i].r) * f,
            kStops[i].g + (kStops[i + 1].g - kStops[i].g) * f,
            kStops[i].b + (kStops[i + 1].b - kStops[i].b) * f};
}

// A step of 1, 2 or 5 times a power of ten giving about `wanted` ticks over `span`.
double niceStep(double span, int wanted) {
    const double raw = span / wanted;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0})
        if (raw <= m * power) return m * power;
    return 10.0 * power;
}

void panelFrame(cairo_t* cr, int y, int height) {
    set(cr, kPanel);
    cairo_rectangle(cr, kLeft, y, kPlotWidth, height);
    cairo_fill(cr);
}

void timeGrid(cairo_t* cr, int y, int height, double seconds, bool labels) {
    const double step = niceStep(seconds, 12);
    cairo_set_line_width(cr, 1.0);
    for (double t = 0.0; t <= seconds + 1e-9; t += step) {
        const double x = std::floor(kLeft + t / seconds * kPlotWidth) + 0.5;
        set(cr, kGrid, 0.8);
        cairo_move_to(cr, x, y);
        cairo_line_to(cr, x, y + height);
        cairo_stroke(cr);
        if (labels) {
            char s[32];
            std::snprintf(s, sizeof s, step < 1.0 ? "%.2f" : "%.0f", t);
            text(cr, x, y + height + 12, s, 11.0, kDim, 0.5, 0.5);
        }
    }
}

void waveformPanel(cairo_t* cr, const SignalSketch& sketch, int y, const char* title, double seconds) {
    panelFrame(cr, y, kWaveHeight);
    timeGrid(cr, y, kWaveHeight, seconds, false);
    // Left channel in the upper lane, right in the lower, so a stereo effect shows as a difference of shape.
    constexpr double kLane = kWaveHeight / 2.0;
    constexpr double kScale = kLane / 2.0 - 5.0;
    cairo_set_line_width(cr, 1.0);
    for (int channel = 0; channel < 2; ++channel) {
        const double mid = y + kLane * channel + kLane / 2.0;
        for (double a : {-1.0, 0.0, 1.0}) {
            const double py = std::floor(mid - a * kScale) + 0.5;
            set(cr, kGrid, a == 0.0 ? 1.0 : 0.5);
            cairo_move_to(cr, kLeft, py);
            cairo_line_to(cr, kLeft + kPlotWidth, py);
            cairo_stroke(cr);
            // Only the outer edges carry +1 and -1, where the two lanes meet the labels would collide.
            if ((channel == 0 && a >= 0.0) || (channel == 1 && a <= 0.0))
                text(cr, kLeft - 6, py, a > 0.0 ? "+1" : (a < 0.0 ? "-1" : "0"), 9.0, kDim, 1.0, 0.5);
        }
        const Colour colour = channel == 0 ? kLeftWave : kRightWave;
        set(cr, colour, 0.9);
        for (int c = 0; c < sketch.columns(); ++c) {
            const auto& e = sketch.extremes(c);
            if (e.empty) continue;
            const double lo = std::clamp(channel == 0 ? e.minLeft : e.minRight, -1.0f, 1.0f);
            const double hi = std::clamp(channel == 0 ? e.maxLeft : e.maxRight, -1.0f, 1.0f);
            cairo_rectangle(cr, kLeft + c, mid - hi * kScale, 1.0, std::max(1.0, (hi - lo) * kScale));
        }
        cairo_fill(cr);
        text(cr, kLeft + kPlotWidth - 8, mid - kLane / 2.0 + 10, channel == 0 ? "left" : "right", 11.0,
             colour, 1.0, 0.5);
    }
    text(cr, kLeft + 8, y + 10, title, 13.0, kText, 0.0, 0.5);
    verticalText(cr, 22, y + kWaveHeight / 2.0, "amplitude", 12.0, kDim);
}

void spectrogramPanel(cairo_t* cr, const SignalSketch& sketch, int y, const char* title, double seconds,
                      double rate) {
    const double nyquist = rate / 2.0;
    const double logSpan = std::log(nyquist / kLowHz);
    cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kPlotWidth, kSpectrumHeight);
    const int stride = cairo_image_surface_get_stride(image);
    unsigned char* pixels = cairo_image_surface_get_data(image);
    cairo_surface_flush(image);
    const double binHz = rate / SignalSketch::kFftSize;
    for (int row = 0; row < kSpectrumHeight; ++row) {
        // Each pixel row covers a band on a log axis; take the loudest bin inside it.
        const double fHigh = kLowHz * std::exp(logSpan * (kSpectrumHeight - row) / kSpectrumHeight);
        const double fLow = kLowHz * std::exp(logSpan * (kSpectrumHeight - row - 1) / kSpectrumHeight);
        const int kLow = std::clamp(static_cast<int>(std::floor(fLow / binHz + 0.5)), 0, sketch.bins() - 1);
        const int kHigh =
            std::clamp(static_cast<int>(std::floor(fHigh / binHz + 0.5)), kLow, sketch.bins() - 1);
        auto* line = reinterpret_cast<uint32_t*>(pixels + row * stride);
        for (int c = 0; c < kPlotWidth && c < sketch.columns(); ++c) {
            const float* s = sketch.spectrum(c);
            float db = s[kLow];
            for (int k = kLow + 1; k <= kHigh; ++k)
                db = std::max(db, s[k]);
            const Colour h = heat((db - kBottomDb) / (kTopDb - kBottomDb));
            line[c] = (static_cast<uint32_t>(h.r * 255.0) << 16) | (static_cast<uint32_t>(h.g * 255.0) << 8) |
                      static_cast<uint32_t>(h.b * 255.0);
        }
    }
    cairo_surface_mark_dirty(image);
    cairo_set_source_surface(cr, image, kLeft, y);
    cairo_paint(cr);
    cairo_surface_destroy(image);

    timeGrid(cr, y, kSpectrumHeight, seconds, false);
    cairo_set_line_width(cr, 1.0);
    for (double f : {50.0, 100.0, 200.0, 500.0, 1000.0, 2000.0, 5000.0, 10000.0, 20000.0, 50000.0}) {
        if (f >= nyquist) break;
        const double py = std::floor(y + kSpectrumHeight * (1.0 - std::log(f / kLowHz) / logSpan)) + 0.5;
        set(cr, kGrid, 0.7);
        cairo_move_to(cr, kLeft, py);
        cairo_line_to(cr, kLeft + kPlotWidth, py);
        cairo_stroke(cr);
        char s[16];
        if (f >= 1000.0)
            std::snprintf(s, sizeof s, "%gk", f / 1000.0);
        else
            std::snprintf(s, sizeof s, "%g", f);
        text(cr, kLeft - 6, py, s, 10.0, kDim, 1.0, 0.5);
    }
    text(cr, kLeft + 8, y + 12, title, 13.0, kText, 0.0, 0.5);
    verticalText(cr, 22, y + kSpectrumHeight / 2.0, "frequency (Hz)", 12.0, kDim);
}

void colourBar(cairo_t* cr, int y, int height) {
    const int x = kLeft + kPlotWidth + 22;
    constexpr int kBarWidth = 14;
    for (int i = 0; i < height; ++i) {
        set(cr, heat(1.0 - static_cast<double>(i) / (height - 1)));
        cairo_rectangle(cr, x, y + i, kBarWidth, 1);
        cairo_fill(cr);
    }
    for (float db = kTopDb; db >= kBottomDb; db -= 15.0f) {
        const double py = y + (kTopDb - db) / (kTopDb - kBottomDb) * (height - 1);
        char s[16];
        std::snprintf(s, sizeof s, "%.0f", db);
        text(cr, x + kBarWidth + 4, py, s, 10.0, kDim, 0.0, 0.5);
    }
    text(cr, x + kBarWidth / 2.0, y - 12, "dBFS", 11.0, kDim, 0.5, 0.5);
}

} // namespace

RenderPlot::RenderPlot(int64_t length, double sampleRate)
    : frames(length), rate(sampleRate), input(length, kPlotWidth), output(length, kPlotWidth) {}

bool RenderPlot::write(const std::string& path, const std::string& title, std::string& error) {
    input.finish();
    output.finish();
    const double seconds = std::max(static_cast<double>(frames) / rate, 1e-6);
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
    cairo_t* cr = cairo_create(surface);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    set(cr, kBackground);
    cairo_paint(cr);
    text(cr, kLeft, 26, title.c_str(), 16.0, kText, 0.0, 0.5);

    int y = kTop;
    waveformPanel(cr, input, y, "Input", seconds);
    y += kWaveHeight + kGap;
    waveformPanel(cr, output, y, "Output", seconds);
    y += kWaveHeight + kGap;
    const int spectraTop = y;
    spectrogramPanel(cr, input, y, "Input spectrogram", seconds, rate);
    y += kSpectrumHeight + kGap;
    spectrogramPanel(cr, output, y, "Output spectrogram", seconds, rate);
    colourBar(cr, spectraTop, y + kSpectrumHeight - spectraTop);
    y += kSpectrumHeight;
    timeGrid(cr, y - kSpectrumHeight, kSpectrumHeight, seconds, true);
    text(cr, kLeft + kPlotWidth / 2.0, y + 34, "time (s)", 12.0, kDim, 0.5, 0.5);

    cairo_destroy(cr);
    const cairo_status_t status = cairo_surface_write_to_png(surface, path.c_str());
    cairo_surface_destroy(surface);
    // Give back the font caches Cairo and Fontconfig keep for the process; both set themselves up again if
    // another plot is drawn, and leak checkers stay quiet.
    cairo_debug_reset_static_data();
    FcFini();
    if (status != CAIRO_STATUS_SUCCESS) {
        error = std::string("cannot write the plot: ") + cairo_status_to_string(status);
        return false;
    }
    return true;
}
