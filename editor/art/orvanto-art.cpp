// The art program: draws the editor's images and writes them as a C++ source for the plug-in, and, when
// asked, as PNG files to look at.
#include "editor/AFBitmapId.h"
#include "editor/art/AFArtwork.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <cstdio>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: orvanto-art OUTPUT.cpp [PNG-FOLDER]\n");
        return 2;
    }
    const std::string pngFolder = argc > 2 ? argv[2] : "";
    std::FILE* out = std::fopen(argv[1], "w");
    if (out == nullptr) {
        std::perror(argv[1]);
        return 1;
    }
    std::fprintf(out, "// Written by orvanto-art.\n#include \"editor/AFArtImages.h\"\n\nnamespace {\n");
    std::vector<std::size_t> sizes;
    for (int i = 0; i < AFBitmapId::kCount; ++i) {
        const int id = AFBitmapId::kFirst + i;
        const std::vector<uint8_t> png = AFArtwork::render(id);
        if (png.empty()) {
            std::fprintf(stderr, "orvanto-art: no picture for %d\n", id);
            return 1;
        }
        sizes.push_back(png.size());
        std::fprintf(out, "const uint8_t image%d[] = {", id);
        for (std::size_t b = 0; b < png.size(); ++b)
            std::fprintf(out, "%s%u,", b % 24 == 0 ? "\n" : "", png[b]);
        std::fprintf(out, "};\n");
        if (!pngFolder.empty()) {
            const std::string path = pngFolder + "/" + std::to_string(id) + ".png";
            if (std::FILE* file = std::fopen(path.c_str(), "wb")) {
                std::fwrite(png.data(), 1, png.size(), file);
                std::fclose(file);
            }
        }
    }
    std::fprintf(out, "struct Image {\n    const uint8_t* data;\n    std::size_t size;\n};\n");
    std::fprintf(out, "const Image images[%d] = {\n", AFBitmapId::kCount);
    for (int i = 0; i < AFBitmapId::kCount; ++i)
        std::fprintf(out, "    {image%d, %zu},\n", AFBitmapId::kFirst + i,
                     sizes[static_cast<std::size_t>(i)]);
    std::fprintf(out, "};\n} // namespace\n\n");
    std::fprintf(out,
                 "const uint8_t* AFArtImages::find(int id, std::size_t& size) noexcept {\n"
                 "    const int index = id - %d;\n"
                 "    if (index < 0 || index >= %d) {\n"
                 "        size = 0;\n"
                 "        return nullptr;\n"
                 "    }\n"
                 "    size = images[index].size;\n"
                 "    return images[index].data;\n"
                 "}\n",
                 AFBitmapId::kFirst, AFBitmapId::kCount);
    const bool closed = std::fclose(out) == 0;
    // The font caches go back too, so a leak checker sees only our own allocations.
    cairo_debug_reset_static_data();
    FcFini();
    return closed ? 0 : 1;
}
