#include "app/app_delegate.h"

#include "alerts/notifier.h"
#include "app/appearance.h"
#include "core/platform_services.h"
#include "core/unix_signals.h"
#include "menubar/hot_key_center.h"
#include "menubar/status_item_controller.h"
#include "metrics/metrics_exporter.h"
#include "settings/settings_window.h"

#include <QApplication>
#include <QGuiApplication>
#include <QPointer>

#include <cstdio>


namespace pulsebar {

AppDelegate::AppDelegate(AppSettings& settings, QObject* parent)
    : QObject(parent), m_settings(settings), m_hub(std::make_unique<Hub>(settings, systemReaders()))
{
}

AppDelegate::~AppDelegate() = default;

int AppDelegate::runApplication(int argc, char** argv)
{
    const PlatformServices& platform = platformServices();
    if (!platform.sessionHasDisplay()) {
        std::fprintf(stderr, "%s\n", qPrintable(platform.noDisplayMessage()));
        return 1;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName("Pulsebar");
    QApplication::setApplicationVersion(PULSEBAR_VERSION);
    QApplication::setQuitOnLastWindowClosed(false); // a tray application has no main window
    quitOnTerminationSignals();

    // A second start hands over to the first, which opens its settings.
    const std::unique_ptr<SessionInstance> instance = platform.sessionInstance();
    instance->onActivate = &AppDelegate::openSettings;
    if (!instance->claim()) {
        if (platform.activateRunningInstance())
            return 0;
        std::fprintf(stderr, "pulsebar: another Pulsebar is running in this session but does not answer.\n");
        return 1;
    }

    AppDelegate delegate(AppSettings::shared());
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, &AppDelegate::applicationWillTerminate);
    delegate.applicationDidFinishLaunching();
    return app.exec();
}

void AppDelegate::applicationDidFinishLaunching()
{
    applyAppearance(m_settings.appearance());
    // The desktop notification service needs no authorisation to be asked for.
    s_settingsHandler = this;
    // No application menu: a tray application shows menus only in its own windows.

    m_statusItems = std::make_unique<StatusItemController>(*m_hub, m_settings);
    m_statusItems->onOpenSettings = &AppDelegate::openSettings;
    m_statusItems->onNoTray = [] {
        // Only a real desktop is told; a run without a display server has no tray to ask for.
        if (QGuiApplication::platformName() == QLatin1String("offscreen"))
            return;
        const auto [title, body] = platformServices().noTrayAdvice();
        Notifier::shared().post(title, body);
    };
    askOnceToStartAtLogin();
    QPointer<StatusItemController> items(m_statusItems.get());
    m_hub->onTick = [items] {
        if (items)
            items->refresh();
    };
    QPointer<AppDelegate> self(this);
    m_hub->keepAwake().onChange = [self] {
        if (self)
            self->keepAwakeChanged();
    };
    m_settings.addObserver([self](const Config& oldConfig, const Config& newConfig) {
        if (self)
            self->configurationChanged(oldConfig, newConfig);
    });
    m_hub->start();
    m_statusItems->rebuild();
    startMetrics();

    HotKeyCenter& hotKeys = HotKeyCenter::shared();
    hotKeys.onTrigger = [self](const HotKeyAction& action) {
        if (self)
            self->hotKeyTriggered(action);
    };
    hotKeys.setHotKeys(m_settings.config().hotKeys);
    if (!hotKeys.suspended)
        hotKeys.registerAll();
}

void AppDelegate::startMetrics()
{
    m_metrics = std::make_unique<MetricsExporter>(*m_hub, m_settings.preferences());
    // Settings shows why the exporter is not serving; without the window open, standard error does.
    QPointer<MetricsExporter> metrics(m_metrics.get());
    connect(m_metrics.get(), &MetricsExporter::stateChanged, this, [metrics, reported = QString()]() mutable {
        if (!metrics)
            return;
        const QString problem = metrics->serverError().isEmpty() ? metrics->textfileError() : metrics->serverError();
        if (!problem.isEmpty() && problem != reported)
            std::fprintf(stderr, "pulsebar: %s\n", qPrintable(problem));
        reported = problem;
    });
    m_metrics->reload();
}

void AppDelegate::applicationWillTerminate()
{
    if (m_hub->history)
        m_hub->history->flush();
    // No inhibitor lock outlives the process, and quitting is not announced.
    m_hub->keepAwake().stop(false);
}

void AppDelegate::configurationChanged(const Config& oldConfig, const Config& newConfig)
{
    m_hub->configChanged(oldConfig, newConfig);
    if (oldConfig.hotKeys != newConfig.hotKeys) {
        HotKeyCenter& hotKeys = HotKeyCenter::shared();
        hotKeys.setHotKeys(newConfig.hotKeys);
        if (!hotKeys.suspended)
            hotKeys.registerAll();
    }
    if (oldConfig.modules != newConfig.modules) {
        m_statusItems->rebuild();
        m_hub->tick();
    } else {
        m_statusItems->applyTrayPreferences();
    }
}

void AppDelegate::hotKeyTriggered(const HotKeyAction& action)
{
    switch (action.kind) {
    case HotKeyAction::Kind::dropdown: m_statusItems->toggleDropdown(action.module); break;
    case HotKeyAction::Kind::keepAwake:
        if (m_hub->keepAwake().isActive)
            m_hub->keepAwake().stop(true);
        else
            m_hub->keepAwake().activate(m_settings.config().keepAwakeDisplay, std::optional<double>());
        break;
    case HotKeyAction::Kind::settings: openSettings(); break;
    }
}

void AppDelegate::keepAwakeChanged()
{
    const bool active = m_hub->keepAwake().isActive;
    if (m_keepAwakeWasActive && !active) {
        Notifier::shared().post(QStringLiteral("Keep Awake is off"), QStringLiteral("The computer can sleep again."));
    }
    m_keepAwakeWasActive = active;
    m_statusItems->refresh();
}

// The first start offers, once, to start at every login; the answer can change later in Settings.
void AppDelegate::askOnceToStartAtLogin()
{
    Preferences& preferences = m_settings.preferences();
    if (preferences.value(startAtLoginAskedKey).toBool())
        return;
    preferences.setValue(startAtLoginAskedKey, true);
    if (platformServices().startsAtLogin())
        return;
    const QString executable = QCoreApplication::applicationFilePath();
    Notifier::shared().post(
        Notification{QStringLiteral("Start Pulsebar when you log in?"),
                     QStringLiteral("Pulsebar can start by itself each time you log in. You can change this later "
                                    "in Settings › General.")},
        NotificationAction{QStringLiteral("Start at Login"), [executable] {
                               const QString error = platformServices().setStartsAtLogin(true, executable);
                               if (!error.isEmpty())
                                   Notifier::shared().post(QStringLiteral("Pulsebar"), error);
                           }});
}

void AppDelegate::openSettings()
{
    if (s_settingsHandler)
        s_settingsHandler->showSettings();
}

void AppDelegate::showSettings()
{
    if (!m_settingsWindow) {
        QPointer<AppDelegate> self(this);
        SettingsContext context{m_settings, Notifier::shared(), &HotKeyCenter::shared()};
        context.sensors = [self] { return self ? self->m_hub->sensors.sensors : std::vector<Sensor>{}; };
        context.readings = [self] { return self ? HubSnapshot::of(*self->m_hub) : HubSnapshot{}; };
        context.history = [self] { return self ? self->m_hub->history.get() : nullptr; };
        context.trayLookChanged = [self] {
            if (self && self->m_statusItems)
                self->m_statusItems->applyTrayPreferences();
        };
        context.searchPlaces = [self](const QString& query,
                                      std::function<void(Parsed<std::vector<WeatherLocation>>)> done) {
            if (self)
                self->m_hub->weather.search(query, std::move(done));
        };
        context.automaticPlace = [self] {
            return self ? self->m_hub->weather.autoLocation() : std::optional<WeatherLocation>{};
        };
        context.metrics = m_metrics.get();
        context.calendarState = [self] {
            return self ? self->m_hub->calendar.state() : std::make_shared<const CalendarState>();
        };
        context.refreshCalendars = [self] {
            if (self)
                self->m_hub->calendar.reloadSources();
        };
        context.watchCalendars = [self](QObject* receiver, std::function<void()> changed) {
            if (self)
                QObject::connect(&self->m_hub->calendar, &CalendarEvents::changed, receiver, std::move(changed));
        };
        m_settingsWindow = std::make_unique<SettingsWindow>(std::move(context));
    }
    m_settingsWindow->present();
}

} // namespace pulsebar
