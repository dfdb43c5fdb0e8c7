#include "settings/settings_panes.h"

#include <QComboBox>
#include <QFormLayout>
#include <QTimer>

#include <algorithm>

namespace pulsebar {

namespace {

constexpr int valueRefreshMs = 2000;

// How much of the sensor catalogue the panel lists, and which temperature the tray item shows.
class SensorsPane : public SettingsPane {
public:
    explicit SensorsPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* form = addSection(QStringLiteral("Sensors"));
        m_mode = choice(QStringLiteral("sensorMode"), QStringLiteral("Sensors shown in the panel"),
                        {QStringLiteral("Simple (the main temperatures and fans)"),
                         QStringLiteral("Detailed (every sensor)")});
        connect(m_mode, &QComboBox::currentIndexChanged, this,
                [this](int index) { edit([&](Config& c) { c.sensorMode = SensorMode(index); }); });
        form->addRow(QStringLiteral("Panel shows:"), m_mode);

        m_traySensor = named(new QComboBox(this), QStringLiteral("menubarSensorKey"),
                             QStringLiteral("Temperature shown in the tray"));
        m_traySensor->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        connect(m_traySensor, &QComboBox::currentIndexChanged, this, [this](int index) {
            const QString key = m_traySensor->itemData(index).toString();
            edit([&](Config& c) {
                c.menubarSensorKey = key.isEmpty() ? std::nullopt : std::optional<QString>(key);
            });
        });
        form->addRow(QStringLiteral("Tray temperature:"), m_traySensor);
        addNote(QStringLiteral("Automatic shows the processor's temperature, or the battery's when the processor "
                               "has no sensor."));
        finish();

        auto* timer = new QTimer(this);
        connect(timer, &QTimer::timeout, this, [this] {
            if (isVisible())
                fillSensors(config());
        });
        timer->start(valueRefreshMs);
    }

    void load(const Config& config) override
    {
        setQuietly(m_mode, int(config.sensorMode));
        fillSensors(config);
    }

private:
    // "Automatic", then every temperature sensor with its current value; a chosen sensor this computer
    // does not have (yet: discovery runs in the background) stays listed so the choice is not lost.
    void fillSensors(const Config& config)
    {
        std::vector<std::pair<QString, QString>> choices{{QStringLiteral("Automatic"), QString()}};
        bool listed = false;
        const std::vector<Sensor> sensors = m_context.sensors ? m_context.sensors() : std::vector<Sensor>{};
        for (const Sensor& sensor : sensors) {
            if (sensor.kind != SensorKind::temperature)
                continue;
            choices.emplace_back(
                QStringLiteral("%1 — %2").arg(sensor.name, format(config.temperatureUnit, sensor.value, 0)), sensor.key);
            listed = listed || sensor.key == config.menubarSensorKey;
        }
        if (config.menubarSensorKey && !listed)
            choices.emplace_back(QStringLiteral("%1 (not found)").arg(*config.menubarSensorKey), *config.menubarSensorKey);

        // Only the values changed (the usual refresh): texts are updated in place, so an open list stays open.
        const QSignalBlocker block(m_traySensor);
        bool sameKeys = m_traySensor->count() == int(choices.size());
        for (int i = 0; sameKeys && i < m_traySensor->count(); ++i)
            sameKeys = m_traySensor->itemData(i).toString() == choices[std::size_t(i)].second;
        if (!sameKeys) {
            m_traySensor->clear();
            for (const auto& [title, key] : choices)
                m_traySensor->addItem(title, key);
        } else {
            for (int i = 0; i < m_traySensor->count(); ++i)
                m_traySensor->setItemText(i, choices[std::size_t(i)].first);
        }
        m_traySensor->setCurrentIndex(std::max(0, m_traySensor->findData(config.menubarSensorKey.value_or(QString()))));
    }

    QComboBox* m_mode;
    QComboBox* m_traySensor;
};

} // namespace

SettingsPane* makeSensorsPane(SettingsContext& context)
{
    return new SensorsPane(context);
}

} // namespace pulsebar
