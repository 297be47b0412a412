#pragma once

#include <cairo.h>

#include <cstddef>
#include <cstdint>
#include <memory>

struct png_struct_def;
struct png_info_def;

// A PNG image held in memory, drawn at half its pixel size: the art is made for 2x screens. Its pixels are
// decoded through libpng's read interface as drawing first needs them, top row first, so an editor opens
// without decoding what its first frame does not show (modulation overlays, other pages, the frames of a
// knob strip below the one shown). Owns its Cairo surface.
class AFBitmap {
public:
    static constexpr double kDensity = 2.0;
    // The art stays far below these; anything larger is not ours.
    static constexpr uint32_t kMaxWidth = 4096;
    static constexpr uint32_t kMaxHeight = 65536;

    // GUI thread: the image, its size read from the PNG header; null when the data is no PNG of a size we
    // accept. The data must outlive the bitmap.
    static std::unique_ptr<AFBitmap> fromPng(const uint8_t* data, std::size_t size);
    // GUI thread: decodes the pixels unless done; false when they do not decode (the bitmap then draws
    // nothing).
    bool decode() const { return decodeRows(pixelHeight); }
    ~AFBitmap();
    AFBitmap(const AFBitmap&) = delete;
    AFBitmap& operator=(const AFBitmap&) = delete;

    // GUI thread: draws the part of the image whose logical top-left is (sourceX, sourceY) at (x, y), clipped
    // to width by height logical units.
    void draw(cairo_t* cr, double x, double y, double width, double height, double sourceX = 0.0,
              double sourceY = 0.0) const;

    // Logical size (pixels divided by the density).
    double getWidth() const noexcept { return static_cast<double>(pixelWidth) / kDensity; }
    double getHeight() const noexcept { return static_cast<double>(pixelHeight) / kDensity; }

private:
    // Rows a downscaled draw may sample beyond the last one it shows.
    static constexpr int kFilterMargin = 4;

    AFBitmap(const uint8_t* png, std::size_t pngSize, int width, int height);
    static void readChunk(png_struct_def* reader, unsigned char* out, std::size_t count);
    // Reads the header and makes the surface; an interlaced image is decoded whole.
    bool startDecoding() const;
    // Decodes the rows above pixel row `end` not yet decoded; false when the image does not decode.
    bool decodeRows(int end) const;
    void closeReader() const;
    void fail() const;

    const uint8_t* png;
    std::size_t pngSize;
    int pixelWidth;
    int pixelHeight;
    mutable std::size_t readOffset = 0;
    mutable png_struct_def* reader = nullptr;
    mutable png_info_def* info = nullptr;
    mutable cairo_surface_t* surface = nullptr;
    mutable int decodedRows = 0;
    mutable bool failed = false;
};
