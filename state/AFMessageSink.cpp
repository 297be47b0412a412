#include "state/AFMessageSink.h"

#include <cstdio>

void AFMessageSink::setHandler(Handler handler, void* user) {
    const std::lock_guard lock(guard);
    current = handler;
    currentUser = user;
}

void AFMessageSink::report(const char* text) {
    const std::lock_guard lock(guard);
    if (current != nullptr)
        current(currentUser, text);
    else
        std::fprintf(stderr, "%s\n", text);
}

void AFMessageSink::reportTo(AFMessageSink* sink, const char* text) {
    if (sink != nullptr)
        sink->report(text);
    else
        std::fprintf(stderr, "%s\n", text);
}
