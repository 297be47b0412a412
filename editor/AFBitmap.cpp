#include "editor/AFBitmap.h"

#include <png.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct PngSource {
    const uint8_t* data;
    std::size_t size;
    std::size_t offset;
};

void readFromMemory(png_structp png, png_bytep out, png_size_t count) {
    auto* source = static_cast<PngSource*>(png_get_io_ptr(png));
    if (count > source->size - source->offset) png_error(png, "truncated image");
    std::memcpy(out, source->data + source->offset, count);
    source->offset += count;
}

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
    if (surface != nullptr) cairo_surface_destroy(surface);
}

bool AFBitmap::decode() const {
    if (surface != nullptr || failed) return surface != nullptr;
    failed = true;
    png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (reader == nullptr) return false;
    png_infop info = png_create_info_struct(reader);
    PngSource source{png, pngSize, 0};
    // Declared before the jump point: libpng's errors return through it.
    uint8_t* pixels = nullptr;
    std::vector<png_bytep> rows;
    if (info == nullptr || setjmp(png_jmpbuf(reader))) {
        png_destroy_read_struct(&reader, &info, nullptr);
        std::free(pixels);
        return false;
    }
    png_set_read_fn(reader, &source, readFromMemory);
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
    png_set_interlace_handling(reader);
    png_read_update_info(reader, info);
    if (png_get_rowbytes(reader, info) != static_cast<std::size_t>(pixelWidth) * 4)
        png_error(reader, "layout");
    // Every byte is written below: no zero fill of a fresh surface first.
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_ARGB32, pixelWidth);
    pixels = static_cast<uint8_t*>(
        std::malloc(static_cast<std::size_t>(stride) * static_cast<std::size_t>(pixelHeight)));
    if (pixels == nullptr) png_error(reader, "no memory");
    rows.resize(static_cast<std::size_t>(pixelHeight));
    for (int y = 0; y < pixelHeight; ++y)
        rows[static_cast<std::size_t>(y)] = pixels + static_cast<std::ptrdiff_t>(y) * stride;
    // Read straight into the rows, then turn each RGBA row into Cairo's pixels in place.
    png_read_image(reader, rows.data());
    png_read_end(reader, nullptr);
    png_destroy_read_struct(&reader, &info, nullptr);
    for (png_bytep rgba : rows) {
        auto* row = reinterpret_cast<uint32_t*>(rgba);
        for (int x = 0; x < pixelWidth; ++x)
            row[x] = premultiplied(rgba + x * 4);
    }
    cairo_surface_t* made =
        cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_ARGB32, pixelWidth, pixelHeight, stride);
    if (cairo_surface_status(made) != CAIRO_STATUS_SUCCESS ||
        cairo_surface_set_user_data(made, &pixelsKey, pixels, std::free) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(made);
        std::free(pixels);
        return false;
    }
    surface = made;
    failed = false;
    return true;
}

void AFBitmap::draw(cairo_t* cr, double x, double y, double width, double height, double sourceX,
                    double sourceY) const {
    if (!decode()) return;
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
