#include "engine/AFTransport.h"

#include "effects/framework/AFBpmListenerList.h"
#include "effects/framework/AFSystemInfo.h"
#include "host/AFPluginTypes.h"

#include <cmath>

bool AFTransport::follow(const AFTimeInfo* time, int frames, AFSystemInfo& system) noexcept {
    increment = 0.0;
    loopWrap = false;
    wrapPoint = 0.0f;
    bool stopped = false;
    double localTempo = system.bpm;
    if (time != nullptr) {
        localTempo = time->tempo < 45.0 ? 45.0 : time->tempo;
        const bool playing = (time->flags & kVstTransportPlaying) != 0 && time->ppqPos >= 0.0;
        if (!playing) {
            position = 0.0;
            if (system.transportRunning != 0.0f) {
                system.transportRunning = 0.0f;
                stopped = true;
            }
        } else {
            const double ppq = time->ppqPos;
            const bool loop =
                (time->flags & kVstCyclePosValid) != 0 && (time->flags & kVstTransportCycleActive) != 0;
            const bool justWrapped = loop && ppq > time->cycleEndPos && ppq - time->cycleEndPos < 0.15;
            if (std::fabs(position - ppq) > 0.5 && !justWrapped) position = ppq;
            if (frames > 0) {
                const double nominal = (frames / static_cast<double>(system.samplesPerBeat)) / frames;
                const double target = ppq + frames * nominal;
                if (justWrapped) {
                    increment = nominal;
                } else {
                    increment = (target - position) / frames;
                    if (loop && time->cycleEndPos <= target && time->cycleEndPos > ppq) {
                        loopWrap = true;
                        wrapPoint = static_cast<float>(time->cycleEndPos);
                        cycleStart = time->cycleStartPos;
                    }
                }
            }
            if (system.transportRunning == 0.0f) system.transportRunning = 1.0f;
        }
    }
    // The clamped tempo decides whether it changed; the record's own value is what is set.
    if (localTempo != system.bpm) {
        system.setTempo(time->tempo);
        if (system.bpmListeners != nullptr) system.bpmListeners->notifyAll();
    }
    system.ppqStep = increment;
    system.ppqPosition = static_cast<float>(position);
    return stopped;
}

void AFTransport::advance(int frames, AFSystemInfo& system) noexcept {
    position += frames * increment;
    if (loopWrap && position >= wrapPoint) position = cycleStart;
    system.ppqPosition = static_cast<float>(position);
}
