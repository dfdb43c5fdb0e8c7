#include "core/paths.h"

// The XDG base directories, each falling back to its usual place under the home directory.
namespace pulsebar::Paths {

QString configDir()
{
    return env("XDG_CONFIG_HOME", home() + "/.config") + "/pulsebar";
}

QString dataDir()
{
    return env("XDG_DATA_HOME", home() + "/.local/share") + "/Pulsebar";
}

QString cacheDir()
{
    return env("XDG_CACHE_HOME", home() + "/.cache") + "/pulsebar";
}

} // namespace pulsebar::Paths
