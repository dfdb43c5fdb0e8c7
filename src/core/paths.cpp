#include "core/paths.h"

#include <QDir>

namespace pulsebar::Paths {

QString env(const char* name, const QString& fallback)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? fallback : value;
}

QString home()
{
    return env("HOME", QDir::homePath());
}

QString preferencesFile()
{
    return configDir() + "/preferences.json";
}

QString historyFile()
{
    return dataDir() + "/history.sqlite";
}

QString agentHome()
{
    return env("PULSEBAR_AGENT_HOME", home());
}

QString sysroot()
{
    QString root = env("PULSEBAR_SYSROOT", "/");
    if (!root.endsWith('/'))
        root += '/';
    return root;
}

} // namespace pulsebar::Paths
