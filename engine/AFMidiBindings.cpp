#include "engine/AFMidiBindings.h"

#include "engine/AFAudioGate.h"
#include "host/AFPluginTypes.h"
#include "state/AFChunk.h"
#include "state/AFMessageSink.h"

#include <cstdio>
#include <limits>
#include <memory>

namespace {

// The MIDI page's table, as it has always read: "#118" is missing, so from "#119" on each name sits one
// number below its controller.
constexpr const char* kControllerNames[AFMidiBindings::kControllerNameCount] = {
    "Banksel",      "Modulation",   "Breath",       "#3",           "Foot",         "Portamento", "DataEntry",
    "Volume",       "Balance",      "#9",           "Pan",          "Expression",   "GenPurp1",   "GenPurp2",
    "GenPurp3",     "GenPurp4",     "#16",          "#17",          "#18",          "#19",        "#20",
    "#21",          "#22",          "#23",          "#24",          "#25",          "#26",        "#27",
    "#28",          "#29",          "#30",          "#31",          "BankSelLSB",   "Mod LSB",    "BreathLSB",
    "FootLSB",      "PortaLSB",     "DataEntLSB",   "VolumeLSB",    "BalanceLSB",   "#40",        "Pan LSB",
    "Expr LSB",     "#43",          "#44",          "#45",          "#46",          "#47",        "#48",
    "#49",          "#50",          "#51",          "#52",          "#53",          "#54",        "#55",
    "#56",          "#57",          "#58",          "#59",          "#60",          "#61",        "#62",
    "#63",          "Sustain",      "Porta On/Off", "Sostenuto",    "Soft pedal",   "Legato fs",  "Hold 2",
    "Sound var",    "Harmonique",   "Release time", "Attack time",  "Cut-off",      "#75",        "#76",
    "#77",          "#78",          "#79",          "GenPurp5",     "GenPurp6",     "GenPurp7",   "GenPurp8",
    "Porta ",       "#85",          "#86",          "#87",          "#88",          "#89",        "#90",
    "ExtFx1 Depth", "ExtFx2 Depth", "ExtFx3 Depth", "ExtFx4 Depth", "ExtFx5 Depth", "Data inc",   "Data dec",
    "Nrpn LSB",     "Nrpn MSB",     "Rpn LSB",      "Rpn MSB",      "#102",         "#103",       "#104",
    "#105",         "#106",         "#107",         "#108",         "#109",         "#110",       "#111",
    "#112",         "#113",         "#114",         "#115",         "#116",         "#117",       "#119",
    "AllSound off", "Reset ",       "Local ",       "AllNotes off", "Omni ON",      "Omni OFF",   "Mono ON",
    "Poly ON"};

constexpr const char* kOtherSourceNames[3] = {"Aftertouch", "Pitchbend", "Programmchange"};

constexpr int32_t kLastHostParameter = 251;
constexpr int32_t kFirstAmount = 261;
constexpr int32_t kLastAmount = 380;
constexpr int32_t kFirstTrigger = 2000000;
constexpr int32_t kLastTrigger = 2000007;

bool fitsShort(int32_t parameter) {
    return parameter >= 0 && parameter <= std::numeric_limits<int16_t>::max();
}

// Raises a flag for the lifetime of an edit.
class FlagHold {
public:
    explicit FlagHold(std::atomic<bool>& flag) : held(flag) { held.store(true, std::memory_order_release); }
    ~FlagHold() { held.store(false, std::memory_order_release); }
    FlagHold(const FlagHold&) = delete;
    FlagHold& operator=(const FlagHold&) = delete;

private:
    std::atomic<bool>& held;
};

} // namespace

// ---- Lists ------------------------------------------------------------------------------------------------

template <typename T>
int AFMidiBindings::List<T>::size() const noexcept {
    const int n = count.load(std::memory_order_acquire);
    return n < 0 ? 0 : (n > kListCapacity ? kListCapacity : n);
}

template <typename T>
int32_t AFMidiBindings::List<T>::operator[](int i) const noexcept {
    return static_cast<int32_t>(items[static_cast<std::size_t>(i)].load(std::memory_order_relaxed));
}

template <typename T>
bool AFMidiBindings::List<T>::contains(int32_t parameter) const noexcept {
    const int n = size();
    for (int i = 0; i < n; ++i)
        if ((*this)[i] == parameter) return true;
    return false;
}

template <typename T>
bool AFMidiBindings::List<T>::add(int32_t parameter) noexcept {
    if (contains(parameter)) return true;
    const int n = size();
    if (n >= kListCapacity) return false;
    // The word first, then the count: a reader never sees a slot that was not written.
    items[static_cast<std::size_t>(n)].store(static_cast<T>(parameter), std::memory_order_relaxed);
    count.store(n + 1, std::memory_order_release);
    return true;
}

template <typename T>
void AFMidiBindings::List<T>::remove(int32_t parameter) noexcept {
    int n = size();
    int kept = 0;
    for (int i = 0; i < n; ++i) {
        const int32_t item = (*this)[i];
        if (item == parameter) continue;
        items[static_cast<std::size_t>(kept++)].store(static_cast<T>(item), std::memory_order_relaxed);
    }
    count.store(kept, std::memory_order_release);
}

template <typename T>
void AFMidiBindings::List<T>::copyFrom(const List& other) noexcept {
    const int n = other.size();
    count.store(0, std::memory_order_release);
    for (int i = 0; i < n; ++i)
        items[static_cast<std::size_t>(i)].store(static_cast<T>(other[i]), std::memory_order_relaxed);
    count.store(n, std::memory_order_release);
}

template class AFMidiBindings::List<int32_t>;
template class AFMidiBindings::List<int16_t>;

// ---- Names ------------------------------------------------------------------------------------------------

const char* AFMidiBindings::controllerName(int cc) noexcept {
    return cc >= 0 && cc < kControllerNameCount ? kControllerNames[cc] : "";
}

const char* AFMidiBindings::otherSourceName(int source) noexcept {
    return source >= 0 && source < 3 ? kOtherSourceNames[source] : "";
}

bool AFMidiBindings::isBindable(int32_t parameter) noexcept {
    return (parameter >= 0 && parameter <= kLastHostParameter) ||
           (parameter >= kFirstAmount && parameter <= kLastAmount) ||
           (parameter >= kFirstTrigger && parameter <= kLastTrigger);
}

// ---- Audio gate -------------------------------------------------------------------------------------------

bool AFMidiBindings::holdAudio() noexcept {
    if (audioGate == nullptr) return true;
    audioGate->turn().lock();
    if (audioGate->holdWithin(kWaitSleeps)) return true;
    ++strandedHolds;
    audioGate->turn().unlock();
    return false;
}

void AFMidiBindings::releaseAudio() noexcept {
    if (audioGate == nullptr) return;
    for (; strandedHolds > 0; --strandedHolds)
        audioGate->release();
    audioGate->release();
    audioGate->turn().unlock();
}

// ---- Learn (audio thread) ---------------------------------------------------------------------------------

void AFMidiBindings::learnNote(int note) noexcept {
    const int target = getLearnTarget();
    if (target < 0 || target > kLastNoteTarget) return;
    removeFromNotes(target);
    notes_[static_cast<std::size_t>(note & 0x7F)].add(target);
    learnTarget.store(kNoTarget, std::memory_order_release);
}

void AFMidiBindings::learnController(int cc) noexcept {
    const int target = getLearnTarget();
    if (target < 0) return;
    if (isBindable(target)) {
        removeFromControllers(target);
        cc_[static_cast<std::size_t>(cc & 0x7F)].add(target);
    }
    learnTarget.store(kNoTarget, std::memory_order_release);
}

void AFMidiBindings::learnAftertouch() noexcept {
    const int target = getLearnTarget();
    if (target < 0) return;
    // The list holds 16-bit indices: the Dictator triggers do not fit and are not bound.
    if (isBindable(target) && fitsShort(target)) aftertouch_.add(target);
    learnTarget.store(kNoTarget, std::memory_order_release);
}

void AFMidiBindings::removeFromNotes(int32_t parameter) noexcept {
    for (auto& list : notes_)
        list.remove(parameter);
}

void AFMidiBindings::removeFromControllers(int32_t parameter) noexcept {
    for (auto& list : cc_)
        list.remove(parameter);
}

// ---- Edits (GUI thread) -----------------------------------------------------------------------------------

bool AFMidiBindings::addControllerBinding(int cc, int32_t parameter) {
    if (cc < 0 || cc >= kSources || !isBindable(parameter)) return false;
    const FlagHold busy(ccBusy);
    return cc_[static_cast<std::size_t>(cc)].add(parameter);
}

bool AFMidiBindings::addNoteBinding(int note, int32_t parameter) {
    if (note < 0 || note >= kSources || !isBindable(parameter)) return false;
    if (!holdAudio()) return false;
    const bool added = notes_[static_cast<std::size_t>(note)].add(parameter);
    releaseAudio();
    return added;
}

bool AFMidiBindings::addAftertouchBinding(int32_t parameter) {
    if (!isBindable(parameter) || !fitsShort(parameter)) return false;
    if (!holdAudio()) return false;
    const bool added = aftertouch_.add(parameter);
    releaseAudio();
    return added;
}

bool AFMidiBindings::removeParameter(int32_t parameter) {
    if (!holdAudio()) return false;
    removeFromNotes(parameter);
    {
        const FlagHold busy(ccBusy);
        removeFromControllers(parameter);
    }
    aftertouch_.remove(parameter);
    releaseAudio();
    return true;
}

int AFMidiBindings::controllerFor(int32_t parameter) const noexcept {
    for (int cc = 0; cc < kSources; ++cc)
        if (cc_[static_cast<std::size_t>(cc)].contains(parameter)) return cc;
    return -1;
}

void AFMidiBindings::replaceMap(const AFMidiBindings& other) {
    if (&other == this) return;
    const FlagHold load(loading);
    const FlagHold busy(ccBusy);
    for (std::size_t i = 0; i < kSources; ++i) {
        cc_[i].copyFrom(other.cc_[i]);
        notes_[i].copyFrom(other.notes_[i]);
    }
    aftertouch_.copyFrom(other.aftertouch_);
}

void AFMidiBindings::replaceControllers(const AFMidiBindings& other) {
    if (&other == this) return;
    const FlagHold busy(ccBusy);
    for (std::size_t i = 0; i < kSources; ++i)
        cc_[i].copyFrom(other.cc_[i]);
}

void AFMidiBindings::clear() {
    const FlagHold load(loading);
    const FlagHold busy(ccBusy);
    for (std::size_t i = 0; i < kSources; ++i) {
        cc_[i].clear();
        notes_[i].clear();
    }
    aftertouch_.clear();
}

// ---- Map files --------------------------------------------------------------------------------------------

bool AFMidiBindings::readControllerPairs(AFChunk& chunk) {
    for (;;) {
        // Zeros never end the pairs: from there the read can only run out.
        if (chunk.inZeroTail()) return false;
        const int32_t cc = chunk.readInt();
        if (chunk.isOverrun()) return false;
        if (cc == kPairsEnd) return true;
        const int32_t parameter = chunk.readInt();
        if (chunk.isOverrun()) return false;
        if (cc >= 0 && cc < kSources && isBindable(parameter))
            cc_[static_cast<std::size_t>(cc)].add(parameter);
    }
}

void AFMidiBindings::writeControllerPairs(AFChunk& chunk) const {
    for (int cc = 0; cc < kSources; ++cc) {
        const IndexList& list = cc_[static_cast<std::size_t>(cc)];
        for (int i = 0; i < list.size(); ++i) {
            chunk.writeInt(cc);
            chunk.writeInt(list[i]);
        }
    }
    chunk.writeInt(kPairsEnd);
}

namespace {

// One count and that many indices; false when the count is negative or the words run out.
bool readList(AFChunk& chunk, AFMidiBindings::IndexList& list) {
    const int32_t count = chunk.readInt();
    if (chunk.isOverrun() || count < 0) return false;
    for (int32_t i = 0; i < count; ++i) {
        if (chunk.inZeroTail()) {
            // The rest are zeros, which bind parameter 0 once, as reading them one by one would.
            const int64_t rest = count - i;
            if (rest > static_cast<int64_t>(chunk.wordCount()) - chunk.getPosition()) return false;
            chunk.setPosition(chunk.getPosition() + static_cast<int32_t>(rest));
            if (AFMidiBindings::isBindable(0)) list.add(0);
            return true;
        }
        const int32_t parameter = chunk.readInt();
        if (chunk.isOverrun()) return false;
        if (AFMidiBindings::isBindable(parameter)) list.add(parameter);
    }
    return true;
}

void writeList(AFChunk& chunk, const AFMidiBindings::IndexList& list) {
    const int n = list.size();
    chunk.writeInt(n);
    for (int i = 0; i < n; ++i)
        chunk.writeInt(list[i]);
}

} // namespace

bool AFMidiBindings::readMapBody(AFChunk& chunk) {
    const int32_t version = chunk.readInt();
    const int32_t magic = chunk.readInt();
    if (chunk.isOverrun() || version > kMapVersion || magic != kMapMagic) return false;
    if (version < kFirstListVersion) return readControllerPairs(chunk);
    for (std::size_t i = 0; i < kSources; ++i)
        if (!readList(chunk, cc_[i]) || !readList(chunk, notes_[i])) return false;
    return true;
}

void AFMidiBindings::writeMapBody(AFChunk& chunk) const {
    chunk.writeHeader();
    chunk.writeInt(kMapVersion);
    chunk.writeInt(kMapMagic);
    for (std::size_t i = 0; i < kSources; ++i) {
        writeList(chunk, cc_[i]);
        writeList(chunk, notes_[i]);
    }
}

bool AFMidiBindings::loadMidiMap(const std::string& path, bool silent) {
    AFChunk chunk;
    chunk.setMessageSink(messages);
    if (!chunk.readFile(path, silent)) return false;
    if (chunk.getVersion() > AFChunk::contentVersion()) {
        if (!silent) {
            char text[256];
            std::snprintf(text, sizeof(text), "midi map was written with a newer version of %s",
                          AFIdentity::kProduct);
            AFMessageSink::reportTo(messages, text);
        }
        return false;
    }
    const auto loaded = std::make_unique<AFMidiBindings>();
    if (!loaded->readMapBody(chunk)) return false;
    replaceMap(*loaded);
    return true;
}

bool AFMidiBindings::saveMidiMap(const std::string& path) const {
    AFChunk chunk;
    chunk.rewindToWrite();
    writeMapBody(chunk);
    chunk.allocateCounted();
    writeMapBody(chunk);
    if (chunk.writeFile(path)) return true;
    const std::string text = "saving cc map to " + path + " failed";
    AFMessageSink::reportTo(messages, text);
    return false;
}
