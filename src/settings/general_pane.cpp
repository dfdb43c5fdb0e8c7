#include "settings/settings_panes.h"

#include "app/appearance.h"
#include "menubar/tray_preferences.h"
#include "metrics/metrics_exporter.h"
#include "platform/linux/autostart.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace pulsebar {

namespace {

// Update interval, appearance, start at login, the tray, the units every value is shown in, and
// sharing the figures with Prometheus.
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
        addMetricsSection();
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
        loadMetrics();
    }

private:
    void addMetricsSection()
    {
        QFormLayout* form = addSection(QStringLiteral("Prometheus"));
        m_metricsEnabled = named(new QCheckBox(QStringLiteral("Share metrics with Prometheus"), this),
                                 QStringLiteral("metricsEnabled"), QStringLiteral("Share metrics with Prometheus"));
        connect(m_metricsEnabled, &QCheckBox::toggled, this,
                [this](bool on) { changeMetrics([&](Preferences& p) { MetricsPreferences::setEnabled(p, on); }); });
        form->addRow(QString(), m_metricsEnabled);

        m_metricsAddress = named(new QLineEdit(this), QStringLiteral("metricsAddress"), QStringLiteral("Metrics address"));
        m_metricsAddress->setPlaceholderText(MetricsPreferences::defaultAddress);
        connect(m_metricsAddress, &QLineEdit::editingFinished, this, [this] {
            const QString address = m_metricsAddress->text().trimmed();
            m_metricsAddress->setModified(false);
            changeMetrics([&](Preferences& p) { MetricsPreferences::setAddress(p, address); });
        });
        form->addRow(QStringLiteral("Address:"), m_metricsAddress);

        m_metricsPort = named(new QSpinBox(this), QStringLiteral("metricsPort"), QStringLiteral("Metrics port"));
        m_metricsPort->setRange(1, 65535);
        m_metricsPort->setKeyboardTracking(false);
        connect(m_metricsPort, &QSpinBox::valueChanged, this, [this](int port) {
            changeMetrics([&](Preferences& p) { MetricsPreferences::setPort(p, quint16(port)); });
        });
        form->addRow(QStringLiteral("Port:"), m_metricsPort);

        auto* tokenRow = new QHBoxLayout;
        m_metricsToken = named(new QLineEdit(this), QStringLiteral("metricsToken"), QStringLiteral("Bearer token"));
        m_metricsToken->setReadOnly(true);
        m_metricsToken->setMinimumWidth(260);
        tokenRow->addWidget(m_metricsToken);
        auto* renew = named(new QPushButton(QStringLiteral("Renew"), this), QStringLiteral("metricsRenewToken"),
                            QStringLiteral("Renew the bearer token"));
        connect(renew, &QPushButton::clicked, this, [this] {
            changeMetrics([](Preferences& p) { MetricsPreferences::renewToken(p); });
        });
        tokenRow->addWidget(renew);
        form->addRow(QStringLiteral("Token:"), tokenRow);

        auto* folderRow = new QHBoxLayout;
        m_textfileFolder = named(new QLineEdit(this), QStringLiteral("metricsTextfileDirectory"),
                                 QStringLiteral("Folder for node_exporter"));
        m_textfileFolder->setPlaceholderText(QStringLiteral("None"));
        connect(m_textfileFolder, &QLineEdit::editingFinished, this, [this] { commitTextfileFolder(); });
        folderRow->addWidget(m_textfileFolder);
        auto* choose = named(new QPushButton(QStringLiteral("Choose…"), this), QStringLiteral("metricsChooseFolder"),
                             QStringLiteral("Choose the folder for node_exporter"));
        connect(choose, &QPushButton::clicked, this, [this] {
            const QString folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Folder for node_exporter"),
                                                                     m_textfileFolder->text());
            if (folder.isEmpty())
                return;
            m_textfileFolder->setText(folder);
            commitTextfileFolder();
        });
        folderRow->addWidget(choose);
        form->addRow(QStringLiteral("node_exporter folder:"), folderRow);

        m_metricsStatus = new QLabel(this);
        m_metricsStatus->setObjectName(QStringLiteral("metricsStatus"));
        m_metricsStatus->setTextInteractionFlags(Qt::TextSelectableByMouse);
        form->addRow(QString(), m_metricsStatus);
        m_metricsError = addErrorLine(form, QStringLiteral("metricsError"));
        addNote(QStringLiteral("Prometheus reads this computer's figures at /metrics. On any address but 127.0.0.1 "
                               "it must send the token (authorization: {credentials: TOKEN} in its scrape "
                               "configuration). The folder, if named, gets pulsebar.prom on every update, for "
                               "node_exporter's textfile collector."));
        if (m_context.metrics)
            connect(m_context.metrics, &MetricsExporter::stateChanged, this, [this] { showMetricsState(); });
    }

    void loadMetrics()
    {
        Preferences& preferences = m_context.settings.preferences();
        const MetricsPreferences metrics = MetricsPreferences::load(preferences);
        setQuietly(m_metricsEnabled, metrics.enabled);
        setTextUnlessEditing(m_metricsAddress, metrics.address);
        if (!m_metricsPort->hasFocus()) {
            const QSignalBlocker block(m_metricsPort);
            m_metricsPort->setValue(metrics.port);
        }
        // The running application makes the token the first time it is shown, so it can be copied before
        // the exporter needs it; a window over sample states (--dump, tests) leaves the file alone.
        m_metricsToken->setText(metrics.token.isEmpty() && m_context.metrics ? MetricsPreferences::ensureToken(preferences)
                                                                             : metrics.token);
        setTextUnlessEditing(m_textfileFolder, metrics.textfileDirectory);
        // A hand edit of the preferences file reaches the exporter here too.
        if (m_context.metrics)
            m_context.metrics->reload();
        showMetricsState();
    }

    void changeMetrics(const std::function<void(Preferences&)>& change)
    {
        change(m_context.settings.preferences());
        loadMetrics();
    }

    void commitTextfileFolder()
    {
        const QString folder = m_textfileFolder->text().trimmed();
        m_textfileFolder->setModified(false);
        changeMetrics([&](Preferences& p) { MetricsPreferences::setTextfileDirectory(p, folder); });
    }

    void showMetricsState()
    {
        const MetricsExporter* metrics = m_context.metrics;
        if (!metrics) {
            m_metricsStatus->hide();
            return;
        }
        QString status;
        if (metrics->isServing())
            status = QStringLiteral("Serving http://%1:%2/metrics")
                         .arg(metrics->current().address.contains(QLatin1Char(':'))
                                  ? QLatin1Char('[') + metrics->current().address + QLatin1Char(']')
                                  : metrics->current().address)
                         .arg(metrics->servingPort());
        else if (metrics->serverError().isEmpty())
            status = QStringLiteral("Not shared.");
        m_metricsStatus->setText(status);
        m_metricsStatus->setVisible(!status.isEmpty());
        showErrorLine(m_metricsError, metrics->serverError().isEmpty() ? metrics->textfileError() : metrics->serverError());
    }

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
    QCheckBox* m_metricsEnabled;
    QLineEdit* m_metricsAddress;
    QSpinBox* m_metricsPort;
    QLineEdit* m_metricsToken;
    QLineEdit* m_textfileFolder;
    QLabel* m_metricsStatus;
    QLabel* m_metricsError;
};

} // namespace

SettingsPane* makeGeneralPane(SettingsContext& context)
{
    return new GeneralPane(context);
}

} // namespace pulsebar
