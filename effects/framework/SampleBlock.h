#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>

// A long run of samples for a delay line or a loop, sized once for the highest rate and the slowest tempo.
// It is built zeroed with every page already mapped, so the audio thread never takes a page fault on first
// touch. Mapping fresh memory is what building a large effect costs (8 MB in small pages take about 5 ms), so
// a large block asks the kernel for huge pages where it spans them, and a freed one is kept for the next
// effect that wants the same size: a preset switch back to an effect just left maps nothing new.
class SampleBlock {
public:
    SampleBlock() = default;
    // Loading thread: `count` samples of silence.
    explicit SampleBlock(std::size_t count);
    SampleBlock(SampleBlock&& other) noexcept
        : samples(std::exchange(other.samples, nullptr)), count(std::exchange(other.count, 0)),
          dirty(std::exchange(other.dirty, 0)) {}
    SampleBlock& operator=(SampleBlock&& other) noexcept {
        if (this != &other) {
            release();
            samples = std::exchange(other.samples, nullptr);
            count = std::exchange(other.count, 0);
            dirty = std::exchange(other.dirty, 0);
        }
        return *this;
    }
    SampleBlock(const SampleBlock&) = delete;
    SampleBlock& operator=(const SampleBlock&) = delete;
    // Loading thread.
    ~SampleBlock() { release(); }

    // Any thread.
    float* data() noexcept { return samples; }
    const float* data() const noexcept { return samples; }
    std::size_t size() const noexcept { return count; }
    float* begin() noexcept { return samples; }
    float* end() noexcept { return samples + count; }
    float& operator[](std::size_t i) noexcept { return samples[i]; }
    const float& operator[](std::size_t i) const noexcept { return samples[i]; }
    // Audio or loading thread: silence again, without mapping anything.
    void clear() noexcept;
    // Loading thread, before the block goes: the owner's word that every sample from `first` on is still
    // zero, so the next effect to get the block clears only what lies before.
    void silentFrom(std::size_t first) noexcept { dirty = std::min(first, count); }

private:
    void release() noexcept;

    float* samples = nullptr;
    std::size_t count = 0;
    // Samples that may hold sound: all of them unless the owner says otherwise.
    std::size_t dirty = 0;
};
