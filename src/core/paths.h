#pragma once

#include <QString>

namespace pulsebar::Paths {

// Where Pulsebar keeps its files; each follows the XDG variables and falls back to the home directory.
QString configDir();      // $XDG_CONFIG_HOME/pulsebar
QString preferencesFile(); // configDir()/preferences.json
QString dataDir();        // $XDG_DATA_HOME/Pulsebar
QString historyFile();    // dataDir()/history.sqlite
QString cacheDir();       // $XDG_CACHE_HOME/pulsebar: copies that can be downloaded again
QString agentHome();      // $PULSEBAR_AGENT_HOME, else $HOME
QString sysroot();        // $PULSEBAR_SYSROOT, else "/"; always ends with '/'

// An environment variable, or fallback when it is unset or empty.
QString env(const char* name, const QString& fallback = {});

} // namespace pulsebar::Paths
