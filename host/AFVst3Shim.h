#pragma once

// What a VST3 host sees of the plug-in, adjusted on the objects DPF builds, since DPF itself is used as
// shipped:
// - the 2,080 MIDI controller stand-ins DPF adds are left out of the parameter list (controllers still reach
//   the engine as MIDI, through the controller's MIDI mapping);
// - a program change from the host does not ask the host to re-read every parameter from inside its own call
//   (hosts that hold a lock there wait for ever); the engine's moved values reach the host as output
//   parameter changes from the blocks that follow, as every other move of the engine does.
class AFVst3Shim {
public:
    // Host thread, when the host loads the module: DPF's factory with the adjustments above.
    static const void* wrapFactory(const void* factory);
};
