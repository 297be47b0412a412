#pragma once

#include <string>

// The per-user folders of the desktop's base-directory convention: settings under the config home, content
// under the data home. Read from the environment on every call, so a test can point them elsewhere.
class AFUserFolders {
public:
    // Any thread but the audio thread. "" when no home folder can be found.
    static std::string home();
    // $XDG_CONFIG_HOME when set and absolute, else home + "/.config".
    static std::string configHome();
    // $XDG_DATA_HOME when set and absolute, else home + "/.local/share".
    static std::string dataHome();
};
