#include "editor/AFBitmap.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Cairo keeps premultiplied native-endian ARGB. Most of the art is fully opaque or fully clear.
uint32_t premultiplied(const uint8_t* rgba) {
    const uint32_t a = rgba[3];
    if (a == 255) return 0xFF000000u | (uint32_t{rgba[0]} << 16) | (uint32_t{rgba[1]} << 8) | rgba[2];
    if (a == 0) return 0;
    const auto scale = [a](uint32_t c) { return (c * a + 127) / 255; };
    return (a << 24) | (scale(rgba[0]) << 16) | (scale(rgba[1]) << 8) | scale(rgba[2]);
}

uint32_t bigEndian(const uint8_t* bytes) {
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) | bytes[3];
}

const cairo_user_data_key_t pixelsKey{};

} // namespace

std::unique_ptr<AFBitmap> AFBitmap::fromPng(const uint8_t* data, std::size_t size) {
    // The signature, then the header chunk first: its length, its name, the width and the height.
    constexpr std::size_t kHeaderEnd = 24;
    if (data == nullptr || size < kHeaderEnd || png_sig_cmp(data, 0, 8) != 0 ||
        std::memcmp(data + 12, "IHDR", 4) != 0)
        return nullptr;
    const uint32_t width = bigEndian(data + 16);
    const uint32_t height = bigEndian(data + 20);
    if (width == 0 || height == 0 || width > kMaxWidth || height > kMaxHeight) return nullptr;
    return std::unique_ptr<AFBitmap>(
        new AFBitmap(data, size, static_cast<int>(width), static_cast<int>(height)));
}

AFBitmap::AFBitmap(const uint8_t* png, std::size_t pngSize, int width, int height)
    : png(png), pngSize(pngSize), pixelWidth(width), pixelHeight(height) {}

AFBitmap::~AFBitmap() {
    closeReader();
    if (surface != nullptr) cairo_surface_destroy(surface);
}

void AFBitmap::readChunk(png_struct_def* reader, unsigned char* out, std::size_t count) {
    const auto* bitmap = static_cast<const AFBitmap*>(png_get_io_ptr(reader));
    if (count > bitmap->pngSize - bitmap->readOffset) png_error(reader, "truncated image");
    std::memcpy(out, bitmap->png + bitmap->readOffset, count);
    bitmap->readOffset += count;
}

void AFBitmap::closeReader() const {
    if (reader != nullptr) png_destroy_read_struct(&reader, &info, nullptr);
    reader = nullptr;
    info = nullptr;
}

void AFBitmap::fail() const {
    closeReader();
    if (surface != nullptr) cairo_surface_destroy(surface);
    surface = nullptr;
    failed = true;
}

bool AFBitmap::startDecoding() const {
    reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (reader == nullptr) return false;
    info = png_create_info_struct(reader);
    if (info == nullptr || setjmp(png_jmpbuf(reader))) return false;
    png_set_read_fn(reader, const_cast<AFBitmap*>(this), readChunk);
    // The images are our own and compiled in: the stream checksum only costs time.
    png_set_option(reader, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
    png_read_info(reader, info);
    if (png_get_image_width(reader, info) != static_cast<png_uint_32>(pixelWidth) ||
        png_get_image_height(reader, info) != static_cast<png_uint_32>(pixelHeight))
        png_error(reader, "bad size");
    png_set_expand(reader);
    png_set_strip_16(reader);
    png_set_gray_to_rgb(reader);
    png_set_add_alpha(reader, 0xFF, PNG_FILLER_AFTER);
    const bool interlaced = png_set_interlace_handling(reader) > 1;
    png_read_update_info(reader, info);
    if (png_get_rowbytes(reader, info) != static_cast<std::size_t>(pixelWidth) * 4)
        png_error(reader, "layout");
    // Every byte shown is written first: no zero fill of a fresh surface.
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_ARGB32, pixelWidth);
    auto* pixels = static_cast<uint8_t*>(
        std::malloc(static_cast<std::size_t>(stride) * static_cast<std::size_t>(pixelHeight)));
    if (pixels == nullptr) png_error(reader, "no memory");
    surface =
        cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_ARGB32, pixelWidth, pixelHeight, stride);
    if (cairo_surface_set_user_data(surface, &pixelsKey, pixels, std::free) != CAIRO_STATUS_SUCCESS) {
        std::free(pixels);
        png_error(reader, "no surface");
    }
    if (!interlaced) return true;
    // Passes interleave the rows: the image comes whole or not at all.
    std::vector<png_bytep> rows(static_cast<std::size_t>(pixelHeight));
    for (int y = 0; y < pixelHeight; ++y)
        rows[static_cast<std::size_t>(y)] = pixels + static_cast<std::ptrdiff_t>(y) * stride;
    png_read_image(reader, rows.data());
    for (png_bytep rgba : rows) {
        auto* row = reinterpret_cast<uint32_t*>(rgba);
        for (int x = 0; x < pixelWidth; ++x)
            row[x] = premultiplied(rgba + x * 4);
    }
    decodedRows = pixelHeight;
    png_read_end(reader, nullptr);
    closeReader();
    cairo_surface_mark_dirty(surface);
    return true;
}

bool AFBitmap::decodeRows(int end) const {
    if (failed) return false;
    end = std::min(end, pixelHeight);
    if (decodedRows >= end) return true;
    if (surface == nullptr && !startDecoding()) {
        fail();
        return false;
    }
    if (decodedRows >= end) return true;
    if (setjmp(png_jmpbuf(reader))) {
        fail();
        return false;
    }
    uint8_t* pixels = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    const int first = decodedRows;
    // Each RGBA row read straight into the surface, then turned into Cairo's pixels in place.
    for (; decodedRows < end; ++decodedRows) {
        png_bytep rgba = pixels + static_cast<std::ptrdiff_t>(decodedRows) * stride;
        png_read_row(reader, rgba, nullptr);
        auto* row = reinterpret_cast<uint32_t*>(rgba);
        for (int x = 0; x < pixelWidth; ++x)
            row[x] = premultiplied(rgba + x * 4);
    }
    cairo_surface_mark_dirty_rectangle(surface, 0, first, pixelWidth, end - first);
    if (decodedRows == pixelHeight) {
        png_read_end(reader, nullptr);
        closeReader();
    }
    return true;
}

void AFBitmap::draw(cairo_t* cr, double x, double y, double width, double height, double sourceX,
                    double sourceY) const {
    const int lastRow = static_cast<int>(std::ceil((sourceY + height) * kDensity)) + kFilterMargin;
    if (!decodeRows(lastRow)) return;
    cairo_save(cr);
    cairo_rectangle(cr, x, y, width, height);
    cairo_clip(cr);
    cairo_translate(cr, x - sourceX, y - sourceY);
    cairo_scale(cr, 1.0 / kDensity, 1.0 / kDensity);
    cairo_set_source_surface(cr, surface, 0.0, 0.0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint(cr);
    cairo_restore(cr);
}
