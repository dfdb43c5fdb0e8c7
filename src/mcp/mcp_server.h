#pragma once

namespace pulsebar {

// The headless MCP server on standard input and output. Returns the process's exit status.
class MCPServer {
public:
    static int run(int argc, char** argv);
};

} // namespace pulsebar
