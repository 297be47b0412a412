#include "editor/AFBitmapStore.h"

#include "editor/AFArtImages.h"
#include "editor/AFBitmapId.h"

static_assert(AFBitmapId::kCount == 113);

bool AFBitmapStore::load() {
    bool complete = true;
    for (int i = 0; i < AFBitmapId::kCount; ++i) {
        std::size_t size = 0;
        const uint8_t* data = AFArtImages::find(AFBitmapId::kFirst + i, size);
        bitmaps[static_cast<std::size_t>(i)] = AFBitmap::fromPng(data, size);
        complete = complete && bitmaps[static_cast<std::size_t>(i)] != nullptr;
    }
    return complete;
}

const AFBitmap* AFBitmapStore::get(int id) const noexcept {
    const int index = id - AFBitmapId::kFirst;
    return index >= 0 && index < AFBitmapId::kCount ? bitmaps[static_cast<std::size_t>(index)].get()
                                                    : nullptr;
}
