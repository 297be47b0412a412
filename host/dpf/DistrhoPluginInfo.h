#pragma once

// What DPF needs to know of Orvanto at compile time. The ids below are fixed for good: hosts find saved
// sessions by them.
#define DISTRHO_PLUGIN_BRAND "Amber Forge"
#define DISTRHO_PLUGIN_NAME "Orvanto"
#define DISTRHO_PLUGIN_URI "urn:amberforge:orvanto"
#define DISTRHO_PLUGIN_CLAP_ID "com.amberforge.orvanto"

#define DISTRHO_PLUGIN_HAS_UI 1
// The editor writes the engine's fields directly, so the UI lives beside the plug-in instance (LV2: instance
// access).
#define DISTRHO_PLUGIN_WANT_DIRECT_ACCESS 1
#define DISTRHO_UI_USE_CAIRO 1
#define DISTRHO_UI_FILE_BROWSER 1
#define DISTRHO_UI_USER_RESIZABLE 0
#define DISTRHO_UI_DEFAULT_WIDTH 1200
#define DISTRHO_UI_DEFAULT_HEIGHT 700
#define DISTRHO_PLUGIN_IS_RT_SAFE 1
#define DISTRHO_PLUGIN_NUM_INPUTS 2
#define DISTRHO_PLUGIN_NUM_OUTPUTS 2
#define DISTRHO_PLUGIN_WANT_MIDI_INPUT 1
#define DISTRHO_PLUGIN_WANT_MIDI_OUTPUT 1
#define DISTRHO_PLUGIN_WANT_TIMEPOS 1
#define DISTRHO_PLUGIN_WANT_PROGRAMS 1
#define DISTRHO_PLUGIN_WANT_STATE 1
#define DISTRHO_PLUGIN_WANT_FULL_STATE 1
#define DISTRHO_PLUGIN_WANT_PARAMETER_VALUE_CHANGE_REQUEST 1

#define DISTRHO_PLUGIN_LV2_CATEGORY "lv2:ModulatorPlugin"
#define DISTRHO_PLUGIN_VST3_CATEGORIES "Fx|Modulation|Delay|Filter|Stereo"
#define DISTRHO_PLUGIN_CLAP_FEATURES "audio-effect", "multi-effects", "stereo"
