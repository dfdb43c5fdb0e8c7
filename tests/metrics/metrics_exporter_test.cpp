#include "hub/hub.h"
#include "metrics/metrics_exporter.h"

#include "../support/test_support.h"

#include <QDir>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <csignal>

using namespace pulsebar;

namespace {

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

// The status and body of GET http://127.0.0.1:PORT/metrics; status 0 when nothing answered.
std::pair<int, QByteArray> get(quint16 port)
{
    QNetworkAccessManager network;
    std::unique_ptr<QNetworkReply> reply(
        network.get(QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1/metrics").arg(port)))));
    test::waitUntil([&] { return reply->isFinished(); }, 10000);
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll()};
}

} // namespace

TEST(MetricsExporter, FollowsItsPreferencesAndReportsWhatStopsIt)
{
    test::IsolatedSettings isolated;
    Preferences& preferences = isolated.preferences;
    Hub hub(isolated.settings, test::fixtureReaders(test::fixture("monitors/sys-basic-1")));
    MetricsExporter exporter(hub, preferences);
    int changes = 0;
    QObject::connect(&exporter, &MetricsExporter::stateChanged, [&] { ++changes; });
    exporter.reload();
    EXPECT_FALSE(exporter.isServing()); // off by default
    EXPECT_EQ(exporter.current().port, MetricsPreferences::defaultPort);
    EXPECT_EQ(exporter.current().address, "127.0.0.1");

    QTcpServer occupied;
    ASSERT_TRUE(occupied.listen(QHostAddress::LocalHost, 0));
    const quint16 port = freePort();
    struct Step {
        QString address;
        quint16 port;
        bool serving;
        QString error;
    } steps[] = {
        {"no-such-address", port, false, QString::fromUtf8("“no-such-address” is not an IP address.")},
        {"127.0.0.1", occupied.serverPort(), false,
         QStringLiteral("Cannot listen on 127.0.0.1 port %1: The bound address is already in use.").arg(occupied.serverPort())},
        {"localhost", port, true, ""},
    };
    MetricsPreferences::setEnabled(preferences, true);
    for (const Step& step : steps) {
        MetricsPreferences::setAddress(preferences, step.address);
        MetricsPreferences::setPort(preferences, step.port);
        const int before = changes;
        exporter.reload();
        EXPECT_GT(changes, before);
        EXPECT_EQ(exporter.isServing(), step.serving) << step.address.toStdString();
        EXPECT_EQ(exporter.serverError(), step.error);
    }
    hub.startHeadless();
    const auto [status, body] = get(port);
    EXPECT_EQ(status, 200); // on the loopback no token is asked for
    EXPECT_TRUE(body.startsWith("# HELP pulsebar_build_info "));
    EXPECT_EQ(body, exporter.exposition(MetricsFormat::prometheusText));

    MetricsPreferences::setEnabled(preferences, false);
    exporter.reload();
    EXPECT_FALSE(exporter.isServing());
    EXPECT_EQ(get(port).first, 0);

    const QString token = MetricsPreferences::ensureToken(preferences);
    EXPECT_EQ(token.size(), 64);
    EXPECT_EQ(MetricsPreferences::ensureToken(preferences), token);
    EXPECT_NE(MetricsPreferences::renewToken(preferences), token);
    preferences.setValue(MetricsPreferences::portKey, 70000);
    EXPECT_EQ(MetricsPreferences::load(preferences).port, MetricsPreferences::defaultPort);
}

TEST(MetricsExporter, WritesTheTextfileAtomicallyOnEveryTick)
{
    test::IsolatedSettings isolated;
    Hub hub(isolated.settings, test::fixtureReaders(test::fixture("monitors/sys-basic-1")));
    MetricsExporter exporter(hub, isolated.preferences);
    const QString folder = isolated.dir.path() + "/textfiles";
    MetricsPreferences::setTextfileDirectory(isolated.preferences, folder);
    exporter.reload();
    hub.startHeadless();
    EXPECT_EQ(exporter.textfileError(), QStringLiteral("Cannot write %1/pulsebar.prom: No such file or directory.").arg(folder));

    ASSERT_TRUE(QDir().mkpath(folder));
    hub.tick();
    EXPECT_EQ(exporter.textfileError(), "");
    EXPECT_EQ(test::readFile(folder + "/pulsebar.prom"), exporter.exposition(MetricsFormat::prometheusText));
    hub.tick();
    EXPECT_TRUE(test::readFile(folder + "/pulsebar.prom").contains(
        "pulsebar_sample_timestamp_seconds " + QByteArray::number(qint64(hub.snapshot().time))));
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList{"pulsebar.prom"}); // no temporary file left
}

TEST(MetricsExporter, TheTrayAppServesWhenTurnedOnInItsPreferences)
{
    QTemporaryDir home;
    const quint16 port = freePort();
    const QString textfiles = home.path() + "/textfiles";
    QDir().mkpath(textfiles);
    test::writeFile(home.path() + "/.config/pulsebar/preferences.json",
                    QJsonDocument(QJsonObject{{"PulsebarConfig.v1", QJsonObject{{"pingHost", "127.0.0.1"}}},
                                              {"metrics.enabled", true},
                                              {"metrics.port", port},
                                              {"metrics.textfileDirectory", textfiles}})
                        .toJson());
    QProcess app;
    QProcessEnvironment env = test::isolatedEnvironment(home.path());
    env.insert("PULSEBAR_SYSROOT", test::fixture("monitors/sys-basic-1"));
    app.setProcessEnvironment(env);
    app.start(test::binaryPath());
    ASSERT_TRUE(app.waitForStarted());

    std::pair<int, QByteArray> answer;
    EXPECT_TRUE(test::waitUntil([&] { return (answer = get(port)).first == 200; }, 30000))
        << app.readAllStandardError().constData();
    EXPECT_TRUE(answer.second.contains("pulsebar_build_info{version=\"" PULSEBAR_VERSION "\"} 1\n"));
    EXPECT_TRUE(test::waitUntil([&] { return QFile::exists(textfiles + "/pulsebar.prom"); }, 10000));
    ::kill(pid_t(app.processId()), SIGTERM);
    ASSERT_TRUE(app.waitForFinished(10000));
    EXPECT_EQ(app.exitCode(), 0);
}
