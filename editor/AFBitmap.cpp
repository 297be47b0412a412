#include "editor/AFBitmap.h"

#include <png.h>

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

// Cairo keeps premultiplied native-endian ARGB.
uint32_t premultiplied(const uint8_t* rgba) {
    const uint32_t a = rgba[3];
    const auto scale = [a](uint32_t c) { return (c * a + 127) / 255; };
    return (a << 24) | (scale(rgba[0]) << 16) | (scale(rgba[1]) << 8) | scale(rgba[2]);
}

} // namespace

std::unique_ptr<AFBitmap> AFBitmap::decode(const uint8_t* data, std::size_t size) {
    if (data == nullptr || size < 8 || png_sig_cmp(data, 0, 8) != 0) return nullptr;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (png == nullptr) return nullptr;
    png_infop info = png_create_info_struct(png);
    PngSource source{data, size, 0};
    // Declared before the jump point: libpng's errors return through it.
    cairo_surface_t* surface = nullptr;
    std::vector<png_bytep> rows;
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        if (surface != nullptr) cairo_surface_destroy(surface);
        return nullptr;
    }
    png_set_read_fn(png, &source, readFromMemory);
    // The images are our own and compiled in: the stream checksum only costs time.
    png_set_option(png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    // The art stays far below this; anything larger is not ours.
    if (width == 0 || height == 0 || width > 4096 || height > 65536) png_error(png, "bad size");
    png_set_expand(png);
    png_set_strip_16(png);
    png_set_gray_to_rgb(png);
    png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    if (png_get_rowbytes(png, info) != width * 4) png_error(png, "unexpected layout");
    surface =
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, static_cast<int>(width), static_cast<int>(height));
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) png_error(png, "no surface");
    cairo_surface_flush(surface);
    // Read straight into the surface's rows, then turn each RGBA row into Cairo's pixels in place.
    unsigned char* target = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    rows.resize(height);
    for (png_uint_32 y = 0; y < height; ++y)
        rows[y] = target + static_cast<std::ptrdiff_t>(y) * stride;
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    for (png_uint_32 y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(rows[y]);
        for (png_uint_32 x = 0; x < width; ++x)
            row[x] = premultiplied(rows[y] + x * 4);
    }
    cairo_surface_mark_dirty(surface);
    return std::unique_ptr<AFBitmap>(
        new AFBitmap(surface, static_cast<int>(width), static_cast<int>(height)));
}

AFBitmap::AFBitmap(cairo_surface_t* surface, int width, int height)
    : surface(surface), pixelWidth(width), pixelHeight(height) {}

AFBitmap::~AFBitmap() {
    cairo_surface_destroy(surface);
}

void AFBitmap::draw(cairo_t* cr, double x, double y, double width, double height, double sourceX,
                    double sourceY) const {
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
