#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A state file as the renderer sees it before handing it to the plug-in: read whole, its header checked and
// its body sorted into an effect preset (one slot record) or a global image (every slot and the global
// section), so a wrong or broken file is refused with a reason before anything is loaded.
class PresetImage {
public:
    enum class Kind { Effect, Global };

    // Main thread. `option` names the command-line option in the error line.
    bool load(const std::string& path, const std::string& option, std::string& error);

    Kind kind() const { return sort; }
    const std::vector<uint8_t>& bytes() const { return image; }

private:
    std::vector<uint8_t> image;
    Kind sort = Kind::Global;
};
