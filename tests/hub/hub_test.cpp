#include "hub/hub.h"

#include "../support/test_support.h"

#include <QPointer>
#include <QSignalSpy>

#include <gtest/gtest.h>

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

    Hub hub(settings);
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
    Hub hub(settings);
    hub.startHeadless();
    EXPECT_TRUE(hub.isHeadless());
    EXPECT_FALSE(hub.isRecording());
    EXPECT_EQ(hub.tickCount(), 1);
}
