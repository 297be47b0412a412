#include "engine/AFDictator.h"

#include "engine/AFRandom.h"

AFDictator::AFDictator() {
    for (int r = 0; r < kRows; ++r)
        rebuild(r);
}

void AFDictator::clear(int row) {
    for (auto& n : rows[static_cast<std::size_t>(row)])
        n.value = 0.0f, n.set = false;
    rebuild(row);
}

void AFDictator::randomise(int row) {
    auto& nodes = rows[static_cast<std::size_t>(row)];
    for (auto& n : nodes)
        n.value = 0.0f, n.set = false;
    for (auto& n : nodes) {
        if (AFRandom::next(0) > 0.85f) {
            n.value = AFRandom::next(0);
            n.set = true;
        }
    }
}

void AFDictator::rebuild(int row) {
    auto& nodes = rows[static_cast<std::size_t>(row)];
    int setCount = 0;
    for (auto& n : nodes) {
        if (!n.set) n.value = 0.0f;
        if (n.set) ++setCount;
        n.hold = true;
        n.last = false;
    }
    // A single point gets a partner, so that the row still has a line.
    if (setCount == 1) {
        if (!nodes[0].set) {
            nodes[0].set = true;
            nodes[0].value = 0.0f;
        } else {
            nodes[1].set = true;
            nodes[1].value = 0.5f;
        }
    }
    int i = 0;
    while (i < kNodes) {
        if (!nodes[static_cast<std::size_t>(i)].set) {
            ++i;
            continue;
        }
        int j = i + 1;
        while (j < kNodes && !nodes[static_cast<std::size_t>(j)].set)
            ++j;
        auto& from = nodes[static_cast<std::size_t>(i)];
        if (j == kNodes) {
            from.hold = true;
            from.last = true;
            break;
        }
        from.hold = false;
        if (j > i + 1) {
            const float step =
                (nodes[static_cast<std::size_t>(j)].value - from.value) / static_cast<float>(j - i);
            float sum = from.value;
            for (int k = i + 1; k < j; ++k) {
                sum += step;
                if (sum < 0.0f) sum = 0.0f;
                auto& between = nodes[static_cast<std::size_t>(k)];
                between.value = sum;
                between.set = false;
                between.hold = false;
            }
        }
        i = j;
    }
}

void AFDictator::record(int row, float dictator, float value) {
    int index = static_cast<int>(dictator * 16.999f);
    index = index < 0 ? 0 : (index >= kNodes ? kNodes - 1 : index);
    auto& n = rows[static_cast<std::size_t>(row)][static_cast<std::size_t>(index)];
    n.value = value;
    n.set = true;
    rebuild(row);
    changed[static_cast<std::size_t>(row)] = true;
}

int AFDictator::positionFor(float dictator) noexcept {
    const int p = static_cast<int>(dictator * 15.999f);
    return p < 0 ? 0 : (p > kNodes - 2 ? kNodes - 2 : p);
}

float AFDictator::controlValue(int row, float dictator, float threshold) const noexcept {
    const float x = dictator * 15.999f;
    const int position = positionFor(dictator);
    const float frac = x - static_cast<float>(position);
    const float gate = dictator > threshold ? 1.0f : 0.0f;
    const auto& nodes = rows[static_cast<std::size_t>(row)];
    const Node& n = nodes[static_cast<std::size_t>(position)];
    const Node& m = nodes[static_cast<std::size_t>(position + 1)];
    float t = n.value * gate;
    if (!n.hold) t = (m.value - t) * frac + t;
    return n.last ? 0.0f : t * gate;
}
