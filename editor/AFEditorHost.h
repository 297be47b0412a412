#pragma once

#include <functional>
#include <string>

// What the editor needs of the window that hosts it: the host's automation gesture, a file dialog and the
// system's "open". The base does nothing but answer "EMPTY" to file requests and open documents with
// xdg-open; the DGL widget and tests override it. GUI thread.
class AFEditorHost {
public:
    struct FileRequest {
        bool saving = false;
        std::string title;
        std::string startFolder;
        std::string defaultName;
    };
    using FileAnswer = std::function<void(const std::string& path)>;

    virtual ~AFEditorHost() = default;
    // Host parameters 0..251 only: the host records automation from these.
    virtual void beginEdit(int) {}
    virtual void automate(int, float) {}
    virtual void endEdit(int) {}
    // Answers once, now or later, with a path or "EMPTY" for no choice.
    virtual void chooseFile(const FileRequest& request, FileAnswer answer);
    // Hands a document to the desktop. False when it could not be started.
    virtual bool openDocument(const std::string& path);
};
