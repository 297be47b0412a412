#include "editor/AboutView.h"

#include "editor/AFLayout.h"
#include "editor/AFTextPainter.h"
#include "host/AFPluginTypes.h"

#include <cairo.h>
#include <png.h>

#include <cstdio>

AboutView::AboutView(const AFRect& size) : AFViewContainer(size) {}

std::string AboutView::versionText() {
    char text[128];
    std::snprintf(text, sizeof text, "Version %s (%d), Cairo %s, libpng %s", ORVANTO_VERSION,
                  AFIdentity::kVendorVersion, cairo_version_string(), png_get_libpng_ver(nullptr));
    return text;
}

const std::vector<AboutView::Credit>& AboutView::credits() {
    static const std::vector<Credit> list = {
        {"DISTRHO Plugin Framework (DPF)", "plug-in formats LV2, VST2, VST3, CLAP, JACK; the window (DGL)",
         "ISC licence, Filipe Coelho"},
        {"Cairo", "all drawing of the editor and its images", "LGPL 2.1 / MPL 1.1"},
        {"pixman", "Cairo's pixel work", "MIT licence"},
        {"libpng", "the editor's images", "libpng licence"},
        {"zlib", "compression inside PNG", "zlib licence"},
        {"FreeType and Fontconfig", "the editor's text", "FreeType licence / MIT licence"},
        {"libsndfile", "sound files of the render and measurement tools", "LGPL 2.1"},
        {"JACK", "the standalone program's audio and MIDI", "LGPL 2.1"},
        {"LV2", "plug-in interface", "ISC licence"},
    };
    return list;
}

void AboutView::drawBackground(cairo_t* cr) {
    using L = AFLayout;
    using P = AFTextPainter;
    P::fill(cr, size, L::kStage);
    const double left = 80.0;
    P::draw(cr, AFIdentity::kProduct, AFRect::ofSize(left, size.top + 30.0, 600.0, 48.0), 40.0, L::kAccent,
            P::kLeft, true);
    P::draw(cr, "Eight effects in series, one Control each, played by the Dictator.",
            AFRect::ofSize(left, size.top + 82.0, 900.0, 22.0), 15.0, L::kText, P::kLeft);
    char line[160];
    std::snprintf(line, sizeof line, "by %s", AFIdentity::kVendor);
    P::draw(cr, line, AFRect::ofSize(left, size.top + 108.0, 900.0, 20.0), 13.0, L::kDimText, P::kLeft);
    P::draw(cr, versionText().c_str(), AFRect::ofSize(left, size.top + 130.0, 900.0, 20.0), 13.0, L::kDimText,
            P::kLeft);

    P::draw(cr, "BUILT WITH", AFRect::ofSize(left, size.top + 180.0, 300.0, 20.0), 12.0, L::kAccent, P::kLeft,
            true);
    double y = size.top + 208.0;
    for (const Credit& credit : credits()) {
        P::draw(cr, credit.name, AFRect::ofSize(left, y, 300.0, 20.0), 13.0, L::kText, P::kLeft, true);
        P::draw(cr, credit.role, AFRect::ofSize(left + 310.0, y, 480.0, 20.0), 12.0, L::kDimText, P::kLeft);
        P::draw(cr, credit.licence, AFRect::ofSize(left + 800.0, y, 300.0, 20.0), 12.0, L::kDimText,
                P::kLeft);
        y += 28.0;
    }
}
