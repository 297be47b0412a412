#include "engine/AFCommandPrepare.h"

AFCommandPrepare::~AFCommandPrepare() = default;

void AFCommandPrepare::prepare(AFCommandBase&) {}
