#include "dump/settings_pictures.h"

#include "alerts/notifier.h"
#include "app/appearance.h"
#include "dump/sample_states.h"
#include "settings/settings_panes.h"
#include "settings/settings_window.h"

#include <QApplication>
#include <QTemporaryDir>

namespace pulsebar {

namespace {

// The dump never posts and shows the service as present, so two dumps draw the same pictures.
class SilentNotifier : public Notifier {
public:
    bool isAvailable() const override { return true; }
    void post(const QString&, const QString&) override {}
};

std::vector<Sensor> sampleSensors()
{
    const auto temperature = [](const char* key, const char* name, SensorGroup group, double value) {
        return Sensor{QString::fromLatin1(key), QString::fromLatin1(name), group, SensorKind::temperature, value, value};
    };
    return {temperature("coretemp/temp1", "CPU Package", SensorGroup::cpu, 52),
            temperature("coretemp/temp2", "CPU Core 1", SensorGroup::cpu, 49),
            temperature("amdgpu/temp1", "GPU Edge", SensorGroup::gpu, 44),
            temperature("nvme/temp1", "NVMe Composite", SensorGroup::storage, 38),
            temperature("acpitz/temp1", "ACPI Thermal Zone", SensorGroup::system, 41)};
}

Config sampleConfig()
{
    Config config;
    config.hotKeys[QStringLiteral("settings")] = HotKey{0x2c, 0x1000 | 0x800, QStringLiteral("Ctrl+Alt+,")};
    config.hotKeys[QStringLiteral("dropdown.cpu")] = HotKey{0x63, 0x1000 | 0x800, QStringLiteral("Ctrl+Alt+C")};
    return config;
}

} // namespace

std::vector<std::pair<QString, QImage>> settingsPictures()
{
    QTemporaryDir folder;
    Preferences preferences(folder.filePath(QStringLiteral("preferences.json")));
    AppSettings settings(preferences);
    settings.setConfig(sampleConfig());
    CalendarSources{{QStringLiteral("/home/mira/Documents/school-holidays.ics")},
                    {QStringLiteral("webcal://calendars.example.org/de.ics")},
                    {},
                    {QStringLiteral("mira@example.com")}}
        .save(preferences);
    SilentNotifier notifier;
    const HubSnapshot readings = sampleStates().front().readings;

    std::vector<std::pair<QString, QImage>> pictures;
    for (AppearanceMode mode : {AppearanceMode::light, AppearanceMode::dark}) {
        applyAppearance(mode);
        SettingsContext context{settings, notifier};
        context.sensors = [] { return sampleSensors(); };
        context.readings = [readings] { return readings; };
        context.calendarState = [time = readings.time] { return sampleCalendar(SampleDay::busy, time); };
        SettingsWindow window(context);
        window.resize(SettingsWindow::defaultWidth, SettingsWindow::defaultHeight);
        window.show();
        for (const SettingsPaneEntry& pane : settingsPanes()) {
            window.showPane(pane.id);
            QApplication::processEvents();
            const QString suffix = mode == AppearanceMode::dark ? QStringLiteral("-dark") : QString();
            pictures.emplace_back(QStringLiteral("settings-") + pane.id + suffix, window.grab().toImage());
        }
        window.hide();
    }
    return pictures;
}

} // namespace pulsebar
