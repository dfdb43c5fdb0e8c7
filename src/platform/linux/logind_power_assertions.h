#pragma once

#include "core/keep_awake.h"

#include <QDBusConnection>

#include <map>

namespace pulsebar {

// Keep-awake on Linux: a "block" inhibitor lock on sleep and idle from systemd-logind (the lock is a
// file descriptor; closing it releases the lock), plus the session's screen-saver inhibit when the
// display must stay on. Either one refused means the whole assertion is refused.
class LogindPowerAssertions : public PowerAssertions {
public:
    // The system and session buses, connected on first use (a process that never keeps awake never connects).
    LogindPowerAssertions();
    LogindPowerAssertions(QDBusConnection systemBus, QDBusConnection sessionBus);
    ~LogindPowerAssertions() override;

    std::optional<int> create(bool keepDisplayOn, const QString& name) override;
    void release(int assertion) override;

    static constexpr int callTimeoutMs = 5000;

private:
    struct Held {
        int fd = -1;
        std::optional<uint> screenSaverCookie;
    };
    std::optional<int> inhibitSleep(const QString& name);
    std::optional<uint> inhibitScreenSaver(const QString& name);

    QDBusConnection system();
    QDBusConnection session();

    std::optional<QDBusConnection> m_system;
    std::optional<QDBusConnection> m_session;
    std::map<int, Held> m_held;
    int m_next = 1;
};

} // namespace pulsebar
