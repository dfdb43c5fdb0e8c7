#include "dump/debug_dump.h"

namespace pulsebar {

int DebugDump::run(const std::optional<QString>&)
{
    return 0;
}

} // namespace pulsebar
