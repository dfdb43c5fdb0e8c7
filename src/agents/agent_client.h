#pragma once

#include <QStringList>

namespace pulsebar {

class AgentClient {
public:
    // The --agents command; the arguments are those after "--agents". Returns the exit status.
    static int runCommand(const QStringList& arguments);
};

} // namespace pulsebar
