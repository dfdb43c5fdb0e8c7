#include "mcp/mcp_server.h"

#include <cstdio>

namespace pulsebar {

int MCPServer::run(int, char**)
{
    std::fputs("pulsebar: --mcp is not available yet\n", stderr);
    return 1;
}

} // namespace pulsebar
