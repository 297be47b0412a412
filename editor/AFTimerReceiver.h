#pragma once

class AFGuiTimer;

// Whoever an AFGuiTimer notifies.
class AFTimerReceiver {
public:
    virtual ~AFTimerReceiver() = default;
    virtual void timerFired(AFGuiTimer* timer) = 0;
};
