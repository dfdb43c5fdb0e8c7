#include "platform/linux/imobiledevice.h"
#include "../support/test_support.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace pulsebar {
namespace {

TEST(LibIMobileDevice, AMissingLibraryGivesNoTable)
{
    EXPECT_FALSE(loadMobileDeviceAPI("libpulsebar-no-such-library.so.1", "libplist-2.0.so.3"));
    EXPECT_FALSE(loadMobileDeviceAPI("libimobiledevice-1.0.so.6", "libpulsebar-no-such-library.so.1"));
    // A library without the device entry points (libplist itself) is no device library.
    EXPECT_FALSE(loadMobileDeviceAPI("libplist-2.0.so.3", "libplist-2.0.so.3"));
}

// The installed library with no usbmuxd running: an agent sees no devices, and nothing is printed.
TEST(LibIMobileDevice, WithoutUsbmuxdThereAreNoDevicesAndNoOutput)
{
    const auto api = systemMobileDeviceAPI();
    ASSERT_TRUE(api) << "scripts/setup installs libimobiledevice6";
    EXPECT_TRUE(api->hasRequired());
    EXPECT_TRUE(api->canReadBatteryHealth());
    if (QFileInfo::exists("/var/run/usbmuxd"))
        GTEST_SKIP() << "usbmuxd is running on this machine";

    QTemporaryDir home;
    const test::RunResult run = test::runPulsebar(
        {"--mcp"}, home.path(),
        "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\",\"params\":{\"protocolVersion\":\"2025-06-18\"}}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"tools/call\",\"params\":{\"name\":\"get_connected_devices\"}}\n");
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, QByteArray());
    const QList<QByteArray> lines = run.out.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 2);
    const QJsonObject result = QJsonDocument::fromJson(lines[1]).object().value("result").toObject();
    const QString text = result.value("content").toArray().at(0).toObject().value("text").toString();
    EXPECT_EQ(QJsonDocument::fromJson(text.toUtf8()).object(), QJsonObject({{"devices", QJsonArray()}}));
}

} // namespace
} // namespace pulsebar
