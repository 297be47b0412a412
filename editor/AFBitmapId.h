#pragma once

// The numbers of the editor's 113 images, as the bitmap loader knows them. Strips hold 127 frames one under
// the other; `kCount` images are numbered from `kFirst`.
struct AFBitmapId {
    static constexpr int kFirst = 1000;
    static constexpr int kCount = 113;
    static constexpr int kFrames = 127;

    static constexpr int kBackground = 1000;
    static constexpr int kSlotHeader = 1001; // eight, one per slot colour
    static constexpr int kControlKnob = 1009;
    static constexpr int kParameterKnob = 1010;
    static constexpr int kOverlayLfo1 = 1011;
    static constexpr int kOverlayLfo2 = 1012;
    static constexpr int kOverlayEnvelope = 1013;
    static constexpr int kLampOff = 1014;
    static constexpr int kLampPending = 1015;
    static constexpr int kLampFading = 1016;
    static constexpr int kLampRunning = 1017;
    static constexpr int kBypassOff = 1018;
    static constexpr int kBypassOn = 1019;
    static constexpr int kDictatorTrack = 1020;
    static constexpr int kDictatorHandle = 1021;
    static constexpr int kDryWetTrack = 1022;
    static constexpr int kDryWetHandle = 1023;
    static constexpr int kGainKnob = 1024;
    static constexpr int kRandomizeButton = 1025;
    static constexpr int kUndoButton = 1026;
    static constexpr int kRedoButton = 1027;
    static constexpr int kManualButton = 1028;
    static constexpr int kPresetFace = 1029;
    static constexpr int kLogo = 1030;
    static constexpr int kEffectBadge = 1031; // 24, in menu order
    static constexpr int kOptionFace = 1055;
    static constexpr int kMixLawFace = 1056;
    static constexpr int kCurveFace = 1057;
    static constexpr int kQuantiseFace = 1058;
    static constexpr int kCurveGlyph = 1059;    // 20, one per response curve
    static constexpr int kWaveformGlyph = 1079; // 14, one per LFO waveform
    static constexpr int kSlotNumber = 1093;    // 8
    static constexpr int kQuantiseGlyph = 1101; // 6
    static constexpr int kMixLawGlyph = 1107;   // 5
    static constexpr int kMenuBackdrop = 1112;
};
