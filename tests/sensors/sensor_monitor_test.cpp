#include "monitors/sensor_monitor.h"
#include "platform/linux/hwmon_sensor_source.h"

#include "../support/test_support.h"
#include "catalogue_text.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

std::shared_ptr<HwmonSensorSource> hwmon(const QString& root)
{
    return std::make_shared<HwmonSensorSource>(RootedFileReader(root.toStdString()));
}

// A copy of a fixture tree that a test may change.
QString copyTree(const QString& from, const QString& to)
{
    QDir source(from);
    for (const QString& entry : source.entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden)) {
        const QString path = source.filePath(entry);
        if (QFileInfo(path).isDir())
            copyTree(path, to + "/" + entry);
        else
            test::writeFile(to + "/" + entry, test::readFile(path));
    }
    return to;
}

} // namespace

TEST(SensorNaming, TemperatureKeysByPrefix)
{
    const std::pair<const char*, const char*> names[] = {
        {"TC0P", "CPU Proximity"}, {"TC1C", "CPU Core"}, {"TCXC", "CPU Die"}, // the third character is not a digit
        {"TC0D", "CPU Die"}, {"Te05", "CPU Efficiency Core"}, {"TG0D", "GPU"}, {"TH0a", "SSD"}, {"TW0P", "Wi-Fi"},
        {"TI0P", "Thunderbolt"}, {"TZ0P", "Sensor TZ0P"}};
    for (const auto& [key, name] : names)
        EXPECT_EQ(describeTemperature(key).name, name) << key;
    EXPECT_EQ(describeTemperature("TZ0P").group, SensorGroup::other);
    EXPECT_EQ(describeTemperature("Ts0S").group, SensorGroup::system);
    EXPECT_EQ(describeTemperature("Tm0P").group, SensorGroup::memory);

    EXPECT_FALSE(isPlausible(SensorKind::temperature, 5.0));
    EXPECT_TRUE(isPlausible(SensorKind::temperature, 5.01));
    EXPECT_FALSE(isPlausible(SensorKind::temperature, 125.0));
    EXPECT_TRUE(isPlausible(SensorKind::power, 0.0));
    EXPECT_FALSE(isPlausible(SensorKind::power, 1000.0));
    EXPECT_FALSE(isPlausible(SensorKind::voltage, -0.1));
}

TEST(HwmonSensors, MapsADesktopsChipsIntoTheCatalogue)
{
    SensorMonitor monitor(hwmon(test::fixture("sensors/hwmon-desktop")));
    monitor.discoverNow();
    ASSERT_TRUE(monitor.isReady);
    // Out of range: nvme Sensor 2 (-273 °C), coretemp Core 2 (0) and Core 3 (125); Core 4 cannot be read.
    // Repeated names are numbered in key order; the second NVMe drive gets its own key; the thermal
    // zone is not used because hwmon has temperatures.
    EXPECT_EQ(catalogueText(monitor.sensors), QStringList({
                                             "acpitz/temp1=acpitz 1=system=27.8",
                                             "acpitz/temp2=acpitz 2=system=29.8",
                                             "amdgpu/in0=vddgfx=power=0.8",
                                             "amdgpu/power1=PPT=power=15",
                                             "amdgpu/temp1=edge=gpu=45",
                                             "amdgpu/temp2=junction=gpu=47",
                                             "amdgpu/temp3=mem=gpu=50",
                                             "coretemp/temp1=Package id 0=cpu=52",
                                             "coretemp/temp2=Core 0=cpu=48",
                                             "coretemp/temp3=Core 1=cpu=50",
                                             "iwlwifi_1/temp1=Wi-Fi=system=40",
                                             "nvme-2/temp1=Composite 1=storage=41.85",
                                             "nvme/temp1=Composite 2=storage=38.85",
                                             "nvme/temp2=Sensor 1=storage=38.85",
                                         }));
    EXPECT_EQ(monitor.sensor("amdgpu/in0")->kind, SensorKind::voltage);
    EXPECT_EQ(monitor.sensor("amdgpu/power1")->kind, SensorKind::power);
    EXPECT_EQ(monitor.fanCount, 2);

    monitor.sample();
    ASSERT_EQ(monitor.fans.size(), 2u);
    EXPECT_EQ(monitor.fans[0], (Fan{0, 1200, 0, 3300})); // amdgpu (hwmon3) before thinkpad (hwmon5)
    EXPECT_EQ(monitor.fans[1], (Fan{1, 2400, 0, 0}));
    EXPECT_EQ(monitor.fanHistory.last(), 2400);

    const auto cpu = monitor.summary(SensorGroup::cpu);
    ASSERT_TRUE(cpu);
    EXPECT_DOUBLE_EQ(cpu->average, 50);
    EXPECT_EQ(cpu->maximum, 52);
    EXPECT_EQ(monitor.cpuTemperature(), 52);
    EXPECT_EQ(monitor.temperatures(SensorGroup::gpu).size(), 3u);
    EXPECT_TRUE(monitor.temperatures(SensorGroup::power).empty()); // power sensors are not temperatures
    EXPECT_EQ(monitor.summary(SensorGroup::memory), std::nullopt);
    EXPECT_EQ(monitor.sensor("nope"), std::nullopt);
}

TEST(HwmonSensors, ValuesPeaksTrailsAndFailedReadsAcrossSamples)
{
    QTemporaryDir dir;
    const QString root = copyTree(test::fixture("sensors/hwmon-desktop"), dir.path());
    const QString core0 = root + "/sys/class/hwmon/hwmon2/temp2_input";
    SensorMonitor monitor(hwmon(root));
    monitor.discoverNow();

    monitor.sample();
    test::writeFile(core0, "71000\n");
    monitor.sample();
    test::writeFile(core0, "64000\n");
    monitor.sample();
    EXPECT_EQ(monitor.sensor("coretemp/temp2")->value, 64);
    EXPECT_EQ(monitor.sensor("coretemp/temp2")->peak, 71);
    EXPECT_EQ(monitor.histories["coretemp/temp2"].values(), (std::deque<double>{48, 71, 64}));
    EXPECT_EQ(monitor.cpuTemperature(), 64);

    // A file that fails to read (the driver answers EIO; here it is gone) keeps the last value.
    QFile::remove(core0);
    QDir(root + "/sys/class/hwmon/hwmon5").removeRecursively(); // the fan chip goes away
    monitor.sample();
    EXPECT_EQ(monitor.sensor("coretemp/temp2")->value, 64);
    EXPECT_EQ(monitor.histories["coretemp/temp2"].size(), 3);
    ASSERT_EQ(monitor.fans.size(), 2u);
    EXPECT_EQ(monitor.fans[1].rpm, 2400);
}

// A reading no fan can give is a failed read: the fan keeps its last speed; a bogus limit is no limit.
// A label of any length is cut to a name's length.
TEST(HwmonSensors, ReadingsOutsidePhysicalBoundsAreFailedReads)
{
    QTemporaryDir dir;
    const QString root = copyTree(test::fixture("sensors/hwmon-desktop"), dir.path());
    const QString fan = root + "/sys/class/hwmon/hwmon3/fan1_";
    test::writeFile(root + "/sys/class/hwmon/hwmon2/temp2_label", QByteArray(100000, 'x'));
    SensorMonitor monitor(hwmon(root));
    monitor.discoverNow();
    EXPECT_EQ(monitor.sensor("coretemp/temp2")->name.size(), SysText::maxNameLength);
    monitor.sample();
    ASSERT_EQ(monitor.fans[0].rpm, 1200);
    for (const char* bad : {"-1\n", "99999999999999999999\n", "250000\n"}) {
        test::writeFile(fan + "input", bad);
        monitor.sample();
        EXPECT_EQ(monitor.fans[0].rpm, 1200) << bad;
    }
    test::writeFile(fan + "input", "1500\n");
    test::writeFile(fan + "min", "-5\n");
    monitor.sample();
    EXPECT_EQ(monitor.fans[0], (Fan{0, 1500, 0, 3300}));
}

TEST(HwmonSensors, ThermalZonesStandInWithoutHwmonTemperatures)
{
    SensorMonitor monitor(hwmon(test::fixture("sensors/thermal-only")));
    monitor.discoverNow();
    EXPECT_EQ(catalogueText(monitor.sensors), QStringList({
                                             "thermal_zone0=cpu-thermal=cpu=55",
                                             "thermal_zone1=gpu-thermal=other=51",
                                         }));
    EXPECT_EQ(monitor.fanCount, 1);
}

TEST(HwmonSensors, TheAppleSMCChipIsNamedByItsKeys)
{
    SensorMonitor monitor(hwmon(test::fixture("sensors/applesmc-hwmon")));
    monitor.discoverNow();
    EXPECT_EQ(catalogueText(monitor.sensors), QStringList({
                                             "TA0P=Ambient=system=27",
                                             "TB0T=Battery=battery=30.5",
                                             "TC0P=CPU Proximity=cpu=50.5",
                                             "Tp01=CPU Performance Core 1=cpu=65",
                                             "Tp05=CPU Performance Core 2=cpu=67.5",
                                         }));
    monitor.sample();
    ASSERT_EQ(monitor.fans.size(), 2u);
    EXPECT_EQ(monitor.fans[1], (Fan{1, 1900, 2000, 6000}));
}

TEST(SensorMonitor, CPUTemperatureFallsBackToTheHottestSensor)
{
    std::vector<Sensor> candidates{
        {"nvme/temp1", "Composite", SensorGroup::storage, SensorKind::temperature, 44},
        {"amdgpu/temp1", "edge", SensorGroup::gpu, SensorKind::temperature, 61},
        {"amdgpu/power1", "PPT", SensorGroup::power, SensorKind::power, 90},
    };
    class Fixed : public SensorSource {
    public:
        explicit Fixed(std::vector<Sensor> c) : m_c(std::move(c)) {}
        std::vector<Sensor> discover() override { return m_c; }
        int fanCount() override { return 0; }
        std::optional<double> read(const QString&) override { return std::nullopt; }
        std::optional<Fan> readFan(int) override { return std::nullopt; }
        std::vector<Sensor> m_c;
    };
    SensorMonitor monitor(std::make_shared<Fixed>(candidates));
    monitor.discoverNow();
    EXPECT_EQ(monitor.cpuTemperature(), 61); // the 90 W reading is not a temperature

    SensorMonitor empty(std::make_shared<Fixed>(std::vector<Sensor>{}));
    empty.discoverNow();
    EXPECT_EQ(empty.cpuTemperature(), std::nullopt);
    empty.sample();
    EXPECT_TRUE(empty.fans.empty());
    EXPECT_TRUE(empty.fanHistory.isEmpty());
}

TEST(SensorMonitor, DiscoveryRunsInTheBackgroundAndPublishesOnTheMainThread)
{
    SensorMonitor monitor(hwmon(test::fixture("sensors/hwmon-desktop")));
    QSignalSpy ready(&monitor, &SensorMonitor::ready);
    monitor.sample(); // before discovery: nothing happens
    EXPECT_TRUE(monitor.fans.empty());
    monitor.start();
    monitor.start(); // once only
    // The result comes back through the event loop, so it cannot have arrived yet.
    EXPECT_FALSE(monitor.isReady);
    ASSERT_TRUE(test::waitUntil([&] { return monitor.isReady; }));
    EXPECT_EQ(ready.count(), 1);
    EXPECT_EQ(monitor.sensors.size(), 14u);

    // A monitor destroyed while discovering waits for it and drops the late result.
    auto early = std::make_unique<SensorMonitor>(hwmon(test::fixture("sensors/hwmon-desktop")));
    early->start();
    early.reset();
    test::waitUntil([] { return false; }, 50);
}

// A tool that needs the catalogue takes the background result as soon as it exists, without turning
// the event loop; the hand-off queued for the main thread then publishes nothing a second time.
TEST(SensorMonitor, AwaitingDiscoveryTakesTheBackgroundResultOnce)
{
    SensorMonitor monitor(hwmon(test::fixture("sensors/hwmon-desktop")));
    QSignalSpy ready(&monitor, &SensorMonitor::ready);
    monitor.start();
    ASSERT_TRUE(monitor.awaitDiscovery(10000));
    EXPECT_EQ(monitor.sensors.size(), 14u);
    QCoreApplication::processEvents();
    EXPECT_EQ(ready.count(), 1);

    SensorMonitor never(hwmon(test::fixture("sensors/hwmon-desktop")));
    EXPECT_TRUE(never.awaitDiscovery(0)); // not started: discovered on the spot
}

TEST(SensorMonitor, AMachineWithoutSensorsReportsNone)
{
    SensorMonitor monitor(hwmon(test::fixture("sensors/bare")));
    monitor.discoverNow();
    monitor.sample();
    EXPECT_TRUE(monitor.isReady);
    EXPECT_TRUE(monitor.sensors.empty());
    EXPECT_TRUE(monitor.fans.empty());
}
