#include "engine/AFMessageSink.h"

#include <cstdio>
#include <mutex>

namespace {
std::mutex guard; // never taken on the audio thread: messages come from loads and saves only
AFMessageSink::Handler current = nullptr;
void* currentUser = nullptr;
} // namespace

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
