#include "editor/art/AFArtwork.h"

#include "editor/AFBitmapId.h"
#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "effects/framework/EffectFactory.h"
#include "modulation/AFLfo.h"
#include "modulation/ControlCurveBank.h"

#include <cairo.h>

#include <array>
#include <cmath>
#include <functional>
#include <string>

namespace {

constexpr double kPi = 3.14159265358979;
// Knobs sweep 270 degrees from lower left to lower right.
constexpr double kStartAngle = 0.75 * kPi;
constexpr double kSweep = 1.5 * kPi;

using Painter = std::function<void(cairo_t*, double width, double height)>;

cairo_status_t appendBytes(void* closure, const unsigned char* data, unsigned int length) {
    auto* out = static_cast<std::vector<uint8_t>*>(closure);
    out->insert(out->end(), data, data + length);
    return CAIRO_STATUS_SUCCESS;
}

// Paints at logical size width x height into a surface of twice that, and encodes it.
std::vector<uint8_t> paint(double width, double height, const Painter& painter) {
    const int w = static_cast<int>(std::lround(width * 2.0));
    const int h = static_cast<int>(std::lround(height * 2.0));
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
    cairo_t* cr = cairo_create(surface);
    cairo_scale(cr, 2.0, 2.0);
    painter(cr, width, height);
    cairo_destroy(cr);
    std::vector<uint8_t> png;
    cairo_surface_write_to_png_stream(surface, appendBytes, &png);
    cairo_surface_destroy(surface);
    return png;
}

// A strip of 127 frames, one under the other; `frame` draws one frame at (0, 0) for a value from 0 to 1.
std::vector<uint8_t> strip(double size, const std::function<void(cairo_t*, double, float)>& frame) {
    return paint(size, size * AFBitmapId::kFrames, [&](cairo_t* cr, double, double) {
        for (int i = 0; i < AFBitmapId::kFrames; ++i) {
            cairo_save(cr);
            cairo_translate(cr, 0.0, i * size);
            frame(cr, size, static_cast<float>(i) / static_cast<float>(AFBitmapId::kFrames - 1));
            cairo_restore(cr);
        }
    });
}

void colour(cairo_t* cr, uint32_t rgb, double alpha = 1.0) {
    AFTextPainter::setColour(cr, rgb, alpha);
}

double angleOf(float value) {
    return kStartAngle + kSweep * value;
}

// A knob: a dark body with a lit rim, the value arc in `arc` and a pointer.
void knobFrame(cairo_t* cr, double size, float value, uint32_t arc, double bodyRatio, double arcWidth) {
    const double c = size * 0.5;
    const double arcRadius = c - arcWidth * 0.5 - 1.0;
    const double body = c * bodyRatio;
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND);
    cairo_set_line_width(cr, arcWidth);
    colour(cr, 0x2C313C);
    cairo_arc(cr, c, c, arcRadius, kStartAngle, kStartAngle + kSweep);
    cairo_stroke(cr);
    if (value > 0.0f) {
        colour(cr, arc);
        cairo_arc(cr, c, c, arcRadius, kStartAngle, angleOf(value));
        cairo_stroke(cr);
    }
    cairo_pattern_t* shade = cairo_pattern_create_linear(0.0, c - body, 0.0, c + body);
    cairo_pattern_add_color_stop_rgb(shade, 0.0, 0.30, 0.32, 0.37);
    cairo_pattern_add_color_stop_rgb(shade, 1.0, 0.11, 0.12, 0.15);
    cairo_arc(cr, c, c, body, 0.0, 2.0 * kPi);
    cairo_set_source(cr, shade);
    cairo_fill_preserve(cr);
    cairo_pattern_destroy(shade);
    colour(cr, 0x05060A);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    const double a = angleOf(value);
    cairo_set_line_width(cr, std::max(2.0, size * 0.05));
    colour(cr, 0xF4F6FA);
    cairo_move_to(cr, c + std::cos(a) * body * 0.25, c + std::sin(a) * body * 0.25);
    cairo_line_to(cr, c + std::cos(a) * body * 0.9, c + std::sin(a) * body * 0.9);
    cairo_stroke(cr);
}

// A modulation marker riding outside the Control's arc at `radius`.
void overlayFrame(cairo_t* cr, double size, float value, uint32_t rgb, double radius) {
    const double c = size * 0.5;
    const double a = angleOf(value);
    colour(cr, 0x000000, 0.7);
    cairo_arc(cr, c + std::cos(a) * radius, c + std::sin(a) * radius, 3.8, 0.0, 2.0 * kPi);
    cairo_fill(cr);
    colour(cr, rgb);
    cairo_arc(cr, c + std::cos(a) * radius, c + std::sin(a) * radius, 2.9, 0.0, 2.0 * kPi);
    cairo_fill(cr);
}

void panel(cairo_t* cr, const AFRect& box, uint32_t fill, uint32_t border, double radius = 4.0) {
    AFTextPainter::roundedRect(cr, box, radius);
    colour(cr, fill);
    cairo_fill_preserve(cr);
    colour(cr, border);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
}

void button(cairo_t* cr, double w, double h, const char* text, uint32_t fill, uint32_t textColour) {
    cairo_pattern_t* shade = cairo_pattern_create_linear(0.0, 0.0, 0.0, h);
    cairo_pattern_add_color_stop_rgb(shade, 0.0, ((fill >> 16) & 0xFF) / 200.0, ((fill >> 8) & 0xFF) / 200.0,
                                     (fill & 0xFF) / 200.0);
    cairo_pattern_add_color_stop_rgb(shade, 1.0, ((fill >> 16) & 0xFF) / 330.0, ((fill >> 8) & 0xFF) / 330.0,
                                     (fill & 0xFF) / 330.0);
    AFTextPainter::roundedRect(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 4.0);
    cairo_set_source(cr, shade);
    cairo_fill_preserve(cr);
    cairo_pattern_destroy(shade);
    colour(cr, 0x0A0B0F);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
    AFTextPainter::draw(cr, text, AFRect{0.0, 0.0, w, h}, h * 0.46, textColour, AFTextPainter::kCenter, true);
}

void lamp(cairo_t* cr, double size, uint32_t rgb, bool lit) {
    const double c = size * 0.5;
    if (lit) {
        cairo_pattern_t* glow = cairo_pattern_create_radial(c, c, 0.0, c, c, c);
        cairo_pattern_add_color_stop_rgba(glow, 0.0, ((rgb >> 16) & 0xFF) / 255.0,
                                          ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0, 0.9);
        cairo_pattern_add_color_stop_rgba(glow, 1.0, ((rgb >> 16) & 0xFF) / 255.0,
                                          ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0, 0.0);
        cairo_set_source(cr, glow);
        cairo_paint(cr);
        cairo_pattern_destroy(glow);
    }
    cairo_arc(cr, c, c, c * 0.55, 0.0, 2.0 * kPi);
    colour(cr, lit ? rgb : 0x2A2E38);
    cairo_fill_preserve(cr);
    colour(cr, 0x05060A);
    cairo_set_line_width(cr, 1.0);
    cairo_stroke(cr);
}

// A small glyph of one of the 20 response curves, from the curve bank itself.
void curveGlyph(cairo_t* cr, double w, double h, int curve) {
    panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x1B1F27, 0x3A404C, 2.0);
    cairo_set_line_width(cr, 1.2);
    colour(cr, AFLayout::kAccent);
    for (int i = 0; i <= 40; ++i) {
        std::array<float, ControlCurveBank::kCurveCount> out{};
        const float x = static_cast<float>(i) / 40.0f;
        ControlCurveBank::compute(x, 0.0f, out.data());
        const double px = 2.0 + x * (w - 4.0);
        const double py = h - 2.0 - std::clamp(out[static_cast<std::size_t>(curve)], 0.0f, 1.0f) * (h - 4.0);
        if (i == 0)
            cairo_move_to(cr, px, py);
        else
            cairo_line_to(cr, px, py);
    }
    cairo_stroke(cr);
}

void waveformGlyph(cairo_t* cr, double w, double h, int wave) {
    panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x1B1F27, 0x3A404C, 2.0);
    AFTextPainter::draw(cr, AFLfo::waveformName(wave), AFRect{2.0, 0.0, w - 2.0, h}, 8.0, AFLayout::kText);
}

void background(cairo_t* cr, double w, double) {
    colour(cr, AFLayout::kStage);
    cairo_paint(cr);
    cairo_pattern_t* top = cairo_pattern_create_linear(0.0, 0.0, 0.0, AFLayout::kTopBar);
    cairo_pattern_add_color_stop_rgb(top, 0.0, 0.13, 0.14, 0.18);
    cairo_pattern_add_color_stop_rgb(top, 1.0, 0.08, 0.09, 0.11);
    cairo_rectangle(cr, 0.0, 0.0, w, AFLayout::kTopBar);
    cairo_set_source(cr, top);
    cairo_fill(cr);
    cairo_pattern_destroy(top);
    for (int slot = 0; slot < 8; ++slot) {
        const AFRect r = AFLayout::slotRect(slot).inset(3.0, 0.0);
        panel(cr, r, AFLayout::kPanel, 0x2A2F3A, 6.0);
        // The slot's colour runs down its left edge, readable from the back of the stage.
        colour(cr, AFLayout::slotColour(slot), 0.85);
        cairo_rectangle(cr, r.left + 1.0, r.top + AFLayout::kHeaderHeight, 3.0, r.height() - 40.0);
        cairo_fill(cr);
    }
}

uint32_t dim(uint32_t rgb, double factor) {
    const auto part = [&](int shift) {
        return static_cast<uint32_t>(((rgb >> shift) & 0xFF) * factor) << shift;
    };
    return part(16) | part(8) | part(0);
}

} // namespace

std::vector<uint8_t> AFArtwork::render(int id) {
    using B = AFBitmapId;
    using L = AFLayout;
    if (id == B::kBackground) return paint(L::kWidth, L::kHeight, background);
    if (id >= B::kSlotHeader && id < B::kSlotHeader + 8) {
        const uint32_t c = L::slotColour(id - B::kSlotHeader);
        return paint(L::kSlotWidth - 6.0, L::kHeaderHeight, [c](cairo_t* cr, double w, double h) {
            cairo_pattern_t* shade = cairo_pattern_create_linear(0.0, 0.0, 0.0, h);
            const auto rgb = [](uint32_t v, int s) { return ((v >> s) & 0xFF) / 255.0; };
            cairo_pattern_add_color_stop_rgb(shade, 0.0, rgb(c, 16), rgb(c, 8), rgb(c, 0));
            cairo_pattern_add_color_stop_rgb(shade, 1.0, rgb(c, 16) * 0.6, rgb(c, 8) * 0.6, rgb(c, 0) * 0.6);
            AFTextPainter::roundedRect(cr, AFRect{0.0, 0.0, w, h}, 6.0);
            cairo_set_source(cr, shade);
            cairo_fill(cr);
            cairo_pattern_destroy(shade);
        });
    }
    if (id == B::kControlKnob)
        return strip(L::kControlKnob,
                     [](cairo_t* cr, double s, float v) { knobFrame(cr, s, v, 0xF4F6FA, 0.5, 5.0); });
    if (id == B::kParameterKnob)
        return strip(L::kParameterKnob,
                     [](cairo_t* cr, double s, float v) { knobFrame(cr, s, v, L::kAccent, 0.6, 3.5); });
    if (id == B::kGainKnob)
        return strip(L::kGainKnob,
                     [](cairo_t* cr, double s, float v) { knobFrame(cr, s, v, 0x7FD4FF, 0.6, 3.0); });
    if (id >= B::kOverlayLfo1 && id <= B::kOverlayEnvelope) {
        constexpr uint32_t colours[3] = {0x39E1FF, 0xFF5FD2, 0xB6FF3B};
        const int which = id - B::kOverlayLfo1;
        // Three rings inside the Control's arc, so the markers never cover each other.
        const double radius = L::kControlKnob * 0.5 * (0.89 - 0.135 * which);
        return strip(L::kControlKnob,
                     [&](cairo_t* cr, double s, float v) { overlayFrame(cr, s, v, colours[which], radius); });
    }
    if (id >= B::kLampOff && id <= B::kLampRunning) {
        constexpr uint32_t colours[4] = {0x3A3F4A, 0xF5A524, 0xE8D44D, 0x46E07A};
        const int which = id - B::kLampOff;
        return paint(L::kLamp, L::kLamp,
                     [&](cairo_t* cr, double w, double) { lamp(cr, w, colours[which], which > 0); });
    }
    if (id == B::kBypassOff || id == B::kBypassOn) {
        const bool on = id == B::kBypassOn;
        return paint(64.0, L::kButtonHeight - 4.0, [on](cairo_t* cr, double w, double h) {
            button(cr, w, h, "BYPASS", on ? 0xE5484D : 0x3A3F4A, on ? 0xFFFFFF : 0xB8C0CC);
        });
    }
    if (id == B::kDictatorTrack || id == B::kDryWetTrack) {
        const uint32_t c = id == B::kDictatorTrack ? L::kAccent : 0x7FD4FF;
        return paint(L::kFaderWidth, L::kFaderHeight, [c](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{0.5, h * 0.5 - 3.0, w - 0.5, h * 0.5 + 3.0}, 0x0A0B0F, 0x3A404C, 3.0);
            colour(cr, c, 0.35);
            for (int i = 0; i <= 10; ++i) {
                const double x = 7.0 + i * (w - 14.0) / 10.0;
                cairo_rectangle(cr, x - 0.5, i % 5 == 0 ? 1.0 : 3.0, 1.0, i % 5 == 0 ? 4.0 : 2.0);
            }
            cairo_fill(cr);
        });
    }
    if (id == B::kDictatorHandle || id == B::kDryWetHandle) {
        const uint32_t c = id == B::kDictatorHandle ? L::kAccent : 0x7FD4FF;
        return paint(L::kHandleWidth, L::kFaderHeight, [c](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{1.0, 1.0, w - 1.0, h - 1.0}, dim(c, 0.85), 0x05060A, 3.0);
            colour(cr, 0x05060A);
            cairo_rectangle(cr, w * 0.5 - 0.75, 4.0, 1.5, h - 8.0);
            cairo_fill(cr);
        });
    }
    const auto textButton = [](const char* text, uint32_t fill, double width) {
        return paint(width, L::kButtonHeight,
                     [=](cairo_t* cr, double w, double h) { button(cr, w, h, text, fill, 0xF4F6FA); });
    };
    if (id == B::kRandomizeButton) return textButton("RANDOMIZE", 0x9B6CF0, 90.0);
    if (id == B::kUndoButton) return textButton("UNDO", 0x4A5160, 50.0);
    if (id == B::kRedoButton) return textButton("REDO", 0x4A5160, 50.0);
    if (id == B::kManualButton) return textButton("?", 0x4A5160, 26.0);
    if (id == B::kPresetFace)
        return paint(260.0, 30.0, [](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x07080B, 0x4A5160, 4.0);
        });
    if (id == B::kLogo)
        return paint(150.0, 40.0, [](cairo_t* cr, double w, double h) {
            AFTextPainter::draw(cr, "ORVANTO", AFRect{0.0, 0.0, w, h * 0.72}, 24.0, L::kAccent,
                                AFTextPainter::kLeft, true);
            AFTextPainter::draw(cr, "AMBER FORGE", AFRect{2.0, h * 0.68, w, h}, 8.0, L::kDimText,
                                AFTextPainter::kLeft);
        });
    if (id >= B::kEffectBadge && id < B::kEffectBadge + EffectFactory::kMenuCount) {
        const int position = id - B::kEffectBadge;
        return paint(20.0, 20.0, [position](cairo_t* cr, double w, double h) {
            const std::string name = EffectFactory::menuEffectName(position);
            std::string initials;
            initials += name.empty() ? '?' : name[0];
            if (const auto space = name.find(' '); space != std::string::npos && space + 1 < name.size())
                initials += name[space + 1];
            else if (name.size() > 1)
                initials += static_cast<char>(name[1]);
            panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x0A0B0F, L::slotColour(position), 10.0);
            AFTextPainter::draw(cr, initials.c_str(), AFRect{0.0, 0.0, w, h}, 8.5, L::kText,
                                AFTextPainter::kCenter, true);
        });
    }
    if (id == B::kOptionFace || id == B::kMixLawFace || id == B::kQuantiseFace)
        return paint(140.0, 18.0, [](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x2A2F3A, 0x59606E, 3.0);
        });
    if (id == B::kCurveFace)
        return paint(26.0, 14.0, [](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x2A2F3A, 0x59606E, 2.0);
            cairo_set_line_width(cr, 1.4);
            colour(cr, L::kAccent);
            cairo_move_to(cr, 4.0, h - 3.0);
            cairo_curve_to(cr, w * 0.5, h - 3.0, w * 0.5, 3.0, w - 4.0, 3.0);
            cairo_stroke(cr);
        });
    if (id >= B::kCurveGlyph && id < B::kCurveGlyph + ControlCurveBank::kCurveCount)
        return paint(28.0, 18.0,
                     [id](cairo_t* cr, double w, double h) { curveGlyph(cr, w, h, id - B::kCurveGlyph); });
    if (id >= B::kWaveformGlyph && id < B::kWaveformGlyph + 14)
        return paint(56.0, 18.0, [id](cairo_t* cr, double w, double h) {
            waveformGlyph(cr, w, h, id - B::kWaveformGlyph);
        });
    if (id >= B::kSlotNumber && id < B::kSlotNumber + 8) {
        const int slot = id - B::kSlotNumber;
        return paint(22.0, 22.0, [slot](cairo_t* cr, double w, double h) {
            cairo_arc(cr, w * 0.5, h * 0.5, w * 0.5 - 1.0, 0.0, 2.0 * kPi);
            colour(cr, 0x0A0B0F, 0.75);
            cairo_fill(cr);
            const std::string text = std::to_string(slot + 1);
            AFTextPainter::draw(cr, text.c_str(), AFRect{0.0, 0.0, w, h}, 13.0, L::slotColour(slot),
                                AFTextPainter::kCenter, true);
        });
    }
    if (id >= B::kQuantiseGlyph && id < B::kQuantiseGlyph + 6) {
        constexpr const char* grids[6] = {"free", "1/16", "1/8", "1/4", "1/2", "1/1"};
        const char* text = grids[id - B::kQuantiseGlyph];
        return paint(30.0, 14.0, [text](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x0A0B0F, 0x3A404C, 2.0);
            AFTextPainter::draw(cr, text, AFRect{0.0, 0.0, w, h}, 8.0, L::kDimText);
        });
    }
    if (id >= B::kMixLawGlyph && id < B::kMixLawGlyph + 5) {
        const int law = id - B::kMixLawGlyph;
        return paint(28.0, 18.0, [law](cairo_t* cr, double w, double h) {
            panel(cr, AFRect{0.5, 0.5, w - 0.5, h - 0.5}, 0x1B1F27, 0x3A404C, 2.0);
            // Dry and wet gains over the Dry/Wet value, as the law mixes them.
            for (int pass = 0; pass < 2; ++pass) {
                colour(cr, pass == 0 ? L::kDimText : L::kAccent);
                for (int i = 0; i <= 20; ++i) {
                    const double wv = i / 20.0;
                    const double dryGain[5] = {1.0 - wv, std::sqrt(1.0 - wv), 1.0, wv, 0.0};
                    const double wetGain[5] = {wv, std::sqrt(wv), wv, 1.0, wv};
                    const double g = pass == 0 ? dryGain[law] : wetGain[law];
                    const double px = 2.0 + wv * (w - 4.0);
                    const double py = h - 2.0 - g * (h - 4.0);
                    if (i == 0)
                        cairo_move_to(cr, px, py);
                    else
                        cairo_line_to(cr, px, py);
                }
                cairo_set_line_width(cr, 1.0);
                cairo_stroke(cr);
            }
        });
    }
    if (id == B::kMenuBackdrop)
        return paint(190.0, 18.0, [](cairo_t* cr, double w, double h) {
            cairo_rectangle(cr, 0.0, 0.0, w, h);
            colour(cr, 0x1B1F27);
            cairo_fill(cr);
        });
    return {};
}
