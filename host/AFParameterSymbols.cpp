#include "host/AFParameterSymbols.h"

std::string AFParameterSymbols::fromName(const std::string& name) {
    std::string symbol;
    bool gap = false;
    for (const char c : name) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool digit = c >= '0' && c <= '9';
        if (!letter && !digit) {
            gap = !symbol.empty();
            continue;
        }
        if (gap) symbol += '_';
        gap = false;
        if (symbol.empty() && digit) symbol += '_';
        symbol += letter ? static_cast<char>(c | 0x20) : c;
    }
    return symbol.empty() ? "_" : symbol;
}
