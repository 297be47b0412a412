#pragma once

#include <cstdlib>
#include <optional>
#include <string>

// Sets or clears one environment variable for the lifetime of the object, then restores it.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* variable, const char* value) : name(variable) {
        if (const char* old = std::getenv(variable)) previous = old;
        if (value != nullptr)
            setenv(variable, value, 1);
        else
            unsetenv(variable);
    }
    ~ScopedEnvironment() {
        if (previous)
            setenv(name.c_str(), previous->c_str(), 1);
        else
            unsetenv(name.c_str());
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name;
    std::optional<std::string> previous;
};
