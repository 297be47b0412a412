#include "editor/AFBitmapStore.h"

#include "editor/AFArtImages.h"
#include "editor/AFBitmapId.h"

#include <future>

static_assert(AFBitmapId::kCount == 113);

bool AFBitmapStore::load() {
    // The large images decode on a second thread while this one does the rest: opening stays quick.
    const auto decodeRange = [this](int first, int last) {
        bool complete = true;
        for (int i = first; i < last; i += 2) {
            std::size_t size = 0;
            const uint8_t* data = AFArtImages::find(AFBitmapId::kFirst + i, size);
            bitmaps[static_cast<std::size_t>(i)] = AFBitmap::decode(data, size);
            complete = complete && bitmaps[static_cast<std::size_t>(i)] != nullptr;
        }
        return complete;
    };
    auto other = std::async(std::launch::async, decodeRange, 1, AFBitmapId::kCount);
    const bool mine = decodeRange(0, AFBitmapId::kCount);
    return other.get() && mine;
}

const AFBitmap* AFBitmapStore::get(int id) const noexcept {
    const int index = id - AFBitmapId::kFirst;
    return index >= 0 && index < AFBitmapId::kCount ? bitmaps[static_cast<std::size_t>(index)].get()
                                                    : nullptr;
}
