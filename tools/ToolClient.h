#pragma once

#include <memory>

class AFUniClient;

// An engine for the command-line tools: it answers as the maker's own host, so no user's default preset
// leaks into what the tools read or write. Main thread of the tool.
class ToolClient {
public:
    static std::unique_ptr<AFUniClient> create();
};
