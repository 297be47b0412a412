#include "effects/framework/TimeValueTables.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using Entry = TimeValueTable::Entry;

Entry row(const char* text, double length) {
    Entry e{length, {}};
    std::strncpy(e.text, text, sizeof(e.text) - 1);
    return e;
}

// Triplet and dotted lengths are four times these decimals; they are kept as written, not as exact thirds.
constexpr const char* kNames[7] = {"1\\2", "1\\4", "1\\8", "1\\16", "1\\32", "1\\64", "1\\128"};
constexpr double kStraight[7] = {2, 1, 0.5, 0.25, 0.125, 0.0625, 0.03125};
constexpr double kTriplet[7] = {0.33333333,  0.16666666, 0.08333333333, 0.04166666666,
                                0.020833333, 0.01041666, 0.00520833333};
constexpr double kDotted[7] = {0.75, 0.375, 0.1875, 0.09375, 0.046875, 0.0234375, 0.01171875};

std::vector<Entry> prefixed(std::vector<Entry> head, const std::vector<Entry>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

} // namespace

const TimeValueTables& TimeValueTables::instance() {
    static const TimeValueTables tables;
    return tables;
}

TimeValueTables::TimeValueTables() {
    std::vector<Entry> straight, triplet, dotted;
    for (int i = 0; i < 7; ++i) {
        const std::string name = kNames[i];
        straight.push_back(row(kNames[i], kStraight[i]));
        triplet.push_back(row(kNames[i], kStraight[i]));
        triplet.push_back(row((name + "T").c_str(), 4.0 * kTriplet[i]));
        dotted.push_back(row((name + "P").c_str(), 4.0 * kDotted[i]));
        dotted.push_back(row(kNames[i], kStraight[i]));
        dotted.push_back(row((name + "T").c_str(), 4.0 * kTriplet[i]));
    }
    const Entry off = row("Off", 0.0);

    syncTable = TimeValueTable(straight);
    syncTripletTable = TimeValueTable(triplet);
    offSyncTable = TimeValueTable(prefixed({off}, straight));
    offTripletTable = TimeValueTable(prefixed({off}, triplet));
    lfoSyncTable = TimeValueTable(prefixed({off, row("2 bars", 8), row("bar", 4)}, straight));
    lfoTripletTable = TimeValueTable(
        prefixed({off, row("2 bars", 8), row("1.5 bars", 6), row("bar", 4), row("0.75 bar", 3)}, triplet));
    offDottedTable = TimeValueTable(prefixed({off}, dotted));
    syncDottedTable = TimeValueTable(dotted);
    sixteenthsTable = TimeValueTable({row("1//16", 0.25), row("2//16", 0.5), row("3//16", 0.75),
                                      row("4//16", 1), row("6//16", 1.5), row("8//16", 2), row("10//16", 2.5),
                                      row("12//16", 3), row("16//16", 4)});
}

void TimeValueTables::formatTime(char* text, std::size_t size, float ms) {
    if (ms >= 1000.0f)
        std::snprintf(text, size, "%2.2f s", static_cast<double>(ms) * 0.001);
    else
        std::snprintf(text, size, "%2.0f ms", static_cast<double>(ms));
}

void TimeValueTables::formatNote(char* text, std::size_t size, int note) {
    static constexpr const char* kFormats[12] = {"C%d",  "C#%d", "D%d",  "D#%d", "E%d",  "F%d",
                                                 "F#%d", "G%d",  "G#%d", "A%d",  "A#%d", "B%d"};
    const int pitch = note % 12;
    if (pitch < 0) {
        std::snprintf(text, size, "Err");
        return;
    }
    std::snprintf(text, size, kFormats[pitch], (note - 24) / 12);
}
