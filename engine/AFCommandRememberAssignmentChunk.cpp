#include "engine/AFCommandRememberAssignmentChunk.h"

#include <utility>

AFCommandRememberAssignmentChunk::AFCommandRememberAssignmentChunk(AFUniClient& client, Writer writer,
                                                                   Reader reader)
    : AFCommandRememberChunk(-1), writer(std::move(writer)), reader(std::move(reader)) {
    rememberBefore(client);
}

const char* AFCommandRememberAssignmentChunk::name() const {
    return "Assignment";
}

void AFCommandRememberAssignmentChunk::capture(AFUniClient&, AFChunk& chunk) {
    if (writer) writer(chunk);
}

bool AFCommandRememberAssignmentChunk::restore(AFUniClient&, AFChunk& chunk) {
    return reader ? reader(chunk) : false;
}
