#pragma once

#include <string>

class AFUniClientEditor;

// Draws an open editor's whole frame at a scale into a PNG file, with no window. GUI thread.
class AFEditorSnapshot {
public:
    static bool write(AFUniClientEditor& editor, double scale, const std::string& path);
};
