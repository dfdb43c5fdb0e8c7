#pragma once

#include "core/app_settings.h"
#include "hub/hub.h"

#include <QObject>
#include <QPointer>

#include <memory>

namespace pulsebar {

class MetricsExporter;

// The tray application: owns the hub and everything shown on screen, and tears them down in order.
class SettingsWindow;
class StatusItemController;
struct HotKeyAction;

class AppDelegate : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(AppSettings& settings, QObject* parent = nullptr);
    ~AppDelegate() override;

    // Creates the QApplication, starts the delegate and runs the event loop; returns the exit status.
    static int runApplication(int argc, char** argv);

    void applicationDidFinishLaunching();
    void applicationWillTerminate();

    Hub& hub() { return *m_hub; }
    StatusItemController* statusItems() { return m_statusItems.get(); }
    // The Prometheus exporter; it serves only while the preferences turn it on.
    MetricsExporter* metrics() { return m_metrics.get(); }
    // Created on the first openSettings() and kept; null before.
    SettingsWindow* settingsWindow() { return m_settingsWindow.get(); }

    // The process-wide way to open the settings window (panels and menus use it); it holds the
    // delegate weakly and does nothing once the delegate is gone.
    static void openSettings();

    // Set in the preferences once the first start has asked whether to start at login.
    static inline const QString startAtLoginAskedKey = QStringLiteral("startAtLogin.asked");

private:
    void configurationChanged(const Config& oldConfig, const Config& newConfig);
    void hotKeyTriggered(const HotKeyAction& action);
    void keepAwakeChanged();
    void startMetrics();
    void showSettings();
    void askOnceToStartAtLogin();

    static inline QPointer<AppDelegate> s_settingsHandler;

    AppSettings& m_settings;
    std::unique_ptr<Hub> m_hub;
    std::unique_ptr<StatusItemController> m_statusItems;
    std::unique_ptr<MetricsExporter> m_metrics;
    std::unique_ptr<SettingsWindow> m_settingsWindow; // reads the hub and the items: goes first
    bool m_keepAwakeWasActive = false;
};

} // namespace pulsebar
