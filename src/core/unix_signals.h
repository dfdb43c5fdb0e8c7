#pragma once

namespace pulsebar {

// SIGTERM, SIGINT and SIGHUP end the running event loop the normal way (QCoreApplication::quit), so that
// everything flushed on quit is flushed. Call once, after the application object exists.
void quitOnTerminationSignals();

} // namespace pulsebar
