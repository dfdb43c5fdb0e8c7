#include "hub/hub.h"

#include "insight/insight_engine.h"
#include "panels/panel_snapshot.h"

#include "../monitors/snapshot_root.h"
#include "../support/test_support.h"

#include <QPointer>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <array>
#include <atomic>

using namespace pulsebar;

TEST(Hub, IntervalChangeReplacesTheTimerAndTheOldOneNeverFiresAgain)
{
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    AppSettings settings(preferences);
    Config c = settings.config();
    c.updateInterval = 0.25; // the shortest period the timer keeps to
    c.pingHost = "127.0.0.1";
    settings.setConfig(c);

    Hub hub(settings, systemReaders());
    settings.addObserver([&](const Config& o, const Config& n) { hub.configChanged(o, n); });
    int ticks = 0;
    hub.onTick = [&] { ++ticks; };
    QSignalSpy changed(&hub, &Hub::changed);
    hub.start();
    EXPECT_EQ(ticks, 1); // one tick at once
    EXPECT_EQ(changed.count(), 1);
    ASSERT_NE(hub.timer(), nullptr);
    EXPECT_EQ(hub.timer()->interval(), 250);
    EXPECT_TRUE(test::waitUntil([&] { return ticks >= 3; }, 3000));

    QPointer<const QTimer> oldTimer(hub.timer());
    c.updateInterval = 5;
    settings.setConfig(c);
    EXPECT_TRUE(oldTimer.isNull());
    ASSERT_NE(hub.timer(), nullptr);
    EXPECT_EQ(hub.timer()->interval(), 5000);
    const int before = ticks;
    test::waitUntil([] { return false; }, 800); // the 250 ms timer would have fired several times
    EXPECT_EQ(ticks, before);

    // A change that leaves the interval alone keeps the timer.
    QPointer<const QTimer> current(hub.timer());
    c.monochrome = true;
    settings.setConfig(c);
    EXPECT_EQ(current.data(), hub.timer());
}

TEST(Hub, HeadlessStartMarksTheRoleAndRecordsNothing)
{
    test::IsolatedSettings isolated;
    AppSettings& settings = isolated.settings;
    Hub hub(settings, systemReaders());
    hub.startHeadless();
    EXPECT_TRUE(hub.isHeadless());
    EXPECT_FALSE(hub.isRecording());
    EXPECT_EQ(hub.tickCount(), 1);
}

TEST(Hub, TicksOverFixtureReadersGiveTheSnapshotTheInsightAndTheHistoryRows)
{
    test::IsolatedSettings isolated;
    test::ScopedEnv dataHome("XDG_DATA_HOME", isolated.dir.path() + "/data");
    test::SnapshotRoot root("sys-basic-1");
    Hub hub(isolated.settings, test::fixtureReaders(root.path()));
    double time = 1'700'000'000;
    hub.now = [&] { return time; };
    hub.start(); // the first tick only records counters
    ASSERT_TRUE(hub.isRecording());
    EXPECT_EQ(hub.snapshot().cpuTotal(), 0);

    root.use("sys-basic-2");
    time += 2;
    hub.tick();
    const HubSnapshot& live = hub.snapshot();
    EXPECT_EQ(live.time, time);
    EXPECT_NEAR(live.cpuUser, 166.0 / 3, 1e-9); // the CPU monitor's figures for this pair of trees
    EXPECT_NEAR(live.cpuSystem, 25.0 / 3, 1e-9);
    EXPECT_EQ(live.memoryPressure, 25);
    EXPECT_EQ(live.memoryPressureLevel, MemoryPressureLevel::critical);
    EXPECT_EQ(live.processes.size(), 5u);
    EXPECT_EQ(live.historyValues().at(HistoryMetric::cpuUser), live.cpuUser);
    EXPECT_NE(hub.insights().current().kind, Insight::Kind::memory); // critical, but not for 30 s yet

    for (int i = 0; i < 15; ++i) {
        time += 2;
        hub.tick();
    }
    const Insight& insight = hub.insights().current();
    EXPECT_EQ(insight.kind, Insight::Kind::memory);
    EXPECT_TRUE(insight.text.startsWith("Memory pressure is critical — ")) << insight.text.toStdString();

    hub.history->flush();
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open_v2((isolated.dir.path() + "/data/Pulsebar/history.sqlite").toUtf8().constData(), &db,
                              SQLITE_OPEN_READONLY, nullptr),
              SQLITE_OK);
    sqlite3_stmt* rows = nullptr;
    sqlite3_prepare_v2(db, "SELECT ts, cpu_user, mem_pressure FROM raw ORDER BY ts", -1, &rows, nullptr);
    std::vector<std::array<double, 3>> recorded;
    while (sqlite3_step(rows) == SQLITE_ROW)
        recorded.push_back({sqlite3_column_double(rows, 0), sqlite3_column_double(rows, 1), sqlite3_column_double(rows, 2)});
    sqlite3_finalize(rows);
    sqlite3_close(db);
    ASSERT_EQ(recorded.size(), 17u); // one row per tick, at the hub's time
    EXPECT_EQ(recorded[0][0], 1'700'000'000);
    EXPECT_NEAR(recorded[1][1], 166.0 / 3, 1e-9);
    EXPECT_EQ(recorded[1][2], 25);
    EXPECT_EQ(recorded.back()[0], time);
}

TEST(Hub, TicksPollTheCalendarOnlyWhileAnItemShowsEventsAndItsNewStateReachesThePanels)
{
    test::IsolatedSettings isolated;
    test::SnapshotRoot root("sys-basic-1");
    SystemReaders readers = test::fixtureReaders(root.path());
    auto store = std::make_shared<test::CountingCalendarStore>();
    readers.calendars = store;
    Config c = isolated.settings.config();
    c.showEvents = false;
    isolated.settings.setConfig(c);
    Hub hub(isolated.settings, std::move(readers));
    double time = 1'700'000'000;
    hub.now = [&] { return time; };
    int ticks = 0;
    hub.onTick = [&] { ++ticks; };

    hub.tick();
    hub.calendar.waitForFetch();
    EXPECT_EQ(store->reads, 0);
    c.showEvents = true; // but no item that shows events is enabled yet
    isolated.settings.setConfig(c);
    hub.tick();
    hub.calendar.waitForFetch();
    EXPECT_EQ(store->reads, 0);
    for (ModuleConfig& m : c.modules)
        m.enabled = m.enabled || m.kind == ModuleKind::time;
    isolated.settings.setConfig(c);
    hub.tick();
    hub.calendar.waitForFetch(); // the fetched state arrives between ticks and is announced like one
    EXPECT_EQ(store->reads, 1);
    EXPECT_EQ(ticks, 4);
    EXPECT_EQ(hub.calendar.state()->access, CalendarAccess::granted);
    EXPECT_EQ(PanelSnapshot::from(hub).calendar, hub.calendar.state());
    time += 2;
    hub.tick(); // within the minute: not again
    hub.calendar.waitForFetch();
    EXPECT_EQ(store->reads, 1);
}
