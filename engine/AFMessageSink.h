#pragma once

#include <string>

// Where the system's messages go: the editor shows them, the command-line tools print them, tests capture
// them. One sink per process; without a handler, messages go to standard error.
class AFMessageSink {
public:
    using Handler = void (*)(void* user, const char* text);

    // Any thread but the audio thread.
    static void setHandler(Handler handler, void* user);
    static void report(const char* text);
    static void report(const std::string& text) { report(text.c_str()); }
};
