#include "platform/linux/device_class_listing.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

std::string event(std::initializer_list<std::string_view> fields)
{
    std::string bytes;
    for (std::string_view field : fields) {
        bytes += field;
        bytes += '\0';
    }
    return bytes;
}

} // namespace

TEST(DeviceClassListing, OnlyADeviceOfTheClassComingOrGoingCounts)
{
    const struct {
        const char* what;
        std::string bytes;
        bool counts;
    } cases[] = {
        {"a supply added", event({"add@/devices/LNXSYSTM:00/ACPI0003:00/power_supply/AC", "ACTION=add",
                                  "DEVPATH=/devices/LNXSYSTM:00/ACPI0003:00/power_supply/AC", "SUBSYSTEM=power_supply",
                                  "POWER_SUPPLY_ONLINE=1"}),
         true},
        {"a supply removed", event({"remove@/x", "ACTION=remove", "SUBSYSTEM=power_supply"}), true},
        {"a supply renamed", event({"move@/x", "ACTION=move", "SUBSYSTEM=power_supply"}), true},
        {"a supply's charge changed", event({"change@/x", "ACTION=change", "SUBSYSTEM=power_supply"}), false},
        {"a card added", event({"add@/x", "ACTION=add", "SUBSYSTEM=drm"}), false},
        {"a subsystem whose name starts the same", event({"add@/x", "ACTION=add", "SUBSYSTEM=power_supply_x"}), false},
        // The summary before the first NUL is not a field.
        {"summary only", std::string("add@/devices/power_supply/BAT0"), false},
        {"last field without its NUL", "add@/x" + std::string(1, '\0') + "ACTION=add" + std::string(1, '\0') +
                                           "SUBSYSTEM=power_supply",
         true},
        {"empty", std::string(), false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Uevent::addsOrRemoves(c.bytes, "power_supply"), c.counts) << c.what;
}

TEST(DeviceClassListing, AFixtureFolderIsListedAtEveryReading)
{
    QTemporaryDir root;
    ASSERT_TRUE(QDir(root.path()).mkpath("sys/class/power_supply/BAT0"));
    DeviceClassListing supplies(RootedFileReader(root.path().toStdString()), "sys/class/power_supply");
    EXPECT_EQ(supplies.entries(), std::vector<std::string>{"BAT0"});
    ASSERT_TRUE(QDir(root.path()).mkpath("sys/class/power_supply/AC"));
    EXPECT_EQ(supplies.entries(), (std::vector<std::string>{"AC", "BAT0"}));
}
