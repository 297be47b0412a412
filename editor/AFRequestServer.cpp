#include "editor/AFRequestServer.h"

#include "engine/AFCommandRememberChunk.h"
#include "engine/AFUniClient.h"

#include <memory>

void AFRequestServer::pushSnapshot(AFUniClient& client) {
    client.getHistory().add(std::make_unique<AFCommandRememberChunk>(client, -1));
}

void AFRequestServer::randomize(AFUniClient& client) {
    client.randomize(client.getContentPaths().presetPath(-1));
}

bool AFRequestServer::programChange(AFUniClient& client) {
    const int program = client.getSystemInfo().lastProgramChange;
    if (program < 0 || program >= client.getPresetBank().count()) return false;
    client.setProgram(program);
    return true;
}

bool AFRequestServer::serve(AFUniClient& client) {
    bool changed = false;
    if (client.takeRandomizeRequest()) {
        pushSnapshot(client);
        randomize(client);
        changed = true;
    }
    if (client.takeProgramChangeRequest()) changed = programChange(client) || changed;
    return changed;
}
