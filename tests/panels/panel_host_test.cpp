#include "hub/hub.h"
#include "panels/panel_body.h"
#include "panels/panel_host.h"
#include "panels/panel_placement.h"
#include "panels/panel_view.h"
#include "panels/process_row_actions.h"
#include "../support/test_support.h"

#include <QApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QToolButton>

#include <gtest/gtest.h>

using namespace pulsebar;

TEST(PanelPlacement, UnderOrAboveItsItemInsideTheFreeAreaOfTheScreen)
{
    const QSize size(340, 500);
    const QRect screen(0, 0, 1280, 800);
    const QRect belowTopBar(0, 24, 1280, 776);
    const QRect aboveBottomBar(0, 0, 1280, 760);
    const struct {
        const char* what;
        QRect anchor;
        QRect available;
        QRect expected;
    } cases[] = {
        {"an item in a top bar", {600, 0, 24, 24}, belowTopBar, {441, 29, 340, 500}},
        {"the SNI click point inside the bar", {610, 10, 1, 1}, belowTopBar, {440, 24, 340, 500}},
        {"an item at the right edge", {1260, 0, 20, 24}, belowTopBar, {940, 29, 340, 500}},
        {"an item in a bottom bar", {100, 770, 24, 30}, aboveBottomBar, {0, 260, 340, 500}},
        {"a bar at the left edge", {0, 300, 40, 24}, {48, 0, 1232, 800}, {53, 61, 340, 500}},
        {"a panel taller than the screen", {600, 0, 24, 24}, {0, 24, 1280, 300}, {441, 24, 340, 300}},
    };
    for (const auto& c : cases) {
        const QRect frame = panelGeometry(size, c.anchor, c.available, screen);
        EXPECT_EQ(frame, c.expected) << c.what;
        EXPECT_TRUE(c.available.contains(frame)) << c.what;
    }
}

TEST(ProcessRowActions, ForceQuitAsksFirstAndReallyKillsTheChild)
{
    QProcess child;
    child.start("sleep", {"60"});
    ASSERT_TRUE(child.waitForStarted());
    const ProcessSample sample{int32_t(child.processId()), "sleep", 0, 0, 0, 0};

    QStringList asked;
    auto answer = [&asked](bool choice) {
        return [&asked, choice](const QString& message, const QString& informative) {
            asked << message << informative;
            return choice;
        };
    };
    EXPECT_FALSE(ProcessRowActions::forceQuit(sample, answer(false)));
    EXPECT_EQ(asked, (QStringList{"Force quit “sleep”?", "You will lose any unsaved changes."}));
    EXPECT_FALSE(child.waitForFinished(200)); // "Cancel" leaves it running

    EXPECT_TRUE(ProcessRowActions::forceQuit(sample, answer(true)));
    ASSERT_TRUE(child.waitForFinished(5000));
    EXPECT_EQ(child.exitStatus(), QProcess::CrashExit);

    // Never asked, never sent: this program and the protected names.
    asked.clear();
    EXPECT_FALSE(ProcessRowActions::forceQuit({int32_t(QCoreApplication::applicationPid()), "tests", 0, 0, 0, 0}, answer(true)));
    EXPECT_FALSE(ProcessRowActions::forceQuit({1, "systemd", 0, 0, 0, 0}, answer(true)));
    EXPECT_TRUE(asked.isEmpty());
}

TEST(PanelHost, OnePanelAtATimeRedrawnFromTheSnapshotWithItsRangeRemembered)
{
    test::IsolatedSettings isolated;
    SystemReaders readers = systemReaders();
    auto calendars = std::make_shared<test::CountingCalendarStore>();
    readers.calendars = calendars;
    Hub hub(isolated.settings, std::move(readers));
    PanelHost host(hub, isolated.settings);
    PanelSnapshot snapshot;
    snapshot.cpu.user = 10;
    snapshot.keepAwake = {false, "Off"};
    host.snapshot = [&] { return snapshot; };
    std::vector<std::pair<std::vector<HistoryMetric>, HistoryRange>> loads;
    host.loader = [&](std::vector<HistoryMetric> metrics, HistoryRange range, QObject*, std::function<void(HistorySeries)> done) {
        loads.emplace_back(metrics, range);
        done({});
    };

    host.toggle(ModuleKind::cpu, QRect(100, 0, 20, 20));
    ASSERT_EQ(host.openPanel(), ModuleKind::cpu);
    EXPECT_EQ(host.view()->body()->model().headline, "10%");
    ASSERT_EQ(loads.size(), 1u);
    EXPECT_EQ(loads[0].second, HistoryRange::hour);
    // No item shows events by default, but the overview's next event is one click away from any panel.
    hub.calendar.waitForFetch();
    EXPECT_EQ(calendars->reads, 1);

    snapshot.cpu.user = 55;
    host.refresh();
    EXPECT_EQ(host.view()->body()->model().headline, "55%");
    EXPECT_EQ(loads.size(), 1u); // the same charts a moment later are not read again

    host.view()->graph()->setRange(HistoryRange::month);
    EXPECT_EQ(isolated.preferences.value("panel.historyRange").toString(), "month");
    EXPECT_EQ(loads.back().second, HistoryRange::month);

    host.toggle(ModuleKind::memory, QRect(100, 0, 20, 20)); // replaces the CPU panel
    EXPECT_EQ(host.openPanel(), ModuleKind::memory);
    host.view()->findChild<QToolButton*>()->click(); // the header's way to the overview
    EXPECT_EQ(host.openPanel(), ModuleKind::combined);

    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(host.window(), &escape);
    EXPECT_FALSE(host.openPanel());
    host.toggle(ModuleKind::time, QRect());
    EXPECT_EQ(host.openPanel(), ModuleKind::time);
}
