#pragma once

#include <QString>

namespace pulsebar::Paths {

// Where Pulsebar keeps its files, in the folders this desktop gives each user for them (the platform
// folder knows which).
QString configDir();      // settings
QString preferencesFile(); // configDir()/preferences.json
QString dataDir();        // kept data: the history
QString cacheDir();       // what can be fetched again
QString historyFile();    // dataDir()/history.sqlite
QString agentHome();      // $PULSEBAR_AGENT_HOME, else $HOME
QString sysroot();        // $PULSEBAR_SYSROOT, else "/"; always ends with '/'

// An environment variable, or fallback when it is unset or empty.
QString env(const char* name, const QString& fallback = {});
QString home(); // $HOME, else the system's idea of it

} // namespace pulsebar::Paths
