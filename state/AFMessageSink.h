#pragma once

#include <mutex>
#include <string>

// Where the system's messages go: the editor shows them, the command-line tools print them, tests capture
// them. Each plug-in instance owns one, so two instances in one host each show their own; without a handler,
// messages go to standard error.
class AFMessageSink {
public:
    using Handler = void (*)(void* user, const char* text);

    // Any thread but the audio thread.
    void setHandler(Handler handler, void* user);
    void report(const char* text);
    void report(const std::string& text) { report(text.c_str()); }
    // Any thread but the audio thread: to `sink`, or to standard error for code that has none.
    static void reportTo(AFMessageSink* sink, const char* text);
    static void reportTo(AFMessageSink* sink, const std::string& text) { reportTo(sink, text.c_str()); }

private:
    std::mutex guard; // never taken on the audio thread: messages come from loads and saves only
    Handler current = nullptr;
    void* currentUser = nullptr;
};
