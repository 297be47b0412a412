#pragma once

class AFUniClient;

// Carries out the requests the engine raises for the editor: Randomize and a MIDI program change. The
// editor's timer runs these in its order; with no editor open, the plug-in's own timer runs them. Never on
// the audio thread.
class AFRequestServer {
public:
    // A snapshot of the whole state on the history, so Randomize can be undone.
    static void pushSnapshot(AFUniClient& client);
    static void randomize(AFUniClient& client);
    // Loads the global preset the last program change named; false when there is none.
    static bool programChange(AFUniClient& client);
    // Takes and serves both requests, the editor-less way. True when the state changed.
    static bool serve(AFUniClient& client);
};
