#pragma once

#include "core/app_settings.h"
#include "core/hub.h"

#include <QObject>

#include <memory>

namespace pulsebar {

// The tray application: owns the hub and everything shown on screen, and tears them down in order.
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

private:
    void configurationChanged(const Config& oldConfig, const Config& newConfig);

    AppSettings& m_settings;
    std::unique_ptr<Hub> m_hub;
};

} // namespace pulsebar
