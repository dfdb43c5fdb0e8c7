#pragma once

#include <QString>

namespace pulsebar {

// The application's reverse-DNS id: its well-known name on the session bus (the running instance),
// the prefix of its tray items' names, and the id the desktop entry and packages carry.
inline const QString applicationId = QStringLiteral("org.pulsebar.Pulsebar");

} // namespace pulsebar
