#pragma once

#include <QString>

namespace pulsebar {

// A failure of add or remove, told to the user as one finished sentence.
struct ConfigError {
    QString errorDescription;
    // What the user can copy and apply by hand instead (the JSON snippet, the TOML table or the shell
    // command); may be empty.
    QString offeredText;
};

} // namespace pulsebar
