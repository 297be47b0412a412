#pragma once

// Table-like objects that can put themselves back to the state they were built in.
class AFInitInterface {
public:
    virtual ~AFInitInterface() = default;
    // GUI thread, or with the audio held off.
    virtual void init() = 0;
};
