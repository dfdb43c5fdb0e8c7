#include "alerts/live_state.h"

#include "../support/recording_notifier.h"

#include <gtest/gtest.h>

using namespace pulsebar;

TEST(LiveState, CopiesTheNetworkReadingsTheEnginesUse)
{
    test::HubFixture fixture;
    NetworkMonitor& network = fixture.hub.network;
    network.download = 3e6;
    network.upload = 1e5;
    network.pingMs = 12.5;
    network.internetReachable = false;
    network.publicIP = "203.0.113.9";
    network.primaryInterface = "wlan0";

    LiveState s = LiveState::from(fixture.hub);
    EXPECT_EQ(s.download, 3e6);
    EXPECT_EQ(s.upload, 1e5);
    EXPECT_EQ(s.pingMs, 12.5);
    EXPECT_EQ(s.internetReachable, false);
    EXPECT_EQ(s.publicIP, "203.0.113.9");
    EXPECT_EQ(s.primaryInterface, "wlan0");
    EXPECT_FALSE(s.wifiAssociated);
    EXPECT_FALSE(s.wifiSSID);

    // A powered Wi-Fi link that is not associated names no network.
    network.wifi = WiFiInfo{};
    network.wifi->interfaceName = "wlan0";
    EXPECT_FALSE(LiveState::from(fixture.hub).wifiAssociated);

    network.wifi->ssid = "Home";
    s = LiveState::from(fixture.hub);
    EXPECT_TRUE(s.wifiAssociated);
    EXPECT_EQ(s.wifiSSID, "Home");

    // The name may be withheld while the link is up: associated, but no SSID to announce.
    network.wifi->ssid.reset();
    network.wifi->bssid = "aa:bb:cc:dd:ee:ff";
    s = LiveState::from(fixture.hub);
    EXPECT_TRUE(s.wifiAssociated);
    EXPECT_FALSE(s.wifiSSID);
}

TEST(LiveState, CopiesFansTemperatureAndBattery)
{
    test::HubFixture fixture;
    fixture.hub.sensors.fans = {Fan{0, 3100, 1200, 6000}, Fan{1, 900, 900, 5000}};
    BatteryMonitor& battery = fixture.hub.battery;
    battery.present = true;
    battery.onAC = false;
    battery.isCharged = false;
    battery.percent = 47.5;
    battery.voltage = 11.4;
    battery.amperage = -1.8;
    battery.minutesRemaining = 95;

    const LiveState s = LiveState::from(fixture.hub);
    ASSERT_EQ(s.fans.size(), 2u);
    EXPECT_EQ(s.fans[0].rpm, 3100);
    EXPECT_EQ(s.fans[0].minimum, 1200);
    EXPECT_EQ(s.fans[1].maximum, 5000);
    EXPECT_TRUE(s.batteryPresent);
    EXPECT_FALSE(s.onAC);
    EXPECT_EQ(s.batteryPercent, 47.5);
    EXPECT_EQ(s.batteryVoltage, 11.4);
    EXPECT_EQ(s.batteryAmperage, -1.8);
    EXPECT_EQ(s.minutesRemaining, 95);
}

TEST(LiveState, CopiesTheMonitorsOfProcessorMemoryProcessesAndDisks)
{
    test::HubFixture fixture;
    Hub& hub = fixture.hub;
    hub.cpu.user = 41;
    hub.cpu.system = 9;
    hub.memory.total = 8e9;
    hub.memory.app = 3e9;
    hub.memory.wired = 0.5e9;
    hub.memory.compressed = 0.5e9;
    hub.memory.pressure = 63;
    hub.memory.pressureLevel = 4;
    hub.processes.processes = {ProcessSample{7, "make", 12, 3e6, 10, 20}, ProcessSample{9, "cc1plus", 99, 5e8, 0, 4e6}};
    hub.disks.readRate = 1e6;
    hub.disks.writeRate = 2e6;
    hub.disks.volumes = {Volume{"/", "/", 500e9, 20e9, 25e9, false, true, true}};

    LiveState s = LiveState::from(hub);
    EXPECT_EQ(s.cpuTotal(), 50);
    EXPECT_FALSE(s.gpuUtilization); // no GPU known: unknown, not 0
    EXPECT_EQ(s.memoryUsed, 50);
    EXPECT_EQ(s.memoryPressure, 63);
    EXPECT_EQ(s.memoryPressureLevel, 4);
    ASSERT_EQ(s.processes.size(), 2u);
    EXPECT_EQ(s.processes[1].pid, 9);
    EXPECT_EQ(s.processes[1].name, "cc1plus");
    EXPECT_EQ(s.processes[1].cpu, 99);
    EXPECT_EQ(s.processes[1].memory, 5e8);
    EXPECT_EQ(s.processes[1].diskWrite, 4e6);
    EXPECT_EQ(s.processes[0].diskRead, 10);
    EXPECT_EQ(s.diskReadRate, 1e6);
    EXPECT_EQ(s.diskWriteRate, 2e6);
    ASSERT_TRUE(s.startupVolume);
    EXPECT_EQ(s.startupVolume->usedPercent(), 96.0);

    hub.gpu.gpus.resize(1);
    hub.gpu.gpus[0].utilization = 35;
    EXPECT_EQ(LiveState::from(hub).gpuUtilization, 35);
}

TEST(LiveState, StartupVolumeUse)
{
    EXPECT_FALSE((LiveVolume{0, 0}.usedPercent()));
    EXPECT_EQ((LiveVolume{200, 50}.usedPercent()), 75.0);
    EXPECT_EQ((LiveVolume{200, -5}.usedPercent()), 100.0); // a negative free counts as none
}
