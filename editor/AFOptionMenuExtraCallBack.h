#pragma once

class AFOptionMenu;

// Lets the owner of a shared menu relabel entries just before it pops up for a control. GUI thread.
class AFOptionMenuExtraCallBack {
public:
    virtual ~AFOptionMenuExtraCallBack() = default;
    virtual void menuWillOpen(AFOptionMenu* menu, int callerTag) = 0;
};
