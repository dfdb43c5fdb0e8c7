#include "app/app_delegate.h"

#include "app/appearance.h"
#include "core/unix_signals.h"

#include <QApplication>
#include <QPointer>

namespace pulsebar {

AppDelegate::AppDelegate(AppSettings& settings, QObject* parent)
    : QObject(parent), m_settings(settings), m_hub(std::make_unique<Hub>(settings))
{
}

AppDelegate::~AppDelegate() = default;

int AppDelegate::runApplication(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName("Pulsebar");
    QApplication::setApplicationVersion(PULSEBAR_VERSION);
    QApplication::setQuitOnLastWindowClosed(false); // a tray application has no main window
    quitOnTerminationSignals();

    AppDelegate delegate(AppSettings::shared());
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, &AppDelegate::applicationWillTerminate);
    delegate.applicationDidFinishLaunching();
    return app.exec();
}

void AppDelegate::applicationDidFinishLaunching()
{
    applyAppearance(m_settings.appearance());
    QPointer<AppDelegate> self(this);
    m_settings.addObserver([self](const Config& oldConfig, const Config& newConfig) {
        if (self)
            self->configurationChanged(oldConfig, newConfig);
    });
    m_hub->start();
}

void AppDelegate::applicationWillTerminate()
{
    if (m_hub->history)
        m_hub->history->flush();
}

void AppDelegate::configurationChanged(const Config& oldConfig, const Config& newConfig)
{
    m_hub->configChanged(oldConfig, newConfig);
}

} // namespace pulsebar
