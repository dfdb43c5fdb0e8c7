#include "responsiveness_server.h"
#include "speedtest/network_quality_method.h"

#include "../support/test_support.h"

#include <QElapsedTimer>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <cmath>

using namespace pulsebar;
using namespace pulsebar::NetworkQualityMethod;
using namespace pulsebar::test;

TEST(NetworkQualityMethod, ServerConfigurations)
{
    const QUrl at("https://nq.example/api/config");
    struct Row {
        const char* json;
        const char* large; // empty: rejected
        const char* endpoint;
    } rows[] = {
        {R"({"urls":{"large_download_url":"https://a.example/large","small_download_url":"https://a.example/small",
             "upload_url":"https://a.example/up"},"test_endpoint":"edge7.example"})",
         "https://a.example/large", "edge7.example"},
        // The member names macOS's tool reads, relative addresses resolved against the configuration's.
        {R"({"urls":{"large_https_download_url":"/gm/large","small_https_download_url":"/gm/small",
             "https_upload_url":"/gm/slurp"}})",
         "https://nq.example/gm/large", "nq.example"},
        {R"({"urls":{"large_download_url":"https://a.example/large"}})", "", ""},
        {R"({"urls":{"large_download_url":"ftp://a/l","small_download_url":"ftp://a/s","upload_url":"ftp://a/u"}})", "", ""},
        {"<html>busy</html>", "", ""},
        {"[1,2]", "", ""},
    };
    for (const Row& row : rows) {
        QString error;
        const auto config = parseServerConfig(row.json, at, &error);
        if (*row.large == '\0') {
            EXPECT_FALSE(config) << row.json;
            EXPECT_FALSE(error.isEmpty());
            continue;
        }
        ASSERT_TRUE(config) << row.json << qPrintable(error);
        EXPECT_EQ(config->largeDownload.toString(), row.large);
        EXPECT_EQ(config->testEndpoint, row.endpoint);
    }
}

TEST(NetworkQualityMethod, TrimmedMeansAndRoundTripsPerMinute)
{
    std::vector<double> twenty;
    for (int i = 1; i <= 20; ++i)
        twenty.push_back(i);
    EXPECT_DOUBLE_EQ(*trimmedMean(twenty), 10.0); // the slowest 5 % (20) left out
    EXPECT_FALSE(trimmedMean({}));

    // Foreign kinds average to 20 ms and weigh one half, self probes at 40 ms the other: 30 ms.
    EXPECT_DOUBLE_EQ(*responsivenessRpm({{10}, {20}, {30}, {40}}), 2000.0);
    // Over plain HTTP there is no TLS handshake; the other two foreign kinds carry the foreign half.
    EXPECT_DOUBLE_EQ(*responsivenessRpm({{10}, {}, {30}, {40}}), 2000.0);
    EXPECT_DOUBLE_EQ(*responsivenessRpm({{}, {}, {}, {120}}), 500.0);
    EXPECT_FALSE(responsivenessRpm({}));
    EXPECT_EQ(responsivenessGrade(299), "Low");
    EXPECT_EQ(responsivenessGrade(300), "Medium");
    EXPECT_EQ(responsivenessGrade(1000), "High");

    EXPECT_FALSE(isStable({100, 100, 100}));
    EXPECT_TRUE(isStable({10, 100, 98, 103, 100}));
    EXPECT_FALSE(isStable({100, 100, 90, 100}));
}

namespace {

struct MeasuredRun {
    RunResult result;
    qint64 elapsedMs = 0;
    QJsonObject report;
};

MeasuredRun measure(const ResponsivenessServer& server, const QStringList& arguments, bool tls = true)
{
    QTemporaryDir home;
    QProcessEnvironment env;
    env.insert("PULSEBAR_SPEEDTEST_URL", server.configUrl().toString());
    // OpenSSL keeps per-thread state that it only frees in its own exit handlers, which the sanitizer's
    // leak check runs before; the measurement's figures are what this test is about.
    env.insert("ASAN_OPTIONS", "detect_leaks=0");
    if (tls)
        env.insert("PULSEBAR_SPEEDTEST_CA", server.certificate());
    QElapsedTimer clock;
    clock.start();
    MeasuredRun run{runPulsebar(QStringList{"--network-quality"} + arguments, home.path(), {}, env, 60000), 0, {}};
    run.elapsedMs = clock.elapsed();
    run.report = QJsonDocument::fromJson(run.result.out).object();
    return run;
}

// What starting and ending the executable costs on this machine, so a bound on the run can be checked.
qint64 processOverheadMs()
{
    QTemporaryDir home;
    QElapsedTimer clock;
    clock.start();
    runPulsebar({"--version"}, home.path());
    return clock.elapsed();
}

bool within(double value, double expected, double fraction)
{
    return std::abs(value - expected) <= expected * fraction;
}

} // namespace

// Over HTTP/2 with TLS, then over plain HTTP/1.1, against a server of known rate and added delay.
TEST(NetworkQualityRun, MeasuresTheServersRateAndDelay)
{
    const int delayMs = 200;
    const int bytesPerSecond = 1000000;
    const int seconds = 14;
    for (const bool tls : {true, false}) {
        ResponsivenessServer server({tls, bytesPerSecond, delayMs});
        ASSERT_TRUE(server.running()) << "node and openssl are needed";
        // A machine busy with other work can starve client and server for seconds at a time; one of
        // three runs must then agree.
        MeasuredRun run;
        for (int attempt = 0; attempt < 3; ++attempt) {
            run = measure(server, {"-c", "-M", QString::number(seconds)}, tls);
            if (within(run.report["dl_throughput"].toDouble(), bytesPerSecond * 8.0, 0.10))
                break;
        }
        ASSERT_EQ(run.result.exitCode, 0) << run.result.out.constData() << run.result.err.constData();
        const QJsonObject& report = run.report;
        for (const char* member : {"dl_throughput", "ul_throughput", "dl_bytes_transferred", "ul_bytes_transferred",
                                   "responsiveness", "base_rtt", "interface_name", "dl_flows", "ul_flows",
                                   "start_date", "end_date", "test_endpoint"})
            EXPECT_TRUE(report.contains(member)) << member;
        EXPECT_NEAR(report["dl_throughput"].toDouble(), bytesPerSecond * 8.0, bytesPerSecond * 0.8) << tls;
        // Upload is paced by the server's window updates, so a starved machine reads it low; it can read
        // above the server's rate only by what each flow's window and the server's quarter-second burst
        // let through at the start (about a fifth of the rate over the few seconds of a loaded run).
        // Over HTTP/1.1, which has no flow control of its own, the kernel's socket buffers count as sent
        // and only its presence is checked.
        if (tls) {
            EXPECT_LE(report["ul_throughput"].toDouble(), bytesPerSecond * 8.0 * 1.25);
            EXPECT_GE(report["ul_throughput"].toDouble(), bytesPerSecond * 8.0 * 0.25);
        }
        EXPECT_GT(report["ul_throughput"].toDouble(), 0);
        EXPECT_NEAR(report["base_rtt"].toDouble(), delayMs, delayMs * 0.2) << tls;
        // Every probe's HTTP part waits for the delay: at least half of each probe round trip is that delay.
        EXPECT_GT(report["responsiveness"].toDouble(), 0);
        EXPECT_LE(report["responsiveness"].toDouble(), 60000.0 / (delayMs / 2.0));
        EXPECT_GE(report["dl_flows"].toInt(), 1);
        EXPECT_LE(report["dl_flows"].toInt(), 16);
        EXPECT_GT(report["dl_bytes_transferred"].toDouble(), bytesPerSecond);
        EXPECT_EQ(report["interface_name"].toString(), "lo");
        EXPECT_EQ(report["test_endpoint"].toString(), "loopback.test");
        EXPECT_LE(run.elapsedMs - processOverheadMs(), seconds * 1000 + 1000) << tls;
    }
}

TEST(NetworkQualityFailure, EndsWithAnErrorObjectAndANonZeroStatus)
{
    struct Row {
        const char* mode;
        const char* error; // the start of the message
    } rows[] = {
        {"silent", "The test server did not answer within 3 seconds."},
        {"garbage", "The test configuration is not a JSON object."},
        {"refused", "Couldn't read the test configuration from"},
    };
    for (const Row& row : rows) {
        const bool refused = QByteArray(row.mode) == "refused";
        ResponsivenessServer server({true, 100000, 0, refused ? "normal" : row.mode});
        ASSERT_TRUE(server.running());
        QUrl url = server.configUrl();
        if (refused) // a port that was just free: nothing listens there
            url.setPort(1);
        QTemporaryDir home;
        QProcessEnvironment env;
        env.insert("PULSEBAR_SPEEDTEST_URL", url.toString());
        env.insert("PULSEBAR_SPEEDTEST_CA", server.certificate());
        QElapsedTimer clock;
        clock.start();
        const RunResult result = runPulsebar({"--network-quality", "-c", "-M", "3"}, home.path(), {}, env);
        const qint64 elapsed = clock.elapsed();
        EXPECT_NE(result.exitCode, 0) << row.mode;
        const QJsonObject report = QJsonDocument::fromJson(result.out).object();
        EXPECT_TRUE(report["error"].toString().startsWith(row.error)) << row.mode << ": " << result.out.constData();
        EXPECT_FALSE(report.contains("dl_throughput"));
        // -M's own bound is checked on the full run above; here, that a dead server cannot hold the run.
        EXPECT_LE(elapsed - processOverheadMs(), 3000 + 5000) << row.mode;
    }

    // Without -c the message goes to standard error as a sentence.
    QTemporaryDir home;
    QProcessEnvironment env;
    env.insert("PULSEBAR_SPEEDTEST_URL", "http://127.0.0.1:1/config");
    const RunResult plain = runPulsebar({"--network-quality", "-M", "2"}, home.path(), {}, env);
    EXPECT_NE(plain.exitCode, 0);
    EXPECT_TRUE(plain.out.isEmpty());
    EXPECT_TRUE(plain.err.contains("Connection refused")) << plain.err.constData();
    const RunResult badLimit = runPulsebar({"--network-quality", "-M", "soon"}, home.path(), {}, env);
    EXPECT_NE(badLimit.exitCode, 0);
    EXPECT_TRUE(badLimit.err.contains("-M needs a whole number of seconds")) << badLimit.err.constData();
}
