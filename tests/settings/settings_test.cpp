#include "agents/agent_client.h"
#include "history/history_store.h"
#include "menubar/hot_key_center.h"
#include "menubar/tray_preferences.h"
#include "hub/hub.h"
#include "metrics/metrics_exporter.h"
#include "settings/settings_panes.h"
#include "settings/settings_window.h"
#include "../support/recording_notifier.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDateTime>
#include <QDialog>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTableWidget>
#include <QTcpServer>
#include <QTest>

#include <gtest/gtest.h>

using namespace pulsebar;
using namespace pulsebar::test;

namespace {

// Grabs nothing; refuses what it is told to, as another program holding the keys would.
class FakeBackend : public HotKeyBackend {
public:
    bool grab(int, const QString& identifier, const HotKey&) override { return identifier != refuse; }
    void ungrab(int) override {}
    QString refuse;
};

// A window over private preferences, a private home for the autostart entry and the agents' files, a
// notifier that records, and a hot-key centre over a fake desktop.
struct SettingsFixture : ::testing::Test {
    QTemporaryDir home;
    ScopedEnv config{"XDG_CONFIG_HOME", home.path() + "/config"};
    ScopedEnv agents{"PULSEBAR_AGENT_HOME", home.path() + "/agents"};
    IsolatedSettings isolated;
    RecordingNotifier notifier;
    FakeBackend* backend = new FakeBackend;
    HotKeyCenter center{std::unique_ptr<HotKeyBackend>(backend)};
    std::vector<Sensor> sensors{{"coretemp/temp1", "CPU Package", SensorGroup::cpu, SensorKind::temperature, 52, 60},
                                {"in0", "Vcore", SensorGroup::cpu, SensorKind::voltage, 1.1, 1.2},
                                {"nvme/temp1", "NVMe Composite", SensorGroup::storage, SensorKind::temperature, 38, 40}};
    std::unique_ptr<SettingsWindow> window;

    AppSettings& settings() { return isolated.settings; }
    const Config& current() { return isolated.settings.config(); }

    SettingsWindow& open()
    {
        SettingsContext context{isolated.settings, notifier, &center};
        context.sensors = [this] { return sensors; };
        window = std::make_unique<SettingsWindow>(std::move(context));
        window->present();
        return *window;
    }

    template <typename W>
    W* widget(const QString& pane, const QString& name)
    {
        if (!window)
            open();
        window->showPane(pane);
        W* found = window->pane(pane)->findChild<W*>(name);
        if (!found)
            ADD_FAILURE() << "no " << name.toStdString() << " in " << pane.toStdString();
        return found;
    }
};

} // namespace

TEST_F(SettingsFixture, OpensWithTheRememberedPaneAndKeepsSizeAndPane)
{
    isolated.preferences.setValue(SettingsWindow::paneKey, "network");
    open();
    EXPECT_EQ(window->currentPane(), "network");
    EXPECT_EQ(window->size(), QSize(840, 580));
    EXPECT_EQ(window->findChild<QListWidget*>("sidebar")->count(), int(settingsPanes().size()));

    window->showPane("agents");
    EXPECT_EQ(isolated.preferences.value(SettingsWindow::paneKey).toString(), "agents");
    window->resize(900, 640);
    window->hide();
    window.reset();
    open();
    EXPECT_EQ(window->currentPane(), "agents");
    EXPECT_EQ(window->size(), QSize(900, 640));

    // A pane the build no longer has falls back to the first.
    isolated.preferences.setValue(SettingsWindow::paneKey, "nothing");
    window.reset();
    EXPECT_EQ(open().currentPane(), "general");
}

TEST_F(SettingsFixture, GeneralPaneEditsIntervalUnitsAppearanceAndStartAtLogin)
{
    auto* interval = widget<QDoubleSpinBox>("general", "updateInterval");
    interval->setValue(5);
    EXPECT_EQ(current().updateInterval, 5);
    interval->setValue(0.2); // below the bound: held at 1 s, never stored as typed
    EXPECT_EQ(current().updateInterval, 1);
    interval->setValue(60);
    EXPECT_EQ(current().updateInterval, 10);

    widget<QComboBox>("general", "temperatureUnit")->setCurrentIndex(1);
    widget<QComboBox>("general", "windUnit")->setCurrentIndex(3);
    widget<QComboBox>("general", "bandwidthBits")->setCurrentIndex(1);
    widget<QCheckBox>("general", "keepAwakeDisplay")->setChecked(true);
    EXPECT_EQ(current().temperatureUnit, TempUnit::fahrenheit);
    EXPECT_EQ(current().windUnit, WindUnit::knots);
    EXPECT_TRUE(current().bandwidthBits);
    EXPECT_TRUE(current().keepAwakeDisplay);
    EXPECT_EQ(widget<QComboBox>("general", "bandwidthBits")->currentText(), "Bits (Kb/s, Mb/s)");

    widget<QComboBox>("general", "appearance")->setCurrentIndex(2);
    EXPECT_EQ(settings().appearance(), AppearanceMode::dark);
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 128);
    widget<QComboBox>("general", "appearance")->setCurrentIndex(0);

    // The tray's own preferences are stored beside the configuration, and a hand edit shows up.
    widget<QComboBox>("general", "trayPanel")->setCurrentIndex(2);
    widget<QComboBox>("general", "trayValueInIcon")->setCurrentIndex(1);
    EXPECT_EQ(TrayPreferences::load(isolated.preferences), (TrayPreferences{TrayPanel::light, TrayValueInIcon::on}));
    TrayPreferences::setPanel(isolated.preferences, TrayPanel::dark);
    window->pane("general")->load(current());
    EXPECT_EQ(widget<QComboBox>("general", "trayPanel")->currentText(), "Dark");

    const QString entry = home.path() + "/config/autostart/org.pulsebar.Pulsebar.desktop";
    auto* login = widget<QCheckBox>("general", "startAtLogin");
    login->setChecked(true);
    const QString text = QString::fromUtf8(readFile(entry));
    EXPECT_TRUE(text.startsWith("[Desktop Entry]\nType=Application\n"));
    EXPECT_TRUE(text.contains("\nExec=" + QCoreApplication::applicationFilePath() + "\n"));
    EXPECT_TRUE(text.contains("\nX-GNOME-Autostart-enabled=true\n"));
    login->setChecked(false);
    EXPECT_FALSE(QFileInfo::exists(entry));

    // An entry the desktop's own start-up settings switched off reads as off.
    writeFile(entry, "[Desktop Entry]\nType=Application\nExec=pulsebar\nX-GNOME-Autostart-enabled=false\n");
    window->pane("general")->load(current());
    EXPECT_FALSE(login->isChecked());
}

TEST_F(SettingsFixture, GeneralPaneSharesMetricsAndSaysWhereOrWhyNot)
{
    Hub hub(isolated.settings, fixtureReaders(fixture("monitors/sys-basic-1")));
    MetricsExporter exporter(hub, isolated.preferences);
    SettingsContext context{isolated.settings, notifier, &center};
    context.metrics = &exporter;
    window = std::make_unique<SettingsWindow>(std::move(context));
    window->present();
    auto* status = widget<QLabel>("general", "metricsStatus");
    auto* error = widget<QLabel>("general", "metricsError");
    auto* token = widget<QLineEdit>("general", "metricsToken");
    EXPECT_EQ(status->text(), "Not shared.");
    EXPECT_EQ(token->text(), MetricsPreferences::load(isolated.preferences).token); // made on first showing
    EXPECT_EQ(token->text().size(), 64);

    QTcpServer occupied;
    ASSERT_TRUE(occupied.listen(QHostAddress::LocalHost, 0));
    widget<QSpinBox>("general", "metricsPort")->setValue(occupied.serverPort());
    widget<QCheckBox>("general", "metricsEnabled")->click();
    EXPECT_FALSE(exporter.isServing());
    EXPECT_FALSE(error->isHidden());
    EXPECT_TRUE(error->text().startsWith(QStringLiteral("Cannot listen on 127.0.0.1 port %1:").arg(occupied.serverPort())));

    occupied.close(); // now free
    widget<QSpinBox>("general", "metricsPort")->setValue(occupied.serverPort() - 1); // a value change...
    widget<QSpinBox>("general", "metricsPort")->setValue(occupied.serverPort());     // ...back to the freed port
    ASSERT_TRUE(exporter.isServing()) << error->text().toStdString();
    EXPECT_TRUE(error->isHidden());
    EXPECT_EQ(status->text(), QStringLiteral("Serving http://127.0.0.1:%1/metrics").arg(exporter.servingPort()));

    const QString old = token->text();
    widget<QPushButton>("general", "metricsRenewToken")->click();
    EXPECT_NE(token->text(), old);
    EXPECT_EQ(token->text(), exporter.current().token);

    widget<QCheckBox>("general", "metricsEnabled")->click();
    EXPECT_FALSE(exporter.isServing());
    EXPECT_EQ(status->text(), "Not shared.");
}

TEST_F(SettingsFixture, MenuBarPaneSwitchesReordersAndStylesItemsWithPreviews)
{
    auto* list = widget<QListWidget>("menubar", "modules");
    ASSERT_EQ(list->count(), 11);
    EXPECT_EQ(list->item(1)->text(), "CPU");
    EXPECT_FALSE(list->item(1)->icon().isNull());

    list->item(0)->setCheckState(Qt::Checked); // combined
    EXPECT_TRUE(current().modules[0].enabled);

    list->setCurrentRow(1);
    widget<QComboBox>("menubar", "style")->setCurrentIndex(int(DisplayStyle::text));
    EXPECT_EQ(current().modules[1].style, DisplayStyle::text);
    EXPECT_FALSE(widget<QComboBox>("menubar", "style")->itemIcon(int(DisplayStyle::graph)).isNull());

    widget<QPushButton>("menubar", "moveDown")->click();
    EXPECT_EQ(current().modules[1].kind, ModuleKind::gpu);
    EXPECT_EQ(current().modules[2].kind, ModuleKind::cpu);
    EXPECT_EQ(current().modules[2].style, DisplayStyle::text);
    EXPECT_EQ(list->currentRow(), 2);
    EXPECT_EQ(list->item(2)->text(), "CPU");

    widget<QCheckBox>("menubar", "monochrome")->setChecked(true);
    EXPECT_TRUE(current().monochrome);
}

TEST_F(SettingsFixture, OverviewPaneOrdersAndHidesTilesAndDevicesFollowsShowDevices)
{
    auto* tiles = widget<QListWidget>("overview", "tiles");
    ASSERT_EQ(tiles->count(), 13);
    tiles->item(8)->setCheckState(Qt::Unchecked); // devices
    tiles->item(1)->setCheckState(Qt::Unchecked); // cpu
    EXPECT_FALSE(current().showDevices);
    EXPECT_EQ(current().overviewHidden, std::vector<OverviewItem>{OverviewItem::cpu});

    tiles->setCurrentRow(0);
    widget<QPushButton>("overview", "moveDown")->click();
    EXPECT_EQ(current().overviewItems()[0], OverviewItem::cpu);
    EXPECT_EQ(current().overviewItems()[1], OverviewItem::insight);
    EXPECT_FALSE(current().showsInOverview(OverviewItem::cpu));
}

TEST_F(SettingsFixture, SensorsPaneListsTemperaturesWithValuesAndKeepsAnUnknownChoice)
{
    auto* tray = widget<QComboBox>("sensors", "menubarSensorKey");
    ASSERT_EQ(tray->count(), 3); // Automatic and the two temperatures; the voltage is no choice for it
    EXPECT_EQ(tray->itemText(0), "Automatic");
    EXPECT_EQ(tray->itemText(1), "CPU Package — 52°");
    tray->setCurrentIndex(2);
    EXPECT_EQ(current().menubarSensorKey, "nvme/temp1");
    tray->setCurrentIndex(0);
    EXPECT_EQ(current().menubarSensorKey, std::nullopt);

    Config stored = current();
    stored.menubarSensorKey = "gone/temp9";
    settings().setConfig(stored);
    EXPECT_EQ(tray->currentText(), "gone/temp9 (not found)");

    widget<QComboBox>("sensors", "sensorMode")->setCurrentIndex(1);
    EXPECT_EQ(current().sensorMode, SensorMode::detailed);
}

TEST(PingHost, AcceptsHostNamesAndAddressesOnly)
{
    for (const char* good : {"1.1.1.1", "::1", "2606:4700:4700::1111", "example.com", "localhost", "a-b.example.org.",
                             " dns.google "})
        EXPECT_EQ(pingHostError(good), "") << good;
    for (const char* bad : {"", "  ", "999.1.1.1", "1.2.3", "exa mple.com", "-bad.com", "bad-.com", "a..b",
                            "http://example.com", "ünïcode.com"})
        EXPECT_NE(pingHostError(bad), "") << bad;
    EXPECT_EQ(pingHostError("exa mple.com"), "“exa mple.com” is not a host name or an IP address.");
}

TEST_F(SettingsFixture, NetworkPaneStoresAValidHostOnlyWhenTheEditIsFinished)
{
    auto* host = widget<QLineEdit>("network", "pingHost");
    auto* error = widget<QLabel>("network", "pingHostError");
    EXPECT_EQ(host->text(), "127.0.0.1");
    host->setFocus();
    host->selectAll();
    QTest::keyClicks(host, "bad host");
    EXPECT_FALSE(error->isHidden());
    QTest::keyClick(host, Qt::Key_Return);
    EXPECT_EQ(current().pingHost, "127.0.0.1");
    EXPECT_EQ(host->text(), "bad host"); // left for the user to correct

    host->selectAll();
    QTest::keyClicks(host, "localhost");
    EXPECT_TRUE(error->isHidden());
    QTest::keyClick(host, Qt::Key_Return);
    EXPECT_EQ(current().pingHost, "localhost");
}

TEST_F(SettingsFixture, DisksPaneSwitchesNetworkAndRemovableVolumes)
{
    widget<QCheckBox>("disks", "showNetworkDisks")->setChecked(false);
    EXPECT_FALSE(current().showNetworkDisks);
    EXPECT_TRUE(current().showRemovableDisks);
    widget<QCheckBox>("disks", "showRemovableDisks")->setChecked(false);
    EXPECT_FALSE(current().showRemovableDisks);
}

TEST_F(SettingsFixture, NotificationsPaneEditsEventsAndRulesAndSendsATest)
{
    EXPECT_TRUE(widget<QLabel>("notifications", "serviceState")->isHidden()); // the recorder is a service
    widget<QPushButton>("notifications", "sendTest")->click();
    ASSERT_EQ(notifier.posts.size(), 1u);
    EXPECT_EQ(notifier.posts[0], (Notification{"Pulsebar", "Notifications are working."}));

    widget<QCheckBox>("notifications", "insightNotifications")->setChecked(true);
    widget<QCheckBox>("notifications", "primaryInterface")->setChecked(true);
    widget<QCheckBox>("notifications", "wifiChanged")->setChecked(false);
    EXPECT_TRUE(current().insightNotifications);
    EXPECT_TRUE(current().events.primaryInterface);
    EXPECT_FALSE(current().events.wifiChanged);
    EXPECT_EQ(widget<QCheckBox>("notifications", "batteryCharged")->text(), "Battery is now charged");

    const std::vector<Rule> defaults = current().rules;
    auto* table = widget<QTableWidget>("notifications", "rules");
    ASSERT_EQ(table->rowCount(), 5);
    widget<QPushButton>("notifications", "addRule")->click();
    ASSERT_EQ(current().rules.size(), 6u);
    const Rule added = current().rules[5];
    EXPECT_EQ(added.id.size(), 36);
    for (const Rule& rule : defaults)
        EXPECT_NE(rule.id, added.id);

    widget<QComboBox>("notifications", "ruleMetric6")->setCurrentIndex(int(RuleMetric::download));
    widget<QComboBox>("notifications", "ruleComparison6")->setCurrentIndex(1);
    widget<QDoubleSpinBox>("notifications", "ruleThreshold6")->setValue(2500.5);
    widget<QSpinBox>("notifications", "ruleDuration6")->setValue(45);
    widget<QCheckBox>("notifications", "ruleEnabled6")->setChecked(false);
    EXPECT_EQ(current().rules[5], (Rule{added.id, false, RuleMetric::download, RuleComparison::below, 2500.5, 45}));
    EXPECT_EQ(widget<QDoubleSpinBox>("notifications", "ruleThreshold6")->suffix(), " KB/s");

    table->selectRow(5);
    widget<QPushButton>("notifications", "ruleUp")->click();
    EXPECT_EQ(current().rules[4].id, added.id);
    table->selectRow(0);
    widget<QPushButton>("notifications", "removeRule")->click();
    ASSERT_EQ(current().rules.size(), 5u);
    EXPECT_EQ(current().rules[0].id, defaults[1].id);
    EXPECT_EQ(table->rowCount(), 5);
}

TEST_F(SettingsFixture, HotKeysPaneRecordsWithTheCentreSuspendedAndShowsRefusals)
{
    auto* field = widget<QPushButton>("hotkeys", "hotKey.keepAwake");
    EXPECT_EQ(field->text(), "Record Shortcut");
    field->click();
    EXPECT_TRUE(center.suspended);
    QTest::keyClick(field, Qt::Key_A, Qt::ShiftModifier); // refused: still recording
    EXPECT_TRUE(center.suspended);
    QTest::keyClick(field, Qt::Key_K, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_FALSE(center.suspended);
    ASSERT_EQ(current().hotKeys.count("keepAwake"), 1u);
    EXPECT_EQ(current().hotKeys.at("keepAwake"), (HotKey{'k', 0x1800, "Ctrl+Alt+K"}));
    EXPECT_EQ(field->text(), "Ctrl+Alt+K");

    field->click();
    QTest::keyClick(field, Qt::Key_Escape); // cancels
    EXPECT_EQ(current().hotKeys.count("keepAwake"), 1u);
    field->click();
    QTest::keyClick(field, Qt::Key_Delete); // clears
    EXPECT_EQ(current().hotKeys.count("keepAwake"), 0u);
    EXPECT_FALSE(center.suspended);

    // The desktop refused the settings shortcut: the pane says so beside it.
    backend->refuse = "settings";
    Config stored = current();
    stored.hotKeys["settings"] = HotKey{0xffc2, 0, "F5"};
    settings().setConfig(stored);
    center.setHotKeys(stored.hotKeys);
    center.registerAll();
    window->pane("hotkeys")->load(current());
    EXPECT_FALSE(widget<QLabel>("hotkeys", "refused.settings")->isHidden());
    EXPECT_EQ(widget<QLabel>("hotkeys", "refused.settings")->text(), "Another app already uses this shortcut.");
    EXPECT_TRUE(widget<QLabel>("hotkeys", "refused.keepAwake")->isHidden());
    widget<QPushButton>("hotkeys", "clear.settings")->click();
    EXPECT_TRUE(current().hotKeys.empty());
}

TEST_F(SettingsFixture, AgentsPaneAddsAndRemovesWithTheSameCodeAsTheCommandLine)
{
    const QString file = home.path() + "/agents/.cursor/mcp.json";
    QDir().mkpath(home.path() + "/agents/.cursor");
    auto* add = widget<QPushButton>("agents", "add.cursor");
    EXPECT_EQ(widget<QLabel>("agents", "status.cursor")->text(), "Not added");
    EXPECT_FALSE(widget<QPushButton>("agents", "add.vscode")->isEnabled()); // not installed
    add->click();
    const QJsonObject servers = QJsonDocument::fromJson(readFile(file)).object()["mcpServers"].toObject();
    EXPECT_EQ(servers["pulsebar"].toObject()["command"].toString(), AgentClient::executable());
    EXPECT_EQ(widget<QLabel>("agents", "status.cursor")->text(), "Added");
    EXPECT_EQ(widget<QLabel>("agents", "message.cursor")->text(), "Appears under Settings › MCP.");
    widget<QPushButton>("agents", "remove.cursor")->click();
    EXPECT_FALSE(QJsonDocument::fromJson(readFile(file)).object()["mcpServers"].toObject().contains("pulsebar"));
    EXPECT_EQ(widget<QLabel>("agents", "status.cursor")->text(), "Not added");

    // A file with comments is left alone; the pane offers the snippet instead.
    const QByteArray commented = "// mine\n{\"mcpServers\": {}}\n";
    writeFile(file, commented);
    add->click();
    EXPECT_EQ(readFile(file), commented);
    EXPECT_TRUE(widget<QLabel>("agents", "message.cursor")->text().contains("couldn't be read as plain JSON"));
    EXPECT_TRUE(widget<QPlainTextEdit>("agents", "snippet.cursor")->toPlainText().contains("\"pulsebar\""));
    widget<QPushButton>("agents", "copySnippet.cursor")->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), widget<QPlainTextEdit>("agents", "snippet.cursor")->toPlainText());

    widget<QPushButton>("agents", "copy.claude-code")->click();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), AgentClient::command());
}

TEST_F(SettingsFixture, AHandEditOfThePreferencesFileShowsUpWithoutLosingWhatIsBeingTyped)
{
    auto* host = widget<QLineEdit>("network", "pingHost");
    host->setFocus();
    host->selectAll();
    QTest::keyClicks(host, "half.typed");

    QJsonObject object = QJsonDocument::fromJson(readFile(isolated.preferences.path())).object();
    QJsonObject stored = object[AppSettings::configKey].toObject();
    stored["updateInterval"] = 7;
    stored["pingHost"] = "10.0.0.1";
    object[AppSettings::configKey] = stored;
    writeFile(isolated.preferences.path(), QJsonDocument(object).toJson());
    ASSERT_TRUE(waitUntil([&] { return current().updateInterval == 7; }));
    EXPECT_EQ(current().pingHost, "10.0.0.1");
    EXPECT_EQ(host->text(), "half.typed");
    EXPECT_EQ(window->pane("general")->findChild<QDoubleSpinBox*>("updateInterval")->value(), 7);

    // A half-written file changes nothing.
    writeFile(isolated.preferences.path(), "{\"PulsebarConfig.v1\": ");
    window->preferencesFileChanged();
    EXPECT_EQ(current().updateInterval, 7);
}

TEST_F(SettingsFixture, HistoryPaneClearsOnlyAfterConfirmation)
{
    const double now = double(QDateTime::currentSecsSinceEpoch());
    std::unique_ptr<HistoryStore> store =
        HistoryStore::open(home.path() + "/history.sqlite", HistoryStore::Access::writable, [now] { return now; });
    ASSERT_TRUE(store);
    store->record({{HistoryMetric::cpuUser, 10}}, now - 5);
    store->flush();
    const auto rows = [&] { return store->loadNow({HistoryMetric::cpuUser}, HistoryRange::hour).times.size(); };
    ASSERT_EQ(rows(), 1u);

    SettingsContext context{isolated.settings, notifier, &center};
    context.history = [&] { return store.get(); };
    window = std::make_unique<SettingsWindow>(std::move(context));
    window->present();
    window->showPane("history");
    EXPECT_NE(widget<QLabel>("history", "fileSize")->text(), "");

    const auto confirmation = [&]() -> QMessageBox* {
        for (QMessageBox* box : window->findChildren<QMessageBox*>("confirmClear"))
            if (box->isVisible())
                return box;
        return nullptr;
    };
    widget<QPushButton>("history", "clearHistory")->click();
    ASSERT_TRUE(confirmation());
    EXPECT_EQ(confirmation()->text(), "Clear all graph history?");
    confirmation()->button(QMessageBox::Cancel)->click();
    QCoreApplication::processEvents();
    EXPECT_EQ(rows(), 1u);

    widget<QPushButton>("history", "clearHistory")->click();
    ASSERT_TRUE(waitUntil([&] { return confirmation() != nullptr; }));
    confirmation()->findChild<QPushButton*>("confirm")->click();
    ASSERT_TRUE(waitUntil([&] { return widget<QPushButton>("history", "clearHistory")->isEnabled(); }));
    EXPECT_EQ(rows(), 0u);
}

TEST_F(SettingsFixture, WeatherPaneSearchesPlacesAndSetsOrClearsTheLocation)
{
    // The place search answers by hand, so a late answer to an older text can be played after a newer one.
    QStringList asked;
    std::vector<std::function<void(Parsed<std::vector<WeatherLocation>>)>> pending;
    std::optional<WeatherLocation> found = WeatherLocation{"Potsdam", 52.4, 13.07};
    const auto openWith = [&] {
        SettingsContext context{isolated.settings, notifier, &center};
        context.searchPlaces = [&](const QString& query, std::function<void(Parsed<std::vector<WeatherLocation>>)> done) {
            asked << query;
            pending.push_back(std::move(done));
        };
        context.automaticPlace = [&] { return found; };
        window = std::make_unique<SettingsWindow>(std::move(context));
        window->present();
        window->showPane("weather");
    };
    openWith();
    EXPECT_EQ(widget<QLabel>("weather", "weatherPlace")->text(), "Automatic: Potsdam");
    EXPECT_FALSE(widget<QPushButton>("weather", "automaticLocation")->isEnabled());

    widget<QPushButton>("weather", "changeLocation")->click();
    auto* dialog = window->pane("weather")->findChild<QDialog*>("locationSearch");
    ASSERT_TRUE(dialog);
    auto* query = dialog->findChild<QLineEdit*>("placeQuery");
    auto* results = dialog->findChild<QListWidget*>("placeResults");
    auto* status = dialog->findChild<QLabel*>("placeSearchStatus");
    QTest::keyClicks(query, "Lyo");
    QTest::keyClick(query, Qt::Key_Return);
    QTest::keyClicks(query, "n");
    QTest::keyClick(query, Qt::Key_Return);
    EXPECT_EQ(asked, (QStringList{"Lyo", "Lyon"}));
    EXPECT_EQ(status->text(), "Searching…");

    // The answer to "Lyon" comes first; the late one for "Lyo" is dropped.
    pending[1]({std::vector<WeatherLocation>{{"Lyon, Auvergne-Rhône-Alpes, France", 45.75, 4.85},
                                              {"Lyon, Mississippi, United States", 34.22, -90.54}},
                {}});
    pending[0]({std::vector<WeatherLocation>{{"Lyons, Colorado, United States", 40.22, -105.27}}, {}});
    ASSERT_EQ(results->count(), 2);
    EXPECT_EQ(results->item(1)->text(), "Lyon, Mississippi, United States");
    EXPECT_TRUE(status->text().isEmpty());

    results->setCurrentRow(0);
    dialog->findChild<QPushButton*>("usePlace")->click();
    ASSERT_TRUE(current().weatherLocation);
    EXPECT_EQ(*current().weatherLocation, (WeatherLocation{"Lyon, Auvergne-Rhône-Alpes, France", 45.75, 4.85}));
    EXPECT_EQ(widget<QLabel>("weather", "weatherPlace")->text(), "Lyon, Auvergne-Rhône-Alpes, France");

    // A failed search says why and lists nothing; nothing found says so.
    widget<QPushButton>("weather", "changeLocation")->click();
    dialog = window->pane("weather")->findChildren<QDialog*>("locationSearch").last();
    QTest::keyClicks(dialog->findChild<QLineEdit*>("placeQuery"), "Paris");
    QTest::keyClick(dialog->findChild<QLineEdit*>("placeQuery"), Qt::Key_Return);
    pending.back()(Parsed<std::vector<WeatherLocation>>::failure("The place search did not answer within 10 seconds."));
    EXPECT_EQ(dialog->findChild<QListWidget*>("placeResults")->count(), 0);
    EXPECT_EQ(dialog->findChild<QLabel*>("placeSearchStatus")->text(),
              "The place search did not answer within 10 seconds.");
    EXPECT_FALSE(dialog->findChild<QPushButton*>("usePlace")->isEnabled());
    QTest::keyClick(dialog->findChild<QLineEdit*>("placeQuery"), Qt::Key_Return);
    pending.back()({std::vector<WeatherLocation>{}, {}});
    EXPECT_EQ(dialog->findChild<QLabel*>("placeSearchStatus")->text(), "No places found.");
    dialog->reject();

    widget<QPushButton>("weather", "automaticLocation")->click();
    EXPECT_FALSE(current().weatherLocation);
    found.reset();
    window->pane("weather")->load(current());
    EXPECT_EQ(widget<QLabel>("weather", "weatherPlace")->text(), "Automatic (not found yet)");

    widget<QComboBox>("weather", "temperatureUnit")->setCurrentIndex(2);
    widget<QComboBox>("weather", "windUnit")->setCurrentIndex(1);
    EXPECT_EQ(current().temperatureUnit, TempUnit::kelvin);
    EXPECT_EQ(current().windUnit, WindUnit::mph);
}

TEST_F(SettingsFixture, WorldClockPaneAddsReordersAndLimitsMenuBarClocks)
{
    auto* clocks = widget<QListWidget>("worldclock", "clocks");
    ASSERT_EQ(clocks->count(), 3); // New York (in the menu bar), London, Tokyo
    EXPECT_TRUE(clocks->item(0)->text().startsWith("New York · America/New_York · "));

    widget<QPushButton>("worldclock", "addClock")->click();
    auto* picker = window->pane("worldclock")->findChild<QDialog*>("zonePicker");
    ASSERT_TRUE(picker);
    QTest::keyClicks(picker->findChild<QLineEdit*>("zoneQuery"), "kathmandu");
    picker->findChild<QPushButton*>("addZone")->click();
    EXPECT_EQ(current().worldClocks, QStringList({"America/New_York", "Europe/London", "Asia/Tokyo", "Asia/Kathmandu"}));

    clocks->setCurrentRow(3);
    widget<QPushButton>("worldclock", "moveClockUp")->click();
    for (int row : {1, 2, 3})
        clocks->item(row)->setCheckState(Qt::Checked);
    EXPECT_EQ(current().worldClocks, QStringList({"America/New_York", "Europe/London", "Asia/Kathmandu", "Asia/Tokyo"}));
    // A fourth menu-bar clock is refused, with the reason.
    EXPECT_EQ(current().menubarClocks, QStringList({"America/New_York", "Europe/London", "Asia/Kathmandu"}));
    EXPECT_EQ(clocks->item(3)->checkState(), Qt::Unchecked);
    EXPECT_FALSE(widget<QLabel>("worldclock", "menubarClockLimit")->isHidden());

    clocks->setCurrentRow(0);
    widget<QPushButton>("worldclock", "removeClock")->click();
    EXPECT_EQ(current().menubarClocks, QStringList({"Europe/London", "Asia/Kathmandu"}));
    widget<QComboBox>("worldclock", "clockLabel")->setCurrentIndex(1);
    EXPECT_EQ(current().clockLabel, ClockLabel::abbreviation);
}

TEST_F(SettingsFixture, CalendarPaneHidesCalendarsAndChecksSubscriptions)
{
    auto state = std::make_shared<CalendarState>();
    state->access = CalendarAccess::granted;
    int refreshes = 0;
    std::function<void()> calendarsRead;
    SettingsContext context{isolated.settings, notifier, &center};
    context.calendarState = [state] { return state; };
    context.refreshCalendars = [&] { ++refreshes; };
    context.watchCalendars = [&](QObject*, std::function<void()> changed) { calendarsRead = std::move(changed); };
    window = std::make_unique<SettingsWindow>(std::move(context));
    window->present();

    // Shown, the pane has the calendars read, and lists what the read finds.
    auto* calendars = widget<QListWidget>("calendar", "calendars");
    EXPECT_EQ(calendars->count(), 0);
    EXPECT_GE(refreshes, 1);
    state->calendars = {{"work", "Work", "Google", QColor("#3b82f6")}, {"home", "Home", "Nextcloud", QColor("#22a06b")}};
    ASSERT_TRUE(calendarsRead);
    calendarsRead();
    ASSERT_EQ(calendars->count(), 2);
    EXPECT_EQ(calendars->item(1)->text(), "Home — Nextcloud");
    calendars->item(1)->setCheckState(Qt::Unchecked);
    EXPECT_EQ(current().hiddenCalendars, QStringList({"home"}));
    calendars->item(1)->setCheckState(Qt::Checked);
    EXPECT_TRUE(current().hiddenCalendars.isEmpty());

    widget<QSpinBox>("calendar", "eventDays")->setValue(7);
    widget<QCheckBox>("calendar", "showWeekNumbers")->setChecked(false);
    EXPECT_EQ(current().eventDays, 7);
    EXPECT_FALSE(current().showWeekNumbers);

    auto* address = widget<QLineEdit>("calendar", "subscriptionURL");
    auto* error = widget<QLabel>("calendar", "subscriptionError");
    for (const char* bad : {"ftp://example.org/cal.ics", "calendar.ics", "https://", "file:///home/me/cal.ics"}) {
        address->setText(bad);
        widget<QPushButton>("calendar", "subscribe")->click();
        EXPECT_FALSE(error->isHidden()) << bad;
    }
    EXPECT_EQ(subscriptionError("ftp://example.org/cal.ics"),
              "“ftp://example.org/cal.ics” is not a calendar address: it must start with http://, https:// or webcal://.");
    const int refreshesBefore = refreshes;
    for (const char* good : {"webcal://calendars.example.org/de.ics", "https://example.org/team.ics"}) {
        address->setText(good);
        QTest::keyClick(address, Qt::Key_Return);
        EXPECT_TRUE(error->isHidden()) << good;
    }
    address->setText("https://example.org/team.ics");
    widget<QPushButton>("calendar", "subscribe")->click();
    EXPECT_FALSE(error->isHidden()); // already there
    EXPECT_EQ(CalendarSources::load(isolated.preferences).subscriptions,
              QStringList({"webcal://calendars.example.org/de.ics", "https://example.org/team.ics"}));
    EXPECT_EQ(refreshes, refreshesBefore + 2);

    auto* sources = widget<QListWidget>("calendar", "sources");
    sources->setCurrentRow(0);
    widget<QPushButton>("calendar", "removeCalendarSource")->click();
    EXPECT_EQ(CalendarSources::load(isolated.preferences).subscriptions, QStringList({"https://example.org/team.ics"}));

    auto* addresses = widget<QLineEdit>("calendar", "ownAddresses");
    addresses->setFocus();
    QTest::keyClicks(addresses, "me@example.org, not-an-address");
    QTest::keyClick(addresses, Qt::Key_Return);
    EXPECT_TRUE(CalendarSources::load(isolated.preferences).ownAddresses.isEmpty());
    EXPECT_FALSE(widget<QLabel>("calendar", "ownAddressesError")->isHidden());
    addresses->setText("me@example.org; work@example.com");
    QTest::keyClick(addresses, Qt::Key_Return);
    EXPECT_EQ(CalendarSources::load(isolated.preferences).ownAddresses, QStringList({"me@example.org", "work@example.com"}));
}
