#include "host/AFEditorLink.h"

#include "editor/AFRequestServer.h"
#include "engine/AFUniClient.h"

AFEditorLink::AFEditorLink(AFUniClient& client) : client(client) {
    timer.start();
}

AFEditorLink::~AFEditorLink() {
    timer.stop();
}

void AFEditorLink::setEditorOpen(bool open) {
    std::lock_guard<std::mutex> lock(mutex);
    openEditors += open ? 1 : -1;
}

void AFEditorLink::timerFired(AFGuiTimer*) {
    std::lock_guard<std::mutex> lock(mutex);
    if (openEditors > 0) return;
    // A host's state load holds the writers' turn from its first read to its last write: a randomize or
    // program change served meanwhile would snapshot, or land in, a half-loaded state.
    const AFAudioGate::Reader turn(client.getAudioGate());
    AFRequestServer::serve(client);
}
