// The desktop side of the process actions: the file manager over D-Bus, the system monitor as a
// child process and the kill signal.
#include "monitors/process_actions.h"

#include "platform/linux/linux_process_reader.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include <csignal>

namespace pulsebar::ProcessActions {

const QSet<QString>& protectedNames()
{
    // The session and the system itself: the service manager, the display server and the desktop
    // shells (and their namesakes elsewhere, for a process list read from another machine's export).
    static const QSet<QString> names{
        QStringLiteral("loginwindow"), QStringLiteral("launchd"), QStringLiteral("WindowServer"),
        QStringLiteral("kernel_task"), QStringLiteral("systemd"), QStringLiteral("init"), QStringLiteral("Xorg"),
        QStringLiteral("Xwayland"), QStringLiteral("gnome-shell"), QStringLiteral("kwin_wayland"),
        QStringLiteral("kwin_x11"), QStringLiteral("plasmashell")};
    return names;
}

std::optional<QString> location(int32_t pid)
{
    const auto executable = LinuxProcessReader::executablePath(RootedFileReader::fromEnvironment(), pid);
    return executable ? locationFromExecutable(*executable) : std::nullopt;
}

bool forceTerminate(int32_t pid)
{
    return pid > 0 && ::kill(pid, SIGKILL) == 0;
}

void showInFinder(int32_t pid)
{
    const auto path = location(pid);
    if (!path)
        return;
    const QString folder = QFileInfo(*path).absolutePath();
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(*path).toString()} << QString();
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        QProcess::startDetached(QStringLiteral("xdg-open"), {folder});
        return;
    }
    // Asynchronous, so a file manager that takes its time to start never blocks the menu bar; without
    // one, the folder opens in whatever handles folders.
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000), QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, [watcher, folder] {
        if (watcher->isError())
            QProcess::startDetached(QStringLiteral("xdg-open"), {folder});
        watcher->deleteLater();
    });
}

void openActivityMonitor()
{
    for (const char* program : {"gnome-system-monitor", "plasma-systemmonitor", "ksysguard", "xfce4-taskmanager",
                                "mate-system-monitor"}) {
        const QString path = QStandardPaths::findExecutable(QString::fromLatin1(program));
        if (!path.isEmpty()) {
            QProcess::startDetached(path, {});
            return;
        }
    }
}

} // namespace pulsebar::ProcessActions
