#pragma once

#include "engine/AFCommandBase.h"
#include "modulation/AFLfo.h"

#include <array>

// An edit of an LFO's step pattern. The pattern before is taken at construction, so the command is made
// before the edit; the pattern after is taken when the edit is undone.
class AFCommandStepSeq : public AFCommandBase {
public:
    // Editor thread. `lfo` is 0 or 1; anything else, or a slot outside the client, makes a command that
    // changes nothing.
    AFCommandStepSeq(const AFUniClient& client, int slot, int lfo);

    void undo(AFUniClient& client) override;
    void redo(AFUniClient& client) override;
    bool refreshNeeded() const override;
    const char* name() const override;

    float getStepBefore(int i) const noexcept { return before[static_cast<std::size_t>(i)]; }

private:
    using Pattern = std::array<float, AFLfo::kStepCount>;
    AFLfo* target(const AFUniClient& client) const;

    int slot;
    int lfo;
    Pattern before{};
    Pattern after{};
};
