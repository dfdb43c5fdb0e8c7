#include "hub/hub.h"
#include "monitors/battery_monitor.h"
#include "platform/linux/power_services.h"
#include "platform/linux/power_supply_reader.h"

#include "../support/test_support.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

BatteryMonitor laptop(const QString& tree)
{
    return BatteryMonitor(
        std::make_unique<PowerSupplyReader>(RootedFileReader(test::fixture("sensors/" + tree).toStdString()), false));
}

} // namespace

TEST(Battery, ChargingWithTheTimeToFullAndHealthFigures)
{
    BatteryMonitor b = laptop("laptop-charging");
    b.sample();
    EXPECT_TRUE(b.present);
    EXPECT_EQ(b.percent, 51);
    EXPECT_TRUE(b.isCharging);
    EXPECT_FALSE(b.isCharged);
    EXPECT_TRUE(b.onAC);
    EXPECT_EQ(b.stateDescription(), "Charging");
    EXPECT_EQ(b.minutesRemaining, 76); // (3900 − 2000) mAh at 1.5 A
    EXPECT_EQ(b.cycleCount, 312);
    EXPECT_EQ(b.designCapacity, 5000);
    EXPECT_EQ(b.maxCapacity, 3900);
    EXPECT_EQ(b.currentCapacity, 2000);
    EXPECT_EQ(b.temperature, 31.2);
    EXPECT_EQ(b.voltage, 12.6);
    EXPECT_EQ(b.amperage, 1.5);
    EXPECT_NEAR(*b.powerDraw(), 18.9, 1e-9);
    EXPECT_DOUBLE_EQ(*b.healthPercent(), 78);
    EXPECT_EQ(b.condition, std::nullopt);
    EXPECT_EQ(b.displayedCondition(), "Service Recommended");
    EXPECT_EQ(b.healthLabel(), "Service Recommended");
    EXPECT_EQ(b.adapterWatts, 65); // the USB-C source: 20 V × 3.25 A
    EXPECT_TRUE(b.cellVoltages.empty());
}

// Each power state: its text, the charge and the time left (3000 mAh at 1.5 A when discharging).
TEST(Battery, StatesOnBatteryAndOnAC)
{
    const struct {
        const char* tree;
        const char* state;
        double percent;
        std::optional<int> minutes;
    } cases[] = {
        {"laptop-discharging", "On battery", 77, 120},
        {"laptop-full", "Charged", 100, std::nullopt},
        {"laptop-not-charging-994", "Not charging", 99.4, std::nullopt},
        {"laptop-not-charging-996", "Charged", 99.6, std::nullopt},
    };
    for (const auto& c : cases) {
        BatteryMonitor b = laptop(c.tree);
        b.sample();
        EXPECT_EQ(b.stateDescription(), c.state) << c.tree;
        EXPECT_DOUBLE_EQ(b.percent, c.percent) << c.tree;
        EXPECT_EQ(b.minutesRemaining, c.minutes) << c.tree;
    }

    BatteryMonitor b = laptop("laptop-discharging");
    b.sample();
    EXPECT_FALSE(b.onAC);
    EXPECT_EQ(b.amperage, -1.5); // reported unsigned, discharging
    EXPECT_NEAR(*b.powerDraw(), -18.9, 1e-9);
    EXPECT_EQ(b.condition, "Good");
    EXPECT_EQ(b.adapterWatts, std::nullopt);
}

TEST(Battery, EnergyUnitsSingleFilesAndAccessories)
{
    BatteryMonitor b = laptop("laptop-energy");
    b.sample();
    ASSERT_TRUE(b.present); // BAT2 is an empty bay; the accessories are not the internal battery
    EXPECT_DOUBLE_EQ(b.percent, 60);
    EXPECT_EQ(b.minutesRemaining, 180); // 30 Wh at 10 W
    EXPECT_EQ(b.designCapacity, 5000);  // 57 Wh at 11.4 V
    EXPECT_EQ(b.maxCapacity, 4386);
    EXPECT_EQ(b.currentCapacity, 2632);
    EXPECT_EQ(b.cycleCount, 48);
    EXPECT_NEAR(*b.amperage, -10.0 / 12.9, 1e-9); // from power over voltage
    EXPECT_EQ(b.temperature, std::nullopt);
    EXPECT_EQ(b.displayedCondition(), "Good");
    EXPECT_EQ(b.healthLabel(), "Normal");

    // Read on the first sample, then every fifteenth: the first "MX Master 3" wins, sorted by name.
    EXPECT_EQ(b.bluetooth, (std::vector<BluetoothBattery>{{"Keyboard K380", 55}, {"MX Master 3", 80}}));
    EXPECT_EQ(b.history.values(), (std::deque<double>{60}));
    for (int i = 0; i < 5; ++i)
        b.sample();
    EXPECT_EQ(b.tick, 6);
    EXPECT_EQ(b.history.size(), 2); // ticks 1 and 6
}

TEST(Battery, BadReadingsFallBackWithoutCrashing)
{
    QTemporaryDir dir;
    const QString bat = dir.path() + "/sys/class/power_supply/BAT0/";
    const auto battery = [&](const QByteArray& uevent) { test::writeFile(bat + "uevent", uevent); };
    BatteryMonitor b(std::make_unique<PowerSupplyReader>(RootedFileReader(dir.path().toStdString()), false));

    // Energy figures but no charge ones, a missing full capacity, a negative voltage, an absurd current.
    battery("POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_CAPACITY=42\n"
            "POWER_SUPPLY_ENERGY_NOW=20000000\nPOWER_SUPPLY_ENERGY_FULL=0\nPOWER_SUPPLY_VOLTAGE_NOW=-5\n"
            "POWER_SUPPLY_CURRENT_NOW=999000000000\nPOWER_SUPPLY_TEMP=9999\nPOWER_SUPPLY_HEALTH=Unknown\n");
    b.sample();
    EXPECT_TRUE(b.present);
    EXPECT_EQ(b.percent, 42);
    EXPECT_FALSE(b.onAC); // no adapter entry: the state says it
    for (const auto& absent : {b.designCapacity, b.maxCapacity, b.currentCapacity}) // energy without the design voltage
        EXPECT_EQ(absent, std::nullopt);
    for (const auto& absent : {b.voltage, b.amperage, b.temperature})
        EXPECT_EQ(absent, std::nullopt);
    EXPECT_EQ(b.condition, std::nullopt);
    EXPECT_EQ(b.minutesRemaining, std::nullopt);
    EXPECT_EQ(b.healthLabel(), "Battery health isn't available for this device.");
    EXPECT_EQ(b.displayedCondition(), std::nullopt);

    // A charge above 100 is capped; without any charge figure the last one stays.
    battery("POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_CAPACITY=104\n");
    b.sample();
    EXPECT_EQ(b.percent, 100);
    EXPECT_TRUE(b.onAC);
    battery("POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Charging\nPOWER_SUPPLY_CHARGE_NOW=100\n");
    b.sample();
    EXPECT_EQ(b.percent, 100);

    // The battery is removed.
    QDir(bat).removeRecursively();
    b.sample();
    EXPECT_FALSE(b.present);
    EXPECT_EQ(b.stateDescription(), "No battery");
    EXPECT_EQ(b.powerDraw(), std::nullopt);
}

TEST(Battery, ServicesOnTheBusAndTheLowPowerProfile)
{
    DBusManagedObjects objects;
    objects[QDBusObjectPath("/org/bluez/hci0")] = {{"org.bluez.Adapter1", {{"Name", "laptop"}}}};
    objects[QDBusObjectPath("/org/bluez/hci0/dev_1")] = {
        {"org.bluez.Device1", {{"Alias", "WH-1000XM4"}, {"Name", "WH-1000XM4 LE"}}},
        {"org.bluez.Battery1", {{"Percentage", QVariant::fromValue<uchar>(70)}}}};
    objects[QDBusObjectPath("/org/bluez/hci0/dev_2")] = {
        {"org.bluez.Device1", {{"Name", "Pencil"}}}, {"org.bluez.Battery1", {{"Percentage", 12}}}};
    objects[QDBusObjectPath("/org/bluez/hci0/dev_3")] = {{"org.bluez.Device1", {{"Alias", "No battery"}}}};
    EXPECT_EQ(PowerServices::bluezBatteries(objects),
              (std::vector<BluetoothBattery>{{"WH-1000XM4", 70}, {"Pencil", 12}}));

    QTemporaryDir dir;
    PowerSupplyReader reader(RootedFileReader(dir.path().toStdString()), false);
    EXPECT_FALSE(reader.lowPowerMode());
    test::writeFile(dir.path() + "/sys/firmware/acpi/platform_profile", "low-power\n");
    EXPECT_TRUE(reader.lowPowerMode());
}

TEST(Battery, AMachineWithoutABatteryReportsNone)
{
    BatteryMonitor b = laptop("bare");
    b.sample();
    EXPECT_FALSE(b.present);
    EXPECT_EQ(b.stateDescription(), "No battery");
    EXPECT_TRUE(b.bluetooth.empty());
    EXPECT_TRUE(b.history.isEmpty());
    EXPECT_FALSE(b.lowPowerMode);
}

TEST(Hub, MenubarTemperaturePrefersTheChosenSensorThenTheCPUThenTheBattery)
{
    QTemporaryDir dir;
    Preferences preferences(dir.path() + "/preferences.json");
    AppSettings settings(preferences);

    {
        test::ScopedEnv root("PULSEBAR_SYSROOT", test::fixture("sensors/hwmon-desktop"));
        Hub hub(settings, systemReaders());
        hub.start();
        ASSERT_TRUE(test::waitUntil([&] { return hub.sensors.isReady; }));
        hub.tick();
        EXPECT_EQ(hub.sensors.sensor("coretemp/temp1")->value, 52);
        EXPECT_EQ(hub.menubarTemperature(), 52);
        Config c = settings.config();
        c.menubarSensorKey = "nvme/temp1";
        settings.setConfig(c);
        EXPECT_EQ(hub.menubarTemperature(), 38.85);
        c.menubarSensorKey = "gone/temp9"; // names no sensor: the CPU's again
        settings.setConfig(c);
        EXPECT_EQ(hub.menubarTemperature(), 52);
    }
    {
        test::ScopedEnv root("PULSEBAR_SYSROOT", test::fixture("sensors/laptop-charging"));
        Hub hub(settings, systemReaders());
        hub.startHeadless();
        ASSERT_TRUE(test::waitUntil([&] { return hub.sensors.isReady; }));
        EXPECT_TRUE(hub.sensors.sensors.empty());
        EXPECT_EQ(hub.menubarTemperature(), 31.2);
    }
    {
        test::ScopedEnv root("PULSEBAR_SYSROOT", test::fixture("sensors/bare"));
        Hub hub(settings, systemReaders());
        hub.start();
        ASSERT_TRUE(test::waitUntil([&] { return hub.sensors.isReady; }));
        hub.tick();
        EXPECT_EQ(hub.menubarTemperature(), std::nullopt);
        EXPECT_FALSE(hub.battery.present);
    }
}
