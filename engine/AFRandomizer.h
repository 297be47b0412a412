#pragma once

#include <string>
#include <vector>

class AFUniClient;

// Randomize: every slot gets an effect drawn from the menu and then the first loadable preset of that effect
// from a random place in its preset folder. Controls, the Dictator and its rows, the master Dry/Wet, the FX
// Gain values, the CC bindings and the global settings stay as they are.
class AFRandomizer {
public:
    // The effects of the menu, in menu order, and the word after them that a top draw reads.
    static constexpr int kDrawTypes[25] = {20, 21, 11, 27, 14, 7, 13, 26, 8,  19, 22, 23, 1,
                                           2,  12, 3,  17, 4,  9, 16, 24, 25, 18, 5,  0};

    // Editor thread (its timer, after a snapshot went on the command history). `contentPath` is the folder
    // holding "Effect Presets". Missing folders and presets that fail to load are passed over silently.
    static void randomize(AFUniClient& client, const std::string& contentPath);

    // The sorted names ending in "afo" in `folder`; empty when it cannot be listed.
    static std::vector<std::string> presetFiles(const std::string& folder);
};
