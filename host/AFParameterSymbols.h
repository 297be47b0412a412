#pragma once

#include <string>

// Machine names of the host parameters, for formats that need one (LV2 port symbols). Derived from the
// parameter names, which are fixed, so a symbol never changes once released.
class AFParameterSymbols {
public:
    // Any thread. Lower case, every run of other characters one underscore, no leading digit:
    // "FX1 Parameter 1" gives "fx1_parameter_1", "Dry/Wet" gives "dry_wet".
    static std::string fromName(const std::string& name);
};
