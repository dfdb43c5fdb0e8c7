// The exporter against the real Prometheus tools: promtool's linter on the text format, and a
// Prometheus server, started here on loopback, that scrapes the exporter every second (in OpenMetrics,
// which it asks for first) while the hub ticks over fixture trees.

#include "hub/hub.h"
#include "mcp/mcp_tools.h"
#include "metrics/metrics_exporter.h"
#include "platform/linux/hwmon_sensor_source.h"
#include "platform/linux/power_supply_reader.h"

#include "../monitors/snapshot_root.h"
#include "../support/test_support.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QTcpServer>

#include <gtest/gtest.h>

#include <map>

using namespace pulsebar;

namespace {

// One wired interface whose kernel counters grow by a known amount at every read.
struct CountingNetwork : NetworkReader {
    uint64_t* received;
    explicit CountingNetwork(uint64_t* counter) : received(counter) {}
    std::map<QString, InterfaceCounters> readCounters() override
    {
        *received += 1'234'567;
        return {{"eth0", {*received, *received / 3, true}}};
    }
    std::map<QString, Addresses> readAddresses() override { return {{"eth0", {{"192.0.2.7"}, {}, std::nullopt}}}; }
    GlobalNetworkState readGlobalState() override { return {"eth0", "192.0.2.1", {}}; }
    std::optional<WiFiReading> readWiFi() override { return std::nullopt; }
    std::map<QString, QString> readDisplayNames() override { return {}; }
    std::map<QString, QString> readHardwareAddresses() override { return {}; }
    bool isBridge(const QString&) override { return false; }
};

// A hub over switchable CPU and memory trees, a desktop's hwmon chips, a discharging laptop battery
// and the counting interface.
struct FixtureHub {
    test::IsolatedSettings isolated;
    test::SnapshotRoot root{"sys-basic-1"};
    uint64_t received = 10'000'000;
    std::unique_ptr<Hub> hub;
    double time = 1'700'000'000;

    FixtureHub()
    {
        SystemReaders readers = test::fixtureReaders(root.path());
        readers.sensors = std::make_shared<HwmonSensorSource>(RootedFileReader(test::fixture("sensors/hwmon-desktop").toStdString()));
        readers.battery = std::make_unique<PowerSupplyReader>(
            RootedFileReader(test::fixture("sensors/laptop-discharging").toStdString()), false);
        readers.network = std::make_unique<CountingNetwork>(&received);
        Config config = isolated.settings.config();
        config.updateInterval = 1;
        isolated.settings.setConfig(config);
        hub = std::make_unique<Hub>(isolated.settings, std::move(readers));
        hub->now = [this] { return time; };
    }

    // Alternates the trees so that consecutive ticks differ (the CPU share of one is 0: its counters
    // went back) and moves the clock on by the tick's second.
    void advance()
    {
        root.use(hub->tickCount() % 2 ? "sys-basic-2" : "sys-basic-1");
        time += 1;
    }
};

quint16 freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

QJsonArray query(QNetworkAccessManager& network, quint16 port, const QString& promql)
{
    QUrl url(QStringLiteral("http://127.0.0.1:%1/api/v1/query").arg(port));
    url.setQuery("query=" + QString::fromLatin1(QUrl::toPercentEncoding(promql))); // a '+' must stay a plus
    std::unique_ptr<QNetworkReply> reply(network.get(QNetworkRequest(url)));
    reply->setParent(nullptr);
    test::waitUntil([&] { return reply->isFinished(); }, 10000);
    return QJsonDocument::fromJson(reply->readAll()).object()["data"].toObject()["result"].toArray();
}

double valueOf(const QJsonObject& series)
{
    return series["value"].toArray().at(1).toString().toDouble();
}

} // namespace

TEST(Prometheus, PromtoolAcceptsTheExposition)
{
    FixtureHub fixture;
    fixture.hub->startHeadless();
    fixture.hub->sensors.awaitDiscovery(10000);
    fixture.advance();
    fixture.hub->tick();
    const QByteArray text = MetricsExposition::render(*fixture.hub, MetricsFormat::prometheusText);
    for (const char* series : {"pulsebar_cpu_usage_ratio{mode=\"user\"} ", "pulsebar_memory_used_bytes ",
                               "pulsebar_network_receive_bytes_total{interface=\"eth0\"} ",
                               "pulsebar_temperature_celsius{sensor=", "pulsebar_fan_rpm{fan=\"1\"} ",
                               "pulsebar_battery_charge_ratio ", "pulsebar_volume_size_bytes{mountpoint=\"/\"",
                               "pulsebar_disk_read_bytes_total ", "pulsebar_insight_info{kind="})
        EXPECT_TRUE(text.contains(series)) << series << "\n" << text.constData();

    QProcess promtool;
    promtool.setProcessChannelMode(QProcess::MergedChannels);
    promtool.start("promtool", {"check", "metrics"});
    ASSERT_TRUE(promtool.waitForStarted());
    promtool.write(text);
    promtool.closeWriteChannel();
    ASSERT_TRUE(promtool.waitForFinished(30000));
    EXPECT_EQ(promtool.exitCode(), 0);
    EXPECT_EQ(promtool.readAll().toStdString(), ""); // no lint problem either
}

TEST(Prometheus, ScrapesEverySecondAndAgreesWithTheMcpToolsOfTheSameTick)
{
    FixtureHub fixture;
    Hub& hub = *fixture.hub;
    MCPTools tools(hub);
    // What the agent tools answered at each tick, by the tick's time.
    struct Answers {
        QJsonObject overview, sensors, battery;
        uint64_t received = 0;
    };
    std::map<double, Answers> answers;
    QObject::connect(&hub, &Hub::changed, [&] {
        answers[hub.snapshot().time] = {tools.getOverview(), tools.getSensors({}), tools.getBattery(), fixture.received};
        fixture.advance();
    });

    MetricsExporter exporter(hub, fixture.isolated.preferences);
    const QByteArray token = "test-token-1234";
    ASSERT_TRUE(exporter.server().listen(QHostAddress::LocalHost, 0));
    // The exporter asks for the token only off the loopback; here the server is told to ask for it, so
    // that Prometheus's own way of sending it is what is checked.
    exporter.server().setRequiredToken(token);
    hub.startHeadless();

    QTemporaryDir dir;
    const quint16 prometheusPort = freePort();
    test::writeFile(dir.path() + "/prometheus.yml", QStringLiteral(R"(global:
  scrape_interval: 1s
  scrape_timeout: 1s
scrape_configs:
  - job_name: pulsebar
    authorization: {credentials: %1}
    static_configs: [{targets: ['127.0.0.1:%2']}]
  - job_name: without-token
    static_configs: [{targets: ['127.0.0.1:%2']}]
)").arg(QString::fromLatin1(token)).arg(exporter.server().port()).toUtf8());
    QProcess prometheus;
    prometheus.setProcessChannelMode(QProcess::MergedChannels);
    prometheus.start("prometheus", {"--config.file=" + dir.path() + "/prometheus.yml",
                                    "--storage.tsdb.path=" + dir.path() + "/data",
                                    "--web.listen-address=127.0.0.1:" + QString::number(prometheusPort),
                                    "--log.level=warn"});
    ASSERT_TRUE(prometheus.waitForStarted());
    QNetworkAccessManager network;
    const auto upOf = [&](const char* job) {
        const QJsonArray result = query(network, prometheusPort, QStringLiteral("up{job=\"%1\"}").arg(job));
        return result.isEmpty() ? -1.0 : valueOf(result[0].toObject());
    };
    ASSERT_TRUE(test::waitUntil([&] { return upOf("pulsebar") == 1 && upOf("without-token") == 0; }, 60000))
        << prometheus.readAll().constData();

    // Three scrapes of different ticks, each compared with what the tools said at that tick.
    std::set<double> compared;
    std::set<double> cpuSeen;
    test::waitUntil([&] {
        const QJsonArray series = query(network, prometheusPort, QStringLiteral("{job=\"pulsebar\",__name__=~\"pulsebar_.*\"}"));
        std::map<QString, std::vector<QJsonObject>> byName;
        for (const QJsonValue& s : series)
            byName[s["metric"]["__name__"].toString()].push_back(s.toObject());
        if (byName["pulsebar_sample_timestamp_seconds"].empty())
            return false;
        const double tickTime = valueOf(byName["pulsebar_sample_timestamp_seconds"][0]);
        if (compared.count(tickTime) || !answers.count(tickTime))
            return false;
        const Answers& said = answers[tickTime];
        const auto one = [&](const QString& name) { return byName[name].empty() ? NAN : valueOf(byName[name][0]); };

        double cpu = 0;
        for (const QJsonObject& s : byName["pulsebar_cpu_usage_ratio"])
            cpu += valueOf(s) * 100;
        EXPECT_NEAR(cpu, said.overview["cpu"]["total_percent"].toDouble(), 0.051) << tickTime;
        cpuSeen.insert(std::round(cpu));
        const QJsonObject memory = said.overview["memory"].toObject();
        EXPECT_NEAR(one("pulsebar_memory_used_bytes") / one("pulsebar_memory_total_bytes") * 100,
                    memory["used_percent"].toDouble(), 0.051);
        EXPECT_NEAR(one("pulsebar_memory_pressure_ratio") * 100, memory["pressure_percent"].toDouble(), 0.051);
        EXPECT_NEAR(one("pulsebar_battery_charge_ratio") * 100, said.battery["percent"].toDouble(), 0.051);
        double hottest = 0;
        for (const QJsonObject& s : byName["pulsebar_temperature_celsius"])
            hottest = std::max(hottest, valueOf(s));
        EXPECT_NEAR(hottest, said.sensors["hottest_sensors_c"][0]["value"].toDouble(), 0.051);
        EXPECT_EQ(std::llround(one("pulsebar_fan_rpm")), said.sensors["fans"][0]["rpm"].toInteger());
        EXPECT_EQ(one("pulsebar_network_receive_bytes_total"), double(said.received));
        compared.insert(tickTime);
        return compared.size() >= 3;
    }, 60000);
    EXPECT_GE(compared.size(), 3u);
    EXPECT_GE(cpuSeen.size(), 2u); // the ticks compared differed, so the match is of the same tick

    // Every query of the fleet dashboard is valid and finds this computer's series.
    const QJsonObject dashboard =
        QJsonDocument::fromJson(test::readFile(test::fixture("../../docs/grafana-dashboard.json"))).object();
    int queries = 0;
    for (const QJsonValue& panel : dashboard["panels"].toArray())
        for (const QJsonValue& target : panel["targets"].toArray()) {
            const QString expr = target["expr"].toString().replace("$instance", ".*").replace("$__rate_interval", "10s");
            EXPECT_FALSE(query(network, prometheusPort, expr).isEmpty()) << expr.toStdString();
            ++queries;
        }
    EXPECT_GE(queries, 8);
    prometheus.terminate();
    prometheus.waitForFinished(10000);
}
