#pragma once

#include <array>
#include <atomic>

// The Dictator's rows: for each Control a row of 17 nodes laid along the Dictator's travel. Only the set
// nodes are data; rebuilding a row derives the values between them and the hold and last flags.
class AFDictator {
public:
    static constexpr int kRows = 9; // rows 0..7 serve the Controls; row 8 is kept but never used
    static constexpr int kNodes = 17;

    struct Node {
        float value = 0.0f;
        bool set = false;
        bool hold = true;  // no interpolation towards the next node
        bool last = false; // from here on the Control is 0
    };

    AFDictator();

    // Editor or host thread (rows are edited without a lock; the audio thread tolerates a half-edited row).
    void clear(int row);
    // Sets about 15 percent of the nodes to random values from the engine's generator; the caller rebuilds.
    void randomise(int row);
    void rebuild(int row);
    // Places a recorded Control value at the node under the Dictator (scale 16.999 reaches node 16).
    void record(int row, float dictator, float value);

    // The Control value that row `row` gives for the Dictator value `dictator`. Any thread.
    float controlValue(int row, float dictator, float threshold) const noexcept;
    // The node index a Dictator value plays from (scale 15.999).
    static int positionFor(float dictator) noexcept;

    const Node& node(int row, int index) const {
        return rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(index)];
    }
    Node& node(int row, int index) {
        return rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(index)];
    }
    bool isChanged(int row) const { return changed[static_cast<std::size_t>(row)]; }
    void setChanged(int row, bool on) { changed[static_cast<std::size_t>(row)] = on; }

private:
    std::array<std::array<Node, kNodes>, kRows> rows{};
    std::array<bool, kRows> changed{};
};
