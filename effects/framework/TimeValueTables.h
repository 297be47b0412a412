#pragma once

#include "effects/framework/TimeValueTable.h"

#include <cstddef>

// The process-wide note-value tables and display helpers. Built once on first use, read-only afterwards.
class TimeValueTables {
public:
    // Any thread. The first call builds the tables; the plug-in object makes that call at construction.
    static const TimeValueTables& instance();

    TimeValueTable syncTable;        // 1\2 .. 1\128
    TimeValueTable syncTripletTable; // straight and triplet interleaved
    TimeValueTable offSyncTable;     // "Off", then syncTable
    TimeValueTable offTripletTable;  // "Off", then syncTripletTable
    TimeValueTable lfoSyncTable;     // "Off", "2 bars", "bar", then syncTable
    TimeValueTable lfoTripletTable;  // "Off", "2 bars", "1.5 bars", "bar", "0.75 bar", then syncTripletTable
    TimeValueTable offDottedTable;   // "Off", then syncDottedTable
    TimeValueTable syncDottedTable;  // dotted, straight, triplet for each value
    TimeValueTable sixteenthsTable;  // 1//16 .. 16//16, short to long

    // From 1000 ms on "%2.2f s" of seconds, below "%2.0f ms". Any thread.
    static void formatTime(char* text, std::size_t size, float ms);
    // "C%d" .. "B%d" with octave (note - 24) / 12; a negative note gives "Err". Any thread.
    static void formatNote(char* text, std::size_t size, int note);

private:
    TimeValueTables();
};
