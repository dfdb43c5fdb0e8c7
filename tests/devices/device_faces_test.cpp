#include "fake_devices.h"
#include "hub/hub.h"
#include "panels/panel_body.h"
#include "panels/panel_content.h"
#include "panels/panel_host.h"
#include "panels/panel_view.h"
#include "../support/test_support.h"

#include <QToolButton>

#include <gtest/gtest.h>

namespace pulsebar {
namespace {

ConnectedDevice phone()
{
    return test::FakeDevices::trustedPhone();
}

ConnectedDevice untrusted()
{
    ConnectedDevice d;
    d.id = "u";
    d.connection = Connection::wifi;
    return d;
}

std::string texts(const PanelSection& section)
{
    QStringList out;
    for (const PanelRow& row : section.rows)
        out << row.label + " | " + row.value;
    return out.join('\n').toStdString();
}

TEST(DeviceFaces, ThePanelListsEachDeviceOrTheUntrustedNote)
{
    PanelSnapshot s;
    const Config config;
    EXPECT_EQ(PanelContent::devices(s, config).sections[0].rows[0].kind, PanelRow::Kind::note);

    s.devices = {untrusted(), phone()};
    const PanelModel model = *PanelContent::buildTilePanel(OverviewItem::devices, s, config);
    EXPECT_EQ(model.tilePanel, OverviewItem::devices);
    ASSERT_EQ(model.sections.size(), 2u);
    EXPECT_EQ(model.sections[0].title, "iPhone");
    EXPECT_EQ(texts(model.sections[0]), "Wi-Fi | \n | Unlock the device and trust this computer to read battery and storage.");
    EXPECT_EQ(model.sections[1].title, "Mira's iPhone");
    EXPECT_EQ(texts(model.sections[1]), "USB | iPhone 15 Pro · iOS 18.1\n"
                                        "Charge | 76% · Charging\n"
                                        "Storage | 64.0 GB free of 256 GB\n"
                                        "Battery health | 89%\n"
                                        "Cycle count | 412\n"
                                        "Capacity | 2914 of 3274 mAh");
    EXPECT_DOUBLE_EQ(model.sections[1].rows[2].fraction, 0.75);
}

TEST(DeviceFaces, TheTileSummarisesOneOrSeveralDevicesAndOpensThePanel)
{
    Config config;
    PanelSnapshot s;
    const auto tile = [&]() -> std::optional<PanelRow> {
        for (const PanelSection& section : PanelContent::overview(s, config).sections)
            for (const PanelRow& row : section.rows)
                if (row.tilePanel == OverviewItem::devices)
                    return row;
        return std::nullopt;
    };
    EXPECT_FALSE(tile()) << "no tile without a device";
    s.devices = {phone()};
    ASSERT_TRUE(tile());
    EXPECT_EQ(tile()->label + " " + tile()->value + " " + tile()->detail, "Mira's iPhone 76% iPhone 15 Pro · Charging");
    EXPECT_EQ(tile()->symbol, "iphone");
    s.devices = {untrusted(), phone()};
    EXPECT_EQ(tile()->value, "2 connected");
    EXPECT_EQ(tile()->detail, "iPhone · Mira's iPhone 76%");
    config.showDevices = false;
    EXPECT_FALSE(tile());
}

TEST(DeviceFaces, TheHostOpensTheDevicesPanelFromItsTileAndKeepsItOnRefresh)
{
    test::IsolatedSettings isolated;
    Hub hub(isolated.settings, test::fixtureReaders(test::fixture("mcp/sysroot")));
    PanelHost host(hub, isolated.settings);
    PanelSnapshot snapshot;
    snapshot.devices = {phone()};
    host.snapshot = [&] { return snapshot; };
    host.loader = [](std::vector<HistoryMetric>, HistoryRange, QObject*, std::function<void(HistorySeries)> done) {
        done({});
    };
    host.open(ModuleKind::combined, QRect(100, 0, 20, 20));
    host.view()->actions.openTilePanel(OverviewItem::devices);
    EXPECT_EQ(host.view()->body()->model().title, "Devices");
    EXPECT_TRUE(host.view()->findChild<QToolButton*>()->isVisible());

    snapshot.devices.push_back(untrusted());
    host.refresh();
    EXPECT_EQ(host.view()->body()->model().sections.size(), 2u);
    host.view()->findChild<QToolButton*>()->click();
    EXPECT_EQ(host.view()->body()->model().title, "Overview");
}

} // namespace
} // namespace pulsebar
