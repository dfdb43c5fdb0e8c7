// The hub's side of history: which role records, what one tick writes, and the application run end to
// end with the sqlite3 tool reading back what it wrote.
#include "hub/hub.h"

#include "../support/test_support.h"
#include "history_test_support.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

using namespace pulsebar;
using namespace pulsebar::test;

namespace {

class Recording : public ::testing::Test {
protected:
    QTemporaryDir home;
    ScopedEnv dataHome{"XDG_DATA_HOME", home.path() + "/data"};
    QString historyPath = home.path() + "/data/Pulsebar/history.sqlite";
    IsolatedSettings isolated;
    AppSettings& settings = isolated.settings;
};

} // namespace

TEST_F(Recording, TheApplicationRoleRecordsOneRowPerTickAtTheHubsTime)
{
    Hub hub(settings, systemReaders());
    double time = 1'700'000'000.7;
    hub.now = [&] { return time; };
    hub.start();
    ASSERT_TRUE(hub.history);
    EXPECT_TRUE(hub.isRecording());
    EXPECT_EQ(hub.history->access(), HistoryStore::Access::writable);
    time += 1;
    hub.tick();
    hub.history->flush();
    SqlFile file(historyPath, SQLITE_OPEN_READONLY);
    EXPECT_EQ(file.column("SELECT ts FROM raw ORDER BY ts"),
              (std::vector<std::optional<double>>{1'700'000'000.0, 1'700'000'001.0}));
}

TEST_F(Recording, TheHeadlessRoleOpensReadOnlyAndNeverWrites)
{
    {
        Hub none(settings, systemReaders());
        none.startHeadless();
        EXPECT_FALSE(none.history); // nothing recorded yet: no store, and no file made
        EXPECT_FALSE(QFileInfo::exists(historyPath));
    }
    HistoryStore::open(historyPath, HistoryStore::Access::writable).reset(); // the tray app ran once
    Hub hub(settings, systemReaders());
    hub.startHeadless();
    ASSERT_TRUE(hub.history);
    EXPECT_EQ(hub.history->access(), HistoryStore::Access::readOnly);
    EXPECT_FALSE(hub.isRecording());
    hub.tick();
    hub.history->flush();
    EXPECT_EQ(SqlFile(historyPath, SQLITE_OPEN_READONLY).count("raw"), 0);
}

TEST_F(Recording, ARowHoldsExactlyTheMetricsWhoseSourcesHaveValues)
{
    Hub hub(settings, systemReaders());
    // A desktop: no GPU, no battery, no fans, no temperature, no power sensor.
    hub.gpu.gpus.clear();
    hub.sensors.sensors.clear();
    hub.sensors.fans.clear();
    hub.battery.present = false;
    hub.battery.voltage.reset();
    hub.battery.amperage.reset();
    hub.battery.temperature.reset();
    hub.cpu.user = 12.5;
    hub.cpu.system = 4;
    hub.memory.pressure = 30;
    hub.memory.total = 8e9;
    hub.memory.app = 3e9;
    hub.memory.wired = 0.5e9;
    hub.memory.compressed = 0.5e9;
    hub.disks.readRate = 4096;
    hub.disks.writeRate = 0; // a real zero is recorded as zero
    hub.network.download = 1500;
    hub.network.upload = 20;
    HistoryValues values = HubSnapshot::of(hub).historyValues();
    const HistoryValues always{{HistoryMetric::cpuUser, 12.5},      {HistoryMetric::cpuSystem, 4},
                               {HistoryMetric::memoryPressure, 30}, {HistoryMetric::memoryUsed, 50},
                               {HistoryMetric::diskRead, 4096},     {HistoryMetric::diskWrite, 0},
                               {HistoryMetric::download, 1500},     {HistoryMetric::upload, 20}};
    EXPECT_EQ(values, always); // and nothing else: no gpu, temperature, fan, battery or power

    hub.memory.total = 0; // no total: used reads 0 rather than a division by zero
    EXPECT_EQ(HubSnapshot::of(hub).historyValues().at(HistoryMetric::memoryUsed), 0.0);

    // A laptop discharging at 11.5 V and 1.2 A, with a GPU, two fans and a CPU sensor.
    hub.gpu.gpus.resize(2);
    hub.gpu.gpus[1].utilization = 35;
    hub.battery.present = true;
    hub.battery.percent = 64;
    hub.battery.voltage = 11.5;
    hub.battery.amperage = -1.2;
    hub.sensors.fans = {Fan{0, 1800}, Fan{1, 2400}};
    hub.sensors.sensors = {Sensor{"TC0P", "CPU", SensorGroup::cpu, SensorKind::temperature, 61}};
    values = HubSnapshot::of(hub).historyValues();
    EXPECT_EQ(values.at(HistoryMetric::gpu), 35.0); // the busiest GPU
    EXPECT_EQ(values.at(HistoryMetric::battery), 64.0);
    EXPECT_DOUBLE_EQ(values.at(HistoryMetric::power), 13.8);
    EXPECT_EQ(values.at(HistoryMetric::fan), 2400.0); // the fastest fan
    EXPECT_EQ(values.at(HistoryMetric::temperature), 61.0);

    // The machine's own total power wins over the battery's product.
    hub.sensors.sensors.push_back(Sensor{"PSTR", "System Total", SensorGroup::power, SensorKind::power, 22.5});
    EXPECT_EQ(HubSnapshot::of(hub).historyValues().at(HistoryMetric::power), 22.5);
}

namespace {

// The tray application, run as a person would, with a 1 s sampling interval.
class RecordingApp : public ::testing::Test {
protected:
    void SetUp() override
    {
        writeConfig(home.path(), QJsonObject{{"updateInterval", 1}});
    }

    void start(const QString& program, const QStringList& arguments, const QString& flushSeconds = "2")
    {
        QProcessEnvironment env = isolatedEnvironment(home.path());
        env.insert("PULSEBAR_HISTORY_FLUSH_SECONDS", flushSeconds);
        app.setProcessEnvironment(env);
        app.start(program, arguments);
        ASSERT_TRUE(app.waitForStarted());
    }

    // Quits with SIGTERM and expects a clean exit.
    void quit()
    {
        ::kill(pid_t(app.processId()), SIGTERM);
        ASSERT_TRUE(app.waitForFinished(10000));
        EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(app.exitCode(), 0);
        const QByteArray err = app.readAllStandardError();
        EXPECT_FALSE(err.contains("Sanitizer")) << err.constData();
    }

    // One value from the sqlite3 command-line tool, opened read-only as any other program would.
    QString sql(const QString& statement)
    {
        QProcess tool;
        tool.start("sqlite3", {"-readonly", historyPath, statement});
        tool.waitForFinished(10000);
        return QString::fromUtf8(tool.readAllStandardOutput()).trimmed();
    }

    QTemporaryDir home;
    QString historyPath = home.path() + "/.local/share/Pulsebar/history.sqlite";
    QProcess app;
};

} // namespace

TEST_F(RecordingApp, RowsWrittenByTheFlushTimerAndOnQuitCanBeReadBack)
{
    const qint64 started = QDateTime::currentSecsSinceEpoch();
    start(binaryPath(), {}, "4");
    // The first timed flush lands 4 s after the start with the rows of the first ticks.
    ASSERT_TRUE(waitUntil([&] { return sql("SELECT count(*) FROM raw").toInt() >= 2; }, 10000));
    const qint64 flushedUpTo = sql("SELECT max(ts) FROM raw").toLongLong();
    // Ticks 1 s apart (give or take the timer's slack) over more than 2 s reach a later second;
    // the next timed flush is still about 4 s away, so only the quit can write them.
    QThread::msleep(2200);
    quit();

    const qint64 first = sql("SELECT min(ts) FROM raw").toLongLong();
    const qint64 last = sql("SELECT max(ts) FROM raw").toLongLong();
    EXPECT_GT(last, flushedUpTo); // the quit flushed what was pending
    EXPECT_GE(first, started);
    EXPECT_LE(last, QDateTime::currentSecsSinceEpoch());
    EXPECT_EQ(sql("SELECT count(*) FROM m1 WHERE ts = " + QString::number(first / 60 * 60)), "1");
    // The metrics every machine has are in every row.
    EXPECT_EQ(sql("SELECT count(*) FROM raw WHERE cpu_user IS NULL OR cpu_system IS NULL OR mem_pressure IS NULL"
                  " OR mem_used IS NULL OR disk_read IS NULL OR disk_write IS NULL OR net_down IS NULL OR net_up IS NULL"),
              "0");
    EXPECT_GT(sql("SELECT max(mem_used) FROM raw").toDouble(), 0.0);
    EXPECT_EQ(sql("PRAGMA integrity_check"), "ok");
}

TEST_F(RecordingApp, AFileThatIsNotADatabaseIsKeptAndTheAppRunsOn)
{
    writeFile(historyPath, "my own notes\n");
    start(binaryPath(), {}, "0.2");
    EXPECT_FALSE(app.waitForFinished(1500));
    quit();
    EXPECT_EQ(readFile(historyPath), "my own notes\n");
}

TEST_F(RecordingApp, AReadOnlyFolderLeavesTheAppRunningWithoutHistory)
{
    const QString data = home.path() + "/.local/share";
    const QString folder = data + "/Pulsebar";
    const auto readOnly = QFileDevice::ReadOwner | QFileDevice::ExeOwner | QFileDevice::ReadGroup
                          | QFileDevice::ExeGroup | QFileDevice::ReadOther | QFileDevice::ExeOther;
    const auto writable = readOnly | QFileDevice::WriteOwner;
    auto runAndQuit = [&] {
        // Root ignores permission bits; without the capabilities that allow it, it obeys them like anyone.
        if (::geteuid() == 0)
            start("setpriv", {"--bounding-set=-dac_override,-dac_read_search", "--inh-caps=-all", binaryPath()}, "0.2");
        else
            start(binaryPath(), {}, "0.2");
        EXPECT_FALSE(app.waitForFinished(1500));
        quit();
    };

    // No folder yet, and it cannot be made.
    QDir().mkpath(data);
    QFile::setPermissions(data, readOnly);
    runAndQuit();
    EXPECT_FALSE(QFileInfo::exists(folder));
    QFile::setPermissions(data, writable);

    // A history file from an earlier run in a folder that has since become read-only.
    HistoryStore::open(historyPath, HistoryStore::Access::writable).reset();
    const QByteArray before = readFile(historyPath);
    QFile::setPermissions(folder, readOnly);
    runAndQuit();
    EXPECT_EQ(readFile(historyPath), before);
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{"history.sqlite"});
    QFile::setPermissions(folder, writable);
}
