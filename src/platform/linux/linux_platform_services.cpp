#include "core/platform_services.h"

#include "platform/linux/autostart.h"
#include "platform/linux/desktop_notifications.h"
#include "platform/linux/rooted_file_reader.h"
#include "platform/linux/single_instance.h"
#include "platform/linux/status_notifier_host.h"
#include "platform/linux/tray_desktop.h"

#include <QFile>
#include <QFileInfo>

#include <pthread.h>

namespace pulsebar {

namespace {

QString runningExecutable()
{
    // The running process itself, never the sysroot a test may have pointed the monitors at.
    const std::optional<std::string> link = RootedFileReader("/").readLink("proc/self/exe");
    if (!link)
        return {};
    QString path = QFile::decodeName(QByteArray::fromStdString(*link));
    // The kernel gives the resolved path already; canonicalising also covers a binary that was replaced.
    const QString canonical = QFileInfo(path).canonicalFilePath();
    return canonical.isEmpty() ? path : canonical;
}

void nameCurrentThread(const std::string& label)
{
    // The kernel keeps 15 bytes of a thread's name.
    pthread_setname_np(pthread_self(), label.substr(0, 15).c_str());
}

PlatformServices linuxPlatformServices()
{
    PlatformServices services;
    services.executablePath = runningExecutable;
    services.nameCurrentThread = nameCurrentThread;
    services.notificationsAvailable = DesktopNotifications::isServiceAvailable;
    services.showNotification = [](const QString& title, const QString& body, const QString& buttonTitle,
                                   const std::function<void()>& chosen) {
        DesktopNotifications::show(title, body, {buttonTitle, chosen});
    };
    services.startAtLoginLocation = Autostart::entryPath;
    services.startsAtLogin = Autostart::isEnabled;
    services.setStartsAtLogin = Autostart::setEnabled;
    services.sessionHasDisplay = TrayDesktop::sessionHasDisplay;
    services.noDisplayMessage = TrayDesktop::noDisplayMessage;
    services.noTrayAdvice = [] { return TrayDesktop::noTrayAdvice(TrayDesktop::currentDesktop()); };
    services.panelIsDark = [] { return TrayDesktop::panelIsDark(); };
    services.trayHosts = [] {
        std::vector<std::unique_ptr<TrayHost>> hosts;
        hosts.push_back(std::make_unique<StatusNotifierHost>());
        return hosts;
    };
    services.sessionInstance = [] { return std::make_unique<SingleInstance>(); };
    services.activateRunningInstance = SingleInstance::activateRunning;
    return services;
}

} // namespace

const PlatformServices& platformServices()
{
    static const PlatformServices services = linuxPlatformServices();
    return services;
}

} // namespace pulsebar
