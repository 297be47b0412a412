#include "effects/framework/SampleBlock.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <new>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <vector>

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kLineAlignment = 64;
// Blocks this large are kept when their effect goes, the latest kKeptBytes of them, for the next effect that
// wants the same size: switching a slot back and forth between presets then maps no new memory.
constexpr std::size_t kKeptFrom = std::size_t{256} << 10;
constexpr std::size_t kKeptBytes = std::size_t{64} << 20;

struct Kept {
    void* block;
    std::size_t bytes;
    // The bytes from here on are known to be zero.
    std::size_t dirtyBytes;
};

// Loading threads only: blocks are taken and given back when effects are built and freed, never while a
// block is played.
class KeptBlocks {
public:
    // The block and how many of its first bytes may be other than zero, or nullptr.
    void* take(std::size_t bytes, std::size_t& dirtyBytes) {
        const std::lock_guard<std::mutex> turn(lock);
        const auto found =
            std::find_if(blocks.begin(), blocks.end(), [bytes](const Kept& k) { return k.bytes == bytes; });
        if (found == blocks.end()) return nullptr;
        void* block = found->block;
        dirtyBytes = found->dirtyBytes;
        held -= bytes;
        blocks.erase(found);
        ASAN_UNPOISON_MEMORY_REGION(block, bytes);
        return block;
    }

    // False when the block is too large to keep; to make room, the blocks kept longest are freed.
    bool give(void* block, std::size_t bytes, std::size_t dirtyBytes) {
        if (bytes > kKeptBytes) return false;
        const std::lock_guard<std::mutex> turn(lock);
        while (held + bytes > kKeptBytes) {
            held -= blocks.front().bytes;
            ::operator delete (blocks.front().block, std::align_val_t{kLineAlignment});
            blocks.erase(blocks.begin());
        }
        blocks.push_back({block, bytes, dirtyBytes});
        held += bytes;
        // Unaddressable while kept, so that a stale pointer into a freed line is still caught under
        // AddressSanitizer.
        ASAN_POISON_MEMORY_REGION(block, bytes);
        return true;
    }

private:
    std::mutex lock;
    std::vector<Kept> blocks;
    std::size_t held = 0;
};

// Never destroyed: effects held by other static objects may give their blocks back during exit.
KeptBlocks& keptBlocks() {
    static auto* kept = new KeptBlocks;
    return *kept;
}

std::size_t bytesFor(std::size_t count) {
    return std::max<std::size_t>(count, 1) * sizeof(float);
}

} // namespace

SampleBlock::SampleBlock(std::size_t samplesWanted) : count(samplesWanted), dirty(samplesWanted) {
    const std::size_t bytes = bytesFor(count);
    std::size_t dirtyBytes = bytes;
    void* block = bytes >= kKeptFrom ? keptBlocks().take(bytes, dirtyBytes) : nullptr;
    if (block == nullptr) {
        block = ::operator new (bytes, std::align_val_t{kLineAlignment});
        // The huge pages that lie wholly inside the block. Asking the allocator for a block aligned to them
        // would map more than the block, and the advice is only a hint: without huge pages the block is
        // mapped page by page as before.
        const std::size_t lead =
            (kHugePage - reinterpret_cast<std::uintptr_t>(block) % kHugePage) % kHugePage;
        const std::size_t whole = bytes > lead ? (bytes - lead) / kHugePage * kHugePage : 0;
        if (whole > 0) madvise(static_cast<char*>(block) + lead, whole, MADV_HUGEPAGE);
    }
    samples = static_cast<float*>(block);
    std::memset(block, 0, dirtyBytes);
}

void SampleBlock::clear() noexcept {
    if (count > 0) std::memset(samples, 0, count * sizeof(float));
}

void SampleBlock::release() noexcept {
    if (samples == nullptr) return;
    const std::size_t bytes = bytesFor(count);
    if (bytes >= kKeptFrom) {
        // Only the lock and the list can fail here, and a block that cannot be kept is simply freed.
        try {
            if (keptBlocks().give(samples, bytes, dirty * sizeof(float))) {
                samples = nullptr;
                return;
            }
        } catch (...) {
        }
    }
    ::operator delete (samples, std::align_val_t{kLineAlignment});
    samples = nullptr;
}
