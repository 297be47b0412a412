#pragma once

#include <cairo.h>

#include <cstddef>
#include <cstdint>
#include <memory>

// A decoded PNG, drawn at half its pixel size: the art is made for 2x screens. Owns its Cairo surface.
class AFBitmap {
public:
    static constexpr double kDensity = 2.0;

    // GUI thread: decodes a PNG image held in memory through libpng's read interface; null when it is not a
    // readable PNG.
    static std::unique_ptr<AFBitmap> decode(const uint8_t* data, std::size_t size);
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
    AFBitmap(cairo_surface_t* surface, int width, int height);

    cairo_surface_t* surface;
    int pixelWidth;
    int pixelHeight;
};
