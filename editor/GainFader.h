#pragma once

#include "editor/AFFader.h"

#include <cstdint>

class AFOptionMenu;

// A slot's FX Gain as a small horizontal fader, drawn in the slot's colour: the middle is unity, left cuts to
// -6 dB, right boosts to +6 dB. A right click (or command click) pops the shared Learn menu for its tag.
// GUI thread.
class GainFader : public AFFader {
public:
    static constexpr double kHandleWidth = 10.0;
    static constexpr float kUnity = 0.5f;

    GainFader(const AFRect& size, AFControlListener* listener, int tag, float* valuePointer,
              AFOptionMenu* menu, uint32_t colour);

    void draw(cairo_t* cr) override;

protected:
    double handleWidth() const noexcept override { return kHandleWidth; }

private:
    uint32_t colour;
};
