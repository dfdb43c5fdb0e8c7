#include "settings/settings_panes.h"

#include "app/appearance.h"
#include "menubar/tray_preferences.h"
#include "platform/linux/autostart.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>

namespace pulsebar {

namespace {

// Update interval, appearance, start at login and the units every value is shown in.
class GeneralPane : public SettingsPane {
public:
    static constexpr double minimumInterval = 1;
    static constexpr double maximumInterval = 10;

    explicit GeneralPane(SettingsContext& context) : SettingsPane(context)
    {
        QFormLayout* form = addSection(QStringLiteral("General"));
        m_interval = named(new QDoubleSpinBox(this), QStringLiteral("updateInterval"), QStringLiteral("Update interval"));
        m_interval->setRange(minimumInterval, maximumInterval);
        m_interval->setDecimals(1);
        m_interval->setSingleStep(1);
        m_interval->setSuffix(QStringLiteral(" s"));
        m_interval->setKeyboardTracking(false); // typed digits are committed with Enter or on leaving
        connect(m_interval, &QDoubleSpinBox::valueChanged, this,
                [this](double seconds) { edit([&](Config& c) { c.updateInterval = seconds; }); });
        form->addRow(QStringLiteral("Update every:"), m_interval);

        m_appearance = choice(QStringLiteral("appearance"), QStringLiteral("Appearance"),
                              {QStringLiteral("System"), QStringLiteral("Light"), QStringLiteral("Dark")});
        connect(m_appearance, &QComboBox::currentIndexChanged, this, [this](int index) {
            const auto mode = AppearanceMode(index);
            m_context.settings.setAppearance(mode);
            applyAppearance(mode);
            trayLookChanged();
        });
        form->addRow(QStringLiteral("Appearance:"), m_appearance);

        m_login = named(new QCheckBox(QStringLiteral("Start at login"), this), QStringLiteral("startAtLogin"),
                        QStringLiteral("Start at login"));
        connect(m_login, &QCheckBox::toggled, this, [this](bool on) {
            const QString error = Autostart::setEnabled(on, QCoreApplication::applicationFilePath());
            m_loginError->setText(error);
            m_loginError->setVisible(!error.isEmpty());
            setQuietly(m_login, Autostart::isEnabled());
        });
        form->addRow(QString(), m_login);
        m_loginError = new QLabel(this);
        m_loginError->setObjectName(QStringLiteral("startAtLoginError"));
        m_loginError->setWordWrap(true);
        m_loginError->hide();
        form->addRow(QString(), m_loginError);

        m_keepDisplay = named(new QCheckBox(QStringLiteral("Keep Awake also keeps the display on"), this),
                              QStringLiteral("keepAwakeDisplay"), QStringLiteral("Keep Awake also keeps the display on"));
        connect(m_keepDisplay, &QCheckBox::toggled, this,
                [this](bool on) { edit([&](Config& c) { c.keepAwakeDisplay = on; }); });
        form->addRow(QString(), m_keepDisplay);

        QFormLayout* tray = addSection(QStringLiteral("Tray"));
        m_trayPanel = choice(QStringLiteral("trayPanel"), QStringLiteral("Tray panel"),
                             {QStringLiteral("Automatic"), QStringLiteral("Dark"), QStringLiteral("Light")});
        connect(m_trayPanel, &QComboBox::currentIndexChanged, this, [this](int index) {
            TrayPreferences::setPanel(m_context.settings.preferences(), TrayPanel(index));
            trayLookChanged();
        });
        tray->addRow(QStringLiteral("Panel:"), m_trayPanel);

        m_valueInIcon = choice(QStringLiteral("trayValueInIcon"), QStringLiteral("Values inside tray icons"),
                               {QStringLiteral("Automatic"), QStringLiteral("On"), QStringLiteral("Off")});
        connect(m_valueInIcon, &QComboBox::currentIndexChanged, this, [this](int index) {
            TrayPreferences::setValueInIcon(m_context.settings.preferences(), TrayValueInIcon(index));
            trayLookChanged();
        });
        tray->addRow(QStringLiteral("Values in icons:"), m_valueInIcon);
        addNote(QStringLiteral("Automatic asks the desktop how dark its panel is, and puts values inside the "
                               "icons on trays that show no text beside them."));

        QFormLayout* units = addSection(QStringLiteral("Units"));
        units->addRow(QStringLiteral("Temperature:"), m_temperature = temperatureUnitChoice());
        units->addRow(QStringLiteral("Wind speed:"), m_wind = windUnitChoice());

        m_bandwidth = choice(QStringLiteral("bandwidthBits"), QStringLiteral("Network speed unit"),
                             {QStringLiteral("Bytes (KB/s, MB/s)"), QStringLiteral("Bits (Kb/s, Mb/s)")});
        connect(m_bandwidth, &QComboBox::currentIndexChanged, this,
                [this](int index) { edit([&](Config& c) { c.bandwidthBits = index == 1; }); });
        units->addRow(QStringLiteral("Network speed:"), m_bandwidth);
        finish();
    }

    void load(const Config& config) override
    {
        setQuietly(m_interval, config.updateInterval);
        setQuietly(m_appearance, int(m_context.settings.appearance()));
        const TrayPreferences tray = TrayPreferences::load(m_context.settings.preferences());
        setQuietly(m_trayPanel, int(tray.panel));
        setQuietly(m_valueInIcon, int(tray.valueInIcon));
        setQuietly(m_login, Autostart::isEnabled());
        setQuietly(m_keepDisplay, config.keepAwakeDisplay);
        setQuietly(m_temperature, int(config.temperatureUnit));
        setQuietly(m_wind, int(config.windUnit));
        setQuietly(m_bandwidth, config.bandwidthBits ? 1 : 0);
    }

private:
    void trayLookChanged()
    {
        if (m_context.trayLookChanged)
            m_context.trayLookChanged();
    }

    QDoubleSpinBox* m_interval;
    QComboBox* m_appearance;
    QComboBox* m_trayPanel;
    QComboBox* m_valueInIcon;
    QCheckBox* m_login;
    QLabel* m_loginError;
    QCheckBox* m_keepDisplay;
    QComboBox* m_temperature;
    QComboBox* m_wind;
    QComboBox* m_bandwidth;
};

} // namespace

SettingsPane* makeGeneralPane(SettingsContext& context)
{
    return new GeneralPane(context);
}

} // namespace pulsebar
