#pragma once

#include "editor/AFGuiTimer.h"
#include "editor/AFTimerReceiver.h"

#include <mutex>

class AFUniClient;

// The plug-in's side of its editor: while no editor is open, a timer of its own serves the requests the
// engine raises for the editor (Randomize, MIDI program change), off the audio thread and through the same
// code as the editor's timer.
class AFEditorLink : public AFTimerReceiver {
public:
    static constexpr int kPeriodMs = 50;

    // Host thread, once the client is complete: starts the timer.
    explicit AFEditorLink(AFUniClient& client);
    ~AFEditorLink() override;

    // GUI thread: an editor opened or closed. Waits for a request being served.
    void setEditorOpen(bool open);
    // The link's timer thread.
    void timerFired(AFGuiTimer* timer) override;

private:
    AFUniClient& client;
    std::mutex mutex;
    int openEditors = 0;
    AFGuiTimer timer{this, kPeriodMs};
};
