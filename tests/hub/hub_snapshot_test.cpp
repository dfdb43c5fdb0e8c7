#include "hub/hub_snapshot.h"

#include "../support/recording_notifier.h"

#include <gtest/gtest.h>

using namespace pulsebar;

TEST(HubSnapshot, NetworkReadingsAndWiFiAssociation)
{
    test::HubFixture fixture;
    NetworkMonitor& network = fixture.hub.network;
    network.download = 3e6;
    network.upload = 1e5;
    network.pingMs = 12.5;
    network.internetReachable = false;
    network.publicIP = "203.0.113.9";
    network.primaryInterface = "wlan0";

    HubSnapshot s = HubSnapshot::of(fixture.hub);
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
    EXPECT_FALSE(HubSnapshot::of(fixture.hub).wifiAssociated);

    network.wifi->ssid = "Home";
    s = HubSnapshot::of(fixture.hub);
    EXPECT_TRUE(s.wifiAssociated);
    EXPECT_EQ(s.wifiSSID, "Home");

    // The name may be withheld while the link is up: associated, but no SSID to announce.
    network.wifi->ssid.reset();
    network.wifi->bssid = "aa:bb:cc:dd:ee:ff";
    s = HubSnapshot::of(fixture.hub);
    EXPECT_TRUE(s.wifiAssociated);
    EXPECT_FALSE(s.wifiSSID);
}

TEST(HubSnapshot, AGPUAndAStartupVolumeAreOnlyKnownWhenListed)
{
    test::HubFixture fixture;
    Hub& hub = fixture.hub;
    hub.gpu.gpus.clear();
    hub.disks.volumes.clear();
    HubSnapshot s = HubSnapshot::of(hub);
    EXPECT_FALSE(s.gpuUtilization); // no GPU: unknown, so a GPU rule cannot hold, rather than 0
    EXPECT_FALSE(s.startupVolume);

    hub.gpu.gpus.resize(1);
    hub.gpu.gpus[0].utilization = 35;
    hub.disks.volumes = {Volume{"/data", "data", 100e9, 60e9, 60e9, false, true, false},
                         Volume{"/", "/", 500e9, 20e9, 25e9, false, true, true, 20e9}};
    s = HubSnapshot::of(hub);
    EXPECT_EQ(s.gpuUtilization, 35);
    ASSERT_TRUE(s.startupVolume);
    EXPECT_EQ(s.startupVolume->usedPercent(), 460.0 / 480 * 100); // the root volume, its reserve neither used nor free
}

TEST(HubSnapshot, StartupVolumeUse)
{
    EXPECT_FALSE((LiveVolume{0, 0}.usedPercent()));
    EXPECT_EQ((LiveVolume{200, 50}.usedPercent()), 75.0);
    EXPECT_EQ((LiveVolume{200, -5}.usedPercent()), 100.0); // a negative free counts as none
    EXPECT_EQ((LiveVolume{100, 5, 10}.usedPercent()), 85.0 / 90 * 100); // as df: the reserve is left out
    EXPECT_EQ((LiveVolume{100, 0, 10}.usedPercent()), 100.0);
}
