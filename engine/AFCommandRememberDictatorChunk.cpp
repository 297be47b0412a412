#include "engine/AFCommandRememberDictatorChunk.h"

#include "engine/AFUniClient.h"

AFCommandRememberDictatorChunk::AFCommandRememberDictatorChunk(AFUniClient& client)
    : AFCommandRememberChunk(-1) {
    rememberBefore(client);
}

const char* AFCommandRememberDictatorChunk::name() const {
    return "Dictator";
}

void AFCommandRememberDictatorChunk::capture(AFUniClient& client, AFChunk& chunk) {
    client.writeDictator(chunk);
}

bool AFCommandRememberDictatorChunk::restore(AFUniClient& client, AFChunk& chunk) {
    return client.readDictator(chunk, true);
}
