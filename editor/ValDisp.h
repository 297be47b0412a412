#pragma once

#include "editor/A2ValueDisplay.h"

// A whole number, shown through "%d". GUI thread.
class ValDisp : public A2ValueDisplay {
public:
    using A2ValueDisplay::A2ValueDisplay;
    void setNumber(int number);
};
