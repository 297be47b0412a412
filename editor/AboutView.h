#pragma once

#include "editor/AFViewContainer.h"

#include <string>
#include <vector>

// The about page: the product, its maker and version, and the free software it is built with, each with its
// licence. Static: it draws once. GUI thread.
class AboutView : public AFViewContainer {
public:
    struct Credit {
        const char* name;
        const char* role;
        const char* licence;
    };

    explicit AboutView(const AFRect& size);

    static std::string versionText();
    static const std::vector<Credit>& credits();

    void drawBackground(cairo_t* cr) override;
};
