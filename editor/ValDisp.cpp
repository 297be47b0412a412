#include "editor/ValDisp.h"

#include <cstdio>

void ValDisp::setNumber(int number) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", number);
    setText(text);
}
