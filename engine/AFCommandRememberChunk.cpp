#include "engine/AFCommandRememberChunk.h"

#include "engine/AFUniClient.h"

AFCommandRememberChunk::AFCommandRememberChunk(AFUniClient& client, int slot) : slot(slot) {
    rememberBefore(client);
}

AFCommandRememberChunk::AFCommandRememberChunk(int slot) : slot(slot) {}

void AFCommandRememberChunk::rememberBefore(AFUniClient& client) {
    capture(client, before);
}

void AFCommandRememberChunk::capture(AFUniClient& client, AFChunk& chunk) {
    client.writeState(chunk, slot);
}

bool AFCommandRememberChunk::restore(AFUniClient& client, AFChunk& chunk) {
    return client.readState(chunk, slot, true);
}

void AFCommandRememberChunk::undo(AFUniClient& client) {
    capture(client, after);
    // Our own images: the header is sound, and the reader starts after it.
    if (before.readHeader(true)) restore(client, before);
}

void AFCommandRememberChunk::redo(AFUniClient& client) {
    if (after.readHeader(true)) restore(client, after);
}

bool AFCommandRememberChunk::refreshNeeded() const {
    return true;
}

const char* AFCommandRememberChunk::name() const {
    return "Change Effect";
}
