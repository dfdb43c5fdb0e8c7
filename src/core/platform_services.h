#pragma once

#include "core/tray_host.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pulsebar {

// The claim of this process to be the one running application of the session.
class SessionInstance {
public:
    virtual ~SessionInstance() = default;
    // True when this process is now the one instance (or the session has no way to tell).
    virtual bool claim() = 0;
    // Called on the main thread when a later start asks this instance to show itself.
    std::function<void()> onActivate;
};

// What the program needs from the operating system and the desktop session beyond the monitors'
// readers: each service as a function, so code above the platform folder names no system path, tool
// or API. Built once by the platform folder (src/platform/<os>/), the one place that knows its classes.
struct PlatformServices {
    // The running executable with every symbolic link resolved; empty when it cannot be told.
    std::function<QString()> executablePath;
    // Names the calling thread in debuggers and process lists; a long label is shortened.
    std::function<void(const std::string& label)> nameCurrentThread;

    // Desktop notifications: whether the session's service is there, and showing one now. A non-empty
    // button title adds one button, whose function runs on the main thread when it is chosen. The reply
    // is not awaited.
    std::function<bool()> notificationsAvailable;
    std::function<void(const QString& title, const QString& body, const QString& buttonTitle,
                       const std::function<void()>& chosen)>
        showNotification;

    // Start at login: where the entry lives, whether it is on, and switching it (a sentence for the user
    // on failure, an empty string on success).
    std::function<QString()> startAtLoginLocation;
    std::function<bool()> startsAtLogin;
    std::function<QString(bool enabled, const QString& executable)> setStartsAtLogin;

    // The session: whether a display is there to draw on, and the sentence printed when none is.
    std::function<bool()> sessionHasDisplay;
    std::function<QString()> noDisplayMessage;
    // How to get a tray on this desktop, told once when none is there: a title and a body.
    std::function<std::pair<QString, QString>()> noTrayAdvice;
    // Whether the desktop's panel is dark where the desktop settles it; nullopt where it follows the theme.
    std::function<std::optional<bool>()> panelIsDark;
    // The desktop's own trays, most preferred first.
    std::function<std::vector<std::unique_ptr<TrayHost>>()> trayHosts;
    // One running application per session: this process's claim, and asking the running one to show itself
    // (false when none answered).
    std::function<std::unique_ptr<SessionInstance>()> sessionInstance;
    std::function<bool()> activateRunningInstance;
};

// The services of the running system, built on first use.
const PlatformServices& platformServices();

} // namespace pulsebar
