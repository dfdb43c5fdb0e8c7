#include "agents/agent_client.h"

#include <cstdio>

namespace pulsebar {

int AgentClient::runCommand(const QStringList&)
{
    std::fputs("pulsebar: --agents is not available yet\n", stderr);
    return 1;
}

} // namespace pulsebar
