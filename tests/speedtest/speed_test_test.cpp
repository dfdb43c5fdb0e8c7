#include "responsiveness_server.h"
#include "speedtest/speed_test.h"

#include "../support/test_support.h"

#include <QFile>
#include <QJsonArray>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using namespace pulsebar;
using namespace pulsebar::test;
using Kind = SpeedTest::State::Kind;

TEST(SpeedTestReport, BitsBecomeBytesAndOptionalMembersStayOptional)
{
    const QDateTime now = QDateTime::fromSecsSinceEpoch(1772716000, Qt::UTC);
    auto parse = [&](const char* json) { return SpeedTest::parse(json, now); };

    const auto full = parse(R"({"dl_throughput": 80000000, "ul_throughput": 8000000, "responsiveness": 640,
        "base_rtt": 21.5, "interface_name": "wlan0", "dl_bytes_transferred": 3e8, "ul_bytes_transferred": 4e7})");
    ASSERT_TRUE(full);
    EXPECT_EQ(full->download, 10000000);
    EXPECT_EQ(full->upload, 1000000);
    EXPECT_EQ(full->responsiveness, 640);
    EXPECT_EQ(full->baseRTT, 21.5);
    EXPECT_EQ(full->interface, "wlan0");
    EXPECT_EQ(full->dataUsed, 3.4e8);
    EXPECT_EQ(full->date, now);

    const auto bare = parse(R"({"dl_throughput": 8, "ul_throughput": 0, "dl_bytes_transferred": 1234})");
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->dataUsed, 1234); // only the download's bytes
    EXPECT_FALSE(bare->responsiveness || bare->baseRTT || bare->interface);
    EXPECT_FALSE(parse(R"({"dl_throughput": 8, "ul_throughput": 8})")->dataUsed);

    for (const char* broken : {R"({"dl_throughput": 80000000})", R"({"dl_throughput": "8", "ul_throughput": 8})",
                               R"({"error": "timed out"})", "[1]", "", "Downlink: 80 Mbps"})
        EXPECT_FALSE(parse(broken)) << broken;
}

namespace {

class SpeedTestRun : public ::testing::Test {
protected:
    QTemporaryDir dir;
    Preferences preferences{dir.filePath("preferences.json")};

    // A measurement that is a shell script.
    SpeedTest::Command script(const QString& body) { return {"/bin/sh", {"-c", body}}; }

    static QString report(double downloadBits)
    {
        return QStringLiteral(R"(echo '{"dl_throughput": %1, "ul_throughput": 8000, "responsiveness": 900}')")
            .arg(downloadBits);
    }

    void runToEnd(SpeedTest& test)
    {
        test.start();
        ASSERT_TRUE(waitUntil([&] { return test.state().kind != Kind::running; }, 20000));
    }
};

} // namespace

TEST_F(SpeedTestRun, ResultsAreSavedNewestFirstAndTheEleventhDropsTheOldest)
{
    QJsonArray ten;
    for (int i = 0; i < 10; ++i)
        ten.append(QJsonObject{{"date", QDateTime::fromSecsSinceEpoch(1772700000 - i * 3600, Qt::UTC).toString(Qt::ISODate)},
                               {"download", 1000.0 * (i + 1)}, {"upload", 10.0}});
    preferences.setValue(SpeedTest::preferencesKey, ten);

    SpeedTest test(preferences, script(report(800)));
    ASSERT_EQ(test.results().size(), 10u);
    runToEnd(test);
    EXPECT_EQ(test.state().kind, Kind::idle);
    ASSERT_EQ(test.results().size(), 10u);
    EXPECT_EQ(test.results().front().download, 100);
    EXPECT_EQ(test.results().back().download, 9000); // the oldest (10000) is gone

    // What was saved is what a new object (the next launch, or the MCP server) reads.
    const std::vector<SpeedTestResult> saved = SpeedTest::decode(preferences.value(SpeedTest::preferencesKey));
    ASSERT_EQ(saved.size(), 10u);
    for (size_t i = 0; i < saved.size(); ++i) {
        EXPECT_EQ(saved[i].download, test.results()[i].download);
        EXPECT_EQ(saved[i].date, test.results()[i].date);
    }
    EXPECT_EQ(saved.front().responsiveness, 900);
}

TEST_F(SpeedTestRun, FailuresSayWhyAndLeaveTheListAlone)
{
    preferences.setValue(SpeedTest::preferencesKey, QJsonArray{QJsonObject{
        {"date", "2026-03-05T13:06:40Z"}, {"download", 1.0}, {"upload", 2.0}}});
    const QByteArray before = readFile(preferences.path());
    QFile notRunnable(dir.filePath("no-interpreter"));
    notRunnable.open(QIODevice::WriteOnly);
    notRunnable.write("#!/nonexistent/interpreter\n");
    notRunnable.close();
    notRunnable.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    struct Row {
        SpeedTest::Command command;
        Kind kind;
        const char* message;
    } rows[] = {
        {script(R"(echo '{"error": "no route"}'; exit 1)"), Kind::failed, "The test failed. Check your connection."},
        {script(R"(echo '{"dl_throughput": 80000000}')"), Kind::failed, "The test returned no result."},
        {script(R"(echo '{"dl_throughput": 80000000}'; exit 3)"), Kind::failed, "The test failed. Check your connection."},
        {script("kill -TERM $$"), Kind::idle, ""}, // ended by a signal: cancelled
        {{notRunnable.fileName(), {}}, Kind::failed, "Couldn't start the test."},
    };
    for (Row& row : rows) {
        SpeedTest test(preferences, row.command);
        runToEnd(test);
        EXPECT_EQ(test.state().kind, row.kind) << row.message;
        EXPECT_EQ(test.state().message, row.message);
        EXPECT_EQ(test.results().size(), 1u);
        EXPECT_EQ(readFile(preferences.path()), before) << row.message;
    }

    // A failed test starts again; a missing program starts nothing.
    SpeedTest again(preferences, script(R"(exit 1)"));
    runToEnd(again);
    runToEnd(again);
    EXPECT_EQ(again.state().kind, Kind::failed);
    SpeedTest missing(preferences, {dir.filePath("absent"), {}});
    missing.start();
    EXPECT_EQ(missing.state().kind, Kind::idle);
}

TEST_F(SpeedTestRun, RunningTicksEveryHalfSecondIgnoresAStartAndCancelsToIdle)
{
    preferences.setValue(SpeedTest::preferencesKey, "not a list");
    SpeedTest test(preferences, script("sleep 30"));
    EXPECT_TRUE(test.results().empty());
    QSignalSpy changed(&test, &SpeedTest::changed);
    test.start();
    ASSERT_EQ(test.state().kind, Kind::running);
    const QDateTime started = test.state().started;
    EXPECT_LE(started.secsTo(QDateTime::currentDateTime()), 1);
    waitUntil([&] { return changed.count() >= 4; }, 5000);
    EXPECT_GE(changed.count(), 4); // the start, then one per half second
    test.start();
    EXPECT_EQ(test.state().started, started);

    test.cancel();
    ASSERT_TRUE(waitUntil([&] { return test.state().kind != Kind::running; }));
    EXPECT_EQ(test.state().kind, Kind::idle);
    EXPECT_TRUE(test.results().empty());
    const int after = changed.count();
    QTest::qWait(1200);
    EXPECT_EQ(changed.count(), after); // the timer stopped with the test
}

// The real measurement as the child: a result from the loopback server, and a dead server's failure.
TEST_F(SpeedTestRun, RunsOurOwnMeasurement)
{
    ResponsivenessServer server({true, 1000000, 20});
    ASSERT_TRUE(server.running());
    ScopedEnv ca("PULSEBAR_SPEEDTEST_CA", server.certificate());
    ScopedEnv url("PULSEBAR_SPEEDTEST_URL", server.configUrl().toString());
    SpeedTest test(preferences, {binaryPath(), {"--network-quality", "-c", "-M", "8"}});
    runToEnd(test);
    ASSERT_EQ(test.state().kind, Kind::idle) << qPrintable(test.state().message);
    ASSERT_EQ(test.results().size(), 1u);
    const SpeedTestResult& result = test.results().front();
    EXPECT_NEAR(result.download, 1000000, 250000);
    EXPECT_GT(result.upload, 0);
    EXPECT_EQ(result.interface, "lo");
    EXPECT_TRUE(result.responsiveness && result.baseRTT && result.dataUsed);

    ResponsivenessServer silent({true, 1000000, 0, "silent"});
    ScopedEnv silentUrl("PULSEBAR_SPEEDTEST_URL", silent.configUrl().toString());
    ScopedEnv silentCa("PULSEBAR_SPEEDTEST_CA", silent.certificate());
    SpeedTest failing(preferences, {binaryPath(), {"--network-quality", "-c", "-M", "2"}});
    runToEnd(failing);
    EXPECT_EQ(failing.state().kind, Kind::failed);
    EXPECT_EQ(failing.state().message, "The test failed. Check your connection.");
    EXPECT_EQ(failing.results().size(), 1u);
}
