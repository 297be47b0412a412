#include "host/AFEditorLink.h"

#include "editor/AFRequestServer.h"

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
    AFRequestServer::serve(client);
}
