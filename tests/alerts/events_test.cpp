#include "alerts/events.h"
#include "alerts/rule_engine.h"

#include "../support/recording_notifier.h"

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

const EventToggles allOn{true, true, true, true, true, true};

HubSnapshot laptop(bool onAC, double percent)
{
    HubSnapshot s;
    s.batteryPresent = true;
    s.onAC = onAC;
    s.batteryPercent = percent;
    return s;
}

std::vector<Notification> changes(const HubSnapshot& before, const HubSnapshot& now, const EventToggles& toggles = allOn)
{
    return eventAnnouncements(EventState::from(before), EventState::from(now), now, toggles, "1.1.1.1");
}

} // namespace

TEST(Events, ChargerAndChargedNeedABattery)
{
    EXPECT_EQ(changes(laptop(false, 40.4), laptop(true, 40.4)),
              (std::vector<Notification>{{"Charger connected", "Battery at 40%."}}));
    EXPECT_EQ(changes(laptop(true, 40), laptop(false, 39.5)),
              (std::vector<Notification>{{"Charger disconnected", "Battery at 40%."}}));

    HubSnapshot desktop;
    HubSnapshot unplugged = desktop;
    desktop.onAC = true;
    EXPECT_TRUE(changes(desktop, unplugged).empty());

    // Charged is the system's verdict, or 99.5 % on the charger.
    EXPECT_EQ(changes(laptop(true, 99.4), laptop(true, 99.5)),
              (std::vector<Notification>{{"Battery is now charged", "Battery at 100%."}}));
    EXPECT_TRUE(changes(laptop(false, 99.4), laptop(false, 99.9)).empty());
    HubSnapshot reported = laptop(false, 97);
    reported.batteryCharged = true;
    EXPECT_EQ(changes(laptop(false, 97), reported).size(), 1u);
    EXPECT_TRUE(changes(reported, reported).empty());

    // Plugging in at full charge announces both, in order.
    EXPECT_EQ(changes(laptop(false, 100), laptop(true, 100)),
              (std::vector<Notification>{{"Charger connected", "Battery at 100%."},
                                         {"Battery is now charged", "Battery at 100%."}}));
}

TEST(Events, WiFiJoinsAreNewsButAFirstPublicAddressIsNot)
{
    HubSnapshot none;
    HubSnapshot home;
    home.wifiAssociated = true;
    home.wifiSSID = "Home";
    home.publicIP = "203.0.113.7";
    EXPECT_EQ(changes(none, home), (std::vector<Notification>{{"Wi-Fi connected", "Connected to 'Home'."}}));
    EXPECT_TRUE(changes(home, home).empty());

    HubSnapshot cafe = home;
    cafe.wifiSSID = "Café";
    cafe.publicIP = "198.51.100.2";
    EXPECT_EQ(changes(home, cafe), (std::vector<Notification>{{"Wi-Fi connected", "Connected to 'Café'."},
                                                              {"New public IP address", "198.51.100.2"}}));

    // A name without an association, or losing the network, says nothing.
    HubSnapshot named = none;
    named.wifiSSID = "Home";
    EXPECT_TRUE(changes(none, named).empty());
    EXPECT_TRUE(changes(home, none).empty());
}

TEST(Events, ReachabilityOnlyBetweenKnownStates)
{
    HubSnapshot unknown;
    HubSnapshot up;
    up.internetReachable = true;
    HubSnapshot down;
    down.internetReachable = false;
    EXPECT_TRUE(changes(unknown, down).empty());
    EXPECT_TRUE(changes(unknown, up).empty());
    EXPECT_TRUE(changes(down, unknown).empty());
    EXPECT_EQ(changes(up, down),
              (std::vector<Notification>{{"No internet connection", "Ping to 1.1.1.1 is failing."}}));
    EXPECT_EQ(changes(down, up),
              (std::vector<Notification>{{"Connected to internet", "Internet connectivity restored."}}));
}

TEST(Events, PrimaryInterfaceCountsAbsenceAsAValue)
{
    HubSnapshot wired;
    wired.primaryInterface = "eth0";
    HubSnapshot wireless;
    wireless.primaryInterface = "wlan0";
    HubSnapshot none;
    EXPECT_EQ(changes(wired, wireless),
              (std::vector<Notification>{{"Primary network interface changed", "wlan0"}}));
    EXPECT_EQ(changes(wired, none), (std::vector<Notification>{{"Primary network interface changed", "None"}}));
    EXPECT_EQ(changes(none, wired).size(), 1u);
}

TEST(Events, TogglesSilenceTheirOwnEventOnly)
{
    HubSnapshot before = laptop(false, 50);
    before.internetReachable = true;
    before.primaryInterface = "eth0";
    HubSnapshot after = laptop(true, 50);
    after.internetReachable = false;
    after.wifiAssociated = true;
    after.wifiSSID = "Home";
    EventToggles toggles = allOn;
    toggles.powerSource = false;
    toggles.primaryInterface = false;
    const auto out = changes(before, after, toggles);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].title, "Wi-Fi connected");
    EXPECT_EQ(out[1].title, "No internet connection");
    EXPECT_TRUE(changes(before, after, EventToggles{false, false, false, false, false, false}).empty());
}

TEST(Events, TheEngineComparesWithThePreviousTickAndIsSilentOnTheFirst)
{
    test::HubFixture fixture;
    test::RecordingNotifier notifier;
    RuleEngine engine(fixture.hub, 0, notifier);
    Config config;
    config.rules.clear();
    config.pingHost = "example.org";
    HubSnapshot s;
    s.internetReachable = false;
    engine.evaluate(s, config, 10);
    EXPECT_TRUE(notifier.posts.empty()); // nothing to compare with yet
    s.internetReachable = true;
    engine.evaluate(s, config, 12);
    s.internetReachable = false;
    engine.evaluate(s, config, 14);
    engine.evaluate(s, config, 16);
    EXPECT_EQ(notifier.posts, (std::vector<Notification>{{"Connected to internet", "Internet connectivity restored."},
                                                         {"No internet connection", "Ping to example.org is failing."}}));
}
