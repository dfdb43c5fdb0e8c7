#include "devices/device_models.h"
#include "devices/device_monitor.h"
#include "fake_devices.h"
#include "hub/hub.h"
#include "mcp/mcp_tools.h"
#include "../support/test_support.h"

#include <QSignalSpy>

#include <gtest/gtest.h>

namespace pulsebar {
namespace {

using test::FakeDevices;
using Kind = MobileDeviceAPI::EventKind;
using Pairing = MobileDeviceAPI::Pairing;

QVariantMap map(std::initializer_list<std::pair<const char*, QVariant>> entries)
{
    QVariantMap m;
    for (const auto& [key, value] : entries)
        m.insert(QLatin1String(key), value);
    return m;
}

TEST(DeviceBattery, RegistryTakesTheFirstNumberPresentAndScalesUnits)
{
    const auto b = DeviceBattery::registry(map({
        {"BatteryData", map({{"CycleCount", qint64(512)}, {"DesignCapacity", QString("3227")}})},
        {"CycleCount", qint64(9)},                       // BatteryData wins
        {"DesignCapacity", 3227u},                       // the inner one is text: absent, so this one
        {"NominalChargeCapacity", QString("n/a")},      // not a number: the next key counts
        {"AppleRawMaxCapacity", 2911.0f},
        {"FullChargeCapacity", qint64(1)},
        {"RemainingCapacity", qint64(1500)},
        {"Temperature", qint64(3150)},
        {"AppleRawBatteryVoltage", qint64(4312)},
        {"InstantAmperage", qint64(-450)},
        {"MaximumCapacityPercent", true},               // a boolean is not a number
        {"AdapterDetails", map({{"Watts", 20.0}})},
    }));
    ASSERT_TRUE(b);
    EXPECT_EQ(b->cycleCount, 512);
    EXPECT_EQ(b->designCapacity, 3227);
    EXPECT_EQ(b->maxCapacity, 2911);
    EXPECT_EQ(b->currentCharge, 1500);
    EXPECT_EQ(b->reportedHealth, std::nullopt);
    EXPECT_DOUBLE_EQ(*b->temperature, 31.5);
    EXPECT_DOUBLE_EQ(*b->voltage, 4.312);
    EXPECT_DOUBLE_EQ(*b->amperage, -0.45);
    EXPECT_EQ(b->adapterWatts, 20);
    EXPECT_NEAR(*b->healthPercent(), 2911.0 / 3227.0 * 100.0, 1e-9);

    EXPECT_FALSE(DeviceBattery::registry({}));
    EXPECT_FALSE(DeviceBattery::registry(map({{"Temperature", QString("3150")}})));
    EXPECT_EQ(DeviceBattery::registry(map({{"MaximumCapacityPercent", qint64(87)}}))->healthPercent(), 87.0);
}

TEST(ConnectedDevice, NamesModelsAndSymbols)
{
    struct Case {
        std::optional<QString> name, productType, deviceClass;
        QString displayName, symbol, system;
    };
    const Case cases[] = {
        {"Anna's iPhone", "iPhone15,2", "iPhone", "Anna's iPhone", "iphone", "iOS"},
        {std::nullopt, "iPhone15,2", "iPhone", "iPhone 14 Pro", "iphone", "iOS"},
        {std::nullopt, "iPad16,3", "iPad", "iPad Pro 11-inch (M4)", "ipad", "iPadOS"},
        {QString(), "iPod9,1", "iPod", "iPod touch (7th generation)", "ipodtouch", "iOS"},
        {std::nullopt, "iPhone99,9", std::nullopt, "iPhone", "iphone", "iOS"},
        {std::nullopt, std::nullopt, "Watch", "iPhone", "iphone", "iOS"},
    };
    for (const Case& c : cases) {
        ConnectedDevice d;
        d.name = c.name;
        d.productType = c.productType;
        d.deviceClass = c.deviceClass;
        EXPECT_EQ(d.displayName(), c.displayName);
        EXPECT_EQ(d.symbol(), c.symbol);
        EXPECT_EQ(d.systemName(), c.system);
    }
    EXPECT_EQ(DeviceModels::marketingName("iPhone17,5"), "iPhone 16e");
    EXPECT_EQ(DeviceModels::marketingName("iPad13,18"), "iPad (10th generation)");
    EXPECT_EQ(DeviceModels::parse("# comment\n\nA1,1\tOne \nbroken line\n").value("A1,1"), "One");
}

TEST(ReadDevice, TrustedUntrustedUnreachableAndPartialReads)
{
    FakeDevices world;
    world.devices["phone"] = FakeDevices::phone("Phone", "iPhone14,7");
    world.devices["old"] = FakeDevices::phone("Old", "iPhone9,1");
    world.devices["old"].registry = {{"AppleARMPMUCharger", map({{"IORegistry", map({{"CycleCount", qint64(880)}})}})}};
    world.devices["old"].values.erase({"com.apple.disk_usage", "TotalDiskCapacity"});
    world.devices["relayless"] = FakeDevices::phone("Relayless", "iPhone14,7");
    world.devices["relayless"].relayFails = true;
    world.devices["locked"] = FakeDevices::phone("Locked", "iPhone14,7");
    world.devices["locked"].pairing = Pairing::untrusted;
    world.devices["mute"] = FakeDevices::phone("Mute", "iPhone14,7");
    world.devices["mute"].pairing = Pairing::unreachable;
    const auto api = world.api();

    const auto phone = readDevice(*api, "phone", Connection::wifi);
    ASSERT_TRUE(phone);
    EXPECT_TRUE(phone->trusted);
    EXPECT_EQ(phone->connection, Connection::wifi);
    EXPECT_EQ(phone->name, "Phone");
    EXPECT_EQ(phone->batteryLevel, 81);
    EXPECT_EQ(phone->isCharging, true);
    EXPECT_EQ(phone->fullyCharged, std::nullopt);
    EXPECT_EQ(phone->storageUsed(), 156'000'000'000);
    ASSERT_TRUE(phone->battery);
    EXPECT_DOUBLE_EQ(*phone->battery->healthPercent(), 90.0);

    const auto old = readDevice(*api, "old", Connection::usb);
    EXPECT_EQ(old->battery->cycleCount, 880); // the older registry entry
    EXPECT_EQ(old->storageTotal, std::nullopt);
    EXPECT_EQ(old->storageUsed(), std::nullopt);

    const auto relayless = readDevice(*api, "relayless", Connection::usb);
    EXPECT_TRUE(relayless->trusted);
    EXPECT_EQ(relayless->batteryLevel, 81);
    EXPECT_FALSE(relayless->battery);

    const auto locked = readDevice(*api, "locked", Connection::usb);
    ASSERT_TRUE(locked);
    EXPECT_FALSE(locked->trusted);
    EXPECT_EQ(locked->name, std::nullopt);
    EXPECT_EQ(locked->batteryLevel, std::nullopt);

    EXPECT_FALSE(readDevice(*api, "mute", Connection::usb));
    EXPECT_FALSE(readDevice(*api, "gone", Connection::usb));
    EXPECT_FALSE(readDevice(*world.api(false), "phone", Connection::usb)->battery);
    EXPECT_EQ(world.open, 0) << "every connection, session and service is closed again";
}

class DeviceMonitorTest : public ::testing::Test {
protected:
    FakeDevices world;
    double clock = 1000;
    std::unique_ptr<DeviceMonitor> monitor;

    void start()
    {
        monitor = std::make_unique<DeviceMonitor>(world.api(), [this] { return clock; });
        monitor->startWatching();
        ASSERT_TRUE(monitor->isWatching());
    }
    // Delivers the event from a thread of its own, as the library does, and waits for the reads.
    void send(Kind kind, const QString& id, Connection connection = Connection::usb)
    {
        std::thread([&] { world.send(kind, id, connection); }).join();
        monitor->waitForReads();
    }
    QStringList names() const
    {
        QStringList list;
        for (const ConnectedDevice& d : monitor->devices())
            list << d.displayName() + (d.trusted ? "" : " (untrusted)");
        return list;
    }
};

TEST_F(DeviceMonitorTest, ArrivalsDeparturesAndPairingKeepTheListSortedByName)
{
    world.devices["b"] = FakeDevices::phone("beta", "iPhone14,7");
    world.devices["a"] = FakeDevices::phone("Alpha", "iPhone14,7");
    world.devices["c"] = FakeDevices::phone("Gamma", "iPhone14,7");
    world.devices["c"].pairing = Pairing::untrusted;
    start();
    QSignalSpy changed(monitor.get(), &DeviceMonitor::changed);

    send(Kind::arrived, "b");
    send(Kind::arrived, "a", Connection::wifi);
    send(Kind::arrived, "c");
    EXPECT_EQ(names(), QStringList({"Alpha", "beta", "iPhone (untrusted)"}));
    EXPECT_EQ(changed.count(), 3);

    world.devices["c"].pairing = Pairing::trusted; // the user tapped Trust
    send(Kind::paired, "c");
    EXPECT_EQ(names(), QStringList({"Alpha", "beta", "Gamma"}));

    send(Kind::arrived, "a", Connection::usb); // the Wi-Fi device is plugged in too
    EXPECT_EQ(monitor->devices().front().connection, Connection::usb);
    send(Kind::departed, "a", Connection::usb);
    EXPECT_EQ(monitor->devices().front().connection, Connection::wifi);
    send(Kind::departed, "a", Connection::wifi);
    send(Kind::departed, "nobody");
    EXPECT_EQ(names(), QStringList({"beta", "Gamma"}));
}

TEST_F(DeviceMonitorTest, RefreshRereadsAfterAMinuteAndAFailedReadKeepsTheLastValues)
{
    world.devices["a"] = FakeDevices::phone("Alpha", "iPhone14,7");
    start();
    EXPECT_FALSE(monitor->refreshDue(clock + 3600)) << "nothing attached";
    send(Kind::arrived, "a");
    EXPECT_FALSE(monitor->refreshDue(clock + 59));
    EXPECT_TRUE(monitor->refreshDue(clock + 60));

    world.devices["a"].values[{"com.apple.mobile.battery", "BatteryCurrentCapacity"}] = 55.0;
    monitor->refresh();
    monitor->waitForReads();
    EXPECT_EQ(monitor->devices().front().batteryLevel, 55);

    world.devices["a"].reachable = false;
    monitor->refresh();
    monitor->waitForReads();
    EXPECT_EQ(monitor->devices().front().batteryLevel, 55);

    // A device that never answers is still listed, as one that cannot be read.
    send(Kind::arrived, "ghost");
    EXPECT_EQ(names(), QStringList({"Alpha", "iPhone (untrusted)"}));
}

TEST_F(DeviceMonitorTest, AReadFinishingAfterTheDeviceLeftIsDropped)
{
    world.devices["a"] = FakeDevices::phone("Alpha", "iPhone14,7");
    start();
    std::thread([&] {
        world.send(Kind::arrived, "a");
        world.send(Kind::departed, "a");
    }).join();
    monitor->waitForReads();
    EXPECT_TRUE(monitor->devices().empty());
}

TEST(DeviceMonitor, WithoutALibraryOrARequiredEntryPointThereAreNoDevices)
{
    FakeDevices world;
    auto partial = world.api();
    partial->copyValue = nullptr;
    for (const auto& api : {std::shared_ptr<MobileDeviceAPI>(), partial}) {
        DeviceMonitor monitor(api, [] { return 0.0; });
        monitor.startWatching();
        EXPECT_FALSE(monitor.isAvailable());
        EXPECT_FALSE(monitor.isWatching());
    }
}

TEST(DeviceHub, SubscribesWhenDevicesAreShownAndPublishesArrivalsAtOnce)
{
    test::IsolatedSettings isolated;
    FakeDevices world;
    world.devices["a"] = FakeDevices::phone("Alpha", "iPhone14,7");
    SystemReaders readers = test::fixtureReaders(test::fixture("mcp/sysroot"));
    readers.devices = world.api();
    Hub hub(isolated.settings, std::move(readers));
    hub.start();
    ASSERT_TRUE(hub.devices.isWatching());

    QSignalSpy changed(&hub, &Hub::changed);
    world.send(Kind::arrived, "a");
    ASSERT_TRUE(test::waitUntil([&] { return !hub.snapshot().connectedDevices.empty(); }));
    EXPECT_EQ(changed.count(), 1);

    MCPTools tools(hub);
    const QJsonObject listed = tools.getConnectedDevices();
    EXPECT_EQ(listed, QJsonObject({{"devices", QJsonArray{MCPTools::deviceObject(hub.snapshot().connectedDevices[0])}}}));
    EXPECT_EQ(tools.getOverview().value("connected_devices").toArray().size(), 1);
}

TEST(DeviceHub, AgentsReadTrustedAndUntrustedDevices)
{
    ConnectedDevice tablet = FakeDevices::trustedPhone();
    tablet.connection = Connection::wifi;
    tablet.name.reset();
    tablet.deviceClass = "iPad";
    tablet.productType = "iPad14,8";
    tablet.isCharging = false;
    tablet.storageFree = 40'500'000'000;
    EXPECT_EQ(MCPTools::deviceObject(tablet), QJsonObject({
                                                  {"name", "iPad Air 11-inch (M2)"},
                                                  {"trusted", true},
                                                  {"connection", "Wi-Fi"},
                                                  {"model", "iPad Air 11-inch (M2)"},
                                                  {"software", "iPadOS 18.1"},
                                                  {"battery_percent", 76},
                                                  {"charging", false},
                                                  {"storage_free", "40.5 GB"},
                                                  {"storage_total", "256 GB"},
                                                  {"battery_health_percent", 89.0},
                                                  {"battery_cycle_count", 412},
                                                  {"battery_design_capacity_mah", 3274},
                                                  {"battery_max_capacity_mah", 2914},
                                              }));
    ConnectedDevice untrusted;
    untrusted.batteryLevel = 50; // never shown for a device that does not trust this computer
    EXPECT_EQ(MCPTools::deviceObject(untrusted),
              QJsonObject({{"name", "iPhone"},
                           {"trusted", false},
                           {"connection", "USB"},
                           {"note", "Unlock the device and trust this computer to read battery and storage."}}));
}

} // namespace
} // namespace pulsebar
