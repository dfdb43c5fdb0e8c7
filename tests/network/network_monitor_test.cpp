#include "monitors/network_monitor.h"

#include "hub/hub.h"

#include "../support/test_support.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

// Raw readings a test sets by hand.
struct FakeReader : NetworkReader {
    std::map<QString, InterfaceCounters> counters;
    std::map<QString, Addresses> addresses;
    GlobalNetworkState state;
    std::optional<WiFiReading> wifi;
    std::map<QString, QString> names;
    std::map<QString, QString> factoryAddresses;
    QStringList bridges;
    int displayNameReads = 0;

    std::map<QString, InterfaceCounters> readCounters() override { return counters; }
    std::map<QString, Addresses> readAddresses() override { return addresses; }
    GlobalNetworkState readGlobalState() override { return state; }
    std::optional<WiFiReading> readWiFi() override { return wifi; }
    std::map<QString, QString> readDisplayNames() override
    {
        ++displayNameReads;
        return names;
    }
    std::map<QString, QString> readHardwareAddresses() override { return factoryAddresses; }
    bool isBridge(const QString& name) override { return bridges.contains(name); }
};

// A monitor over a fake reader and a hand-driven clock. Its ping and public-address request stay on
// the loopback: a stand-in ping program and a closed port unless the test serves one.
struct Rig {
    FakeReader* reader;
    std::unique_ptr<NetworkMonitor> monitor;
    double time = 1000;
    QTemporaryDir dir;

    Rig()
    {
        auto owned = std::make_unique<FakeReader>();
        reader = owned.get();
        monitor = std::make_unique<NetworkMonitor>(std::move(owned));
        monitor->now = [this] { return time; };
        monitor->publicIPURL = "http://127.0.0.1:9/";
        monitor->pingProgram = fakePing("echo '64 bytes from x: icmp_seq=1 ttl=64 time=12.5 ms'");
    }

    // A shell script standing in for ping; every run is logged with its arguments.
    QString fakePing(const QByteArray& body)
    {
        const QString path = dir.path() + "/ping";
        test::writeFile(path, "#!/bin/sh\necho \"$@\" >> " + (dir.path() + "/ping.log").toUtf8() + "\n" + body + "\n");
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }
    QStringList pingLog() const
    {
        return QString::fromUtf8(test::readFile(dir.path() + "/ping.log")).split('\n', Qt::SkipEmptyParts);
    }
    const InterfaceInfo* find(const QString& name) const
    {
        for (const InterfaceInfo& i : monitor->interfaces)
            if (i.bsdName == name)
                return &i;
        return nullptr;
    }
};

} // namespace

TEST(NetworkMonitor, RatesAndTotalsCountOnlyHardwareInterfaces)
{
    Rig rig;
    FakeReader& r = *rig.reader;
    r.counters = {{"lo", {500, 500, false}}, {"eth0", {1000, 500, true}}, {"tun0", {100, 100, false}},
                  {"wlan0", {0, 0, true}}};
    r.addresses = {{"lo", {{"127.0.0.1"}, {"::1"}, {}}},
                   {"eth0", {{"192.168.1.20"}, {"fe80::1%eth0", "2001:db8::20"}, "3c:7c:3f:00:00:01"}},
                   {"tun0", {{"10.8.0.2"}, {}, {}}},
                   {"wlan0", {{}, {"fe80::2%wlan0"}, "a4:00:00:00:00:01"}}};
    r.state = {"eth0", "192.168.1.1", {"192.168.1.1"}};
    rig.monitor->sample();
    EXPECT_EQ(rig.monitor->tick, 1);
    EXPECT_EQ(rig.monitor->upload, 0); // the first sample only records counters
    EXPECT_EQ(rig.monitor->download, 0);
    EXPECT_EQ(rig.monitor->uploadHistory.size(), 1);

    rig.time += 2;
    r.counters = {{"lo", {90000, 90000, false}}, {"eth0", {5000, 2500, true}}, {"tun0", {2100, 1100, false}},
                  {"wlan0", {600, 200, true}}};
    rig.monitor->sample();
    const NetworkMonitor& m = *rig.monitor;
    // eth0 and wlan0 count; the tunnel's traffic already crossed eth0 and the loopback never counts.
    EXPECT_DOUBLE_EQ(m.download, 2000 + 300);
    EXPECT_DOUBLE_EQ(m.upload, 1000 + 100);
    EXPECT_EQ(m.sessionDown, 4600u);
    EXPECT_EQ(m.sessionUp, 2200u);
    EXPECT_EQ(m.downloadHistory.values(), (std::deque<double>{0, 2300}));

    // wlan0 has only a link-local address and the loopback is never listed.
    ASSERT_EQ(m.interfaces.size(), 2u);
    EXPECT_EQ(m.interfaces[0].bsdName, "eth0");
    EXPECT_EQ(m.interfaces[0].ipv6, QStringList{"2001:db8::20"});
    EXPECT_EQ(m.interfaces[0].totalDown, 5000u);
    EXPECT_EQ(m.interfaces[0].displayName, "eth0");
    const InterfaceInfo* tun = rig.find("tun0");
    ASSERT_TRUE(tun);
    EXPECT_EQ(tun->displayName, "VPN (tun0)");
    EXPECT_DOUBLE_EQ(tun->download, 1000);
    EXPECT_DOUBLE_EQ(tun->upload, 500);
    EXPECT_EQ(m.vpnInterfaces, QStringList{"tun0"});
    EXPECT_EQ(m.primaryInterface, "eth0");
    EXPECT_EQ(m.router, "192.168.1.1");
    EXPECT_EQ(m.dns, QStringList{"192.168.1.1"});
}

TEST(NetworkMonitor, CountersThatGoBackwardsOrAppearLateGiveZero)
{
    Rig rig;
    FakeReader& r = *rig.reader;
    r.counters = {{"eth0", {10000, 10000, true}}};
    r.addresses = {{"eth0", {{"10.0.0.2"}, {}, {}}}, {"eth1", {{"10.0.1.2"}, {}, {}}}};
    rig.monitor->sample();
    rig.time += 1;
    r.counters = {{"eth0", {50, 20000, true}}, {"eth1", {7000, 7000, true}}}; // eth0 reset its rx counter
    rig.monitor->sample();
    EXPECT_EQ(rig.monitor->download, 0);
    EXPECT_DOUBLE_EQ(rig.monitor->upload, 10000);
    EXPECT_EQ(rig.monitor->sessionDown, 0u);
    EXPECT_EQ(rig.find("eth1")->download, 0); // no earlier counters
    EXPECT_EQ(rig.monitor->lastCounters.at("eth0").rx, 50u);

    // A clock that stands still or steps back yields no rate rather than a division by zero.
    rig.time -= 5;
    r.counters = {{"eth0", {90000, 90000, true}}, {"eth1", {9000, 9000, true}}};
    rig.monitor->sample();
    EXPECT_EQ(rig.monitor->download, 0);
    EXPECT_EQ(rig.monitor->upload, 0);

    // An interface that disappears simply drops out of the list.
    r.counters.erase("eth1");
    rig.time += 10;
    rig.monitor->sample();
    EXPECT_FALSE(rig.find("eth1"));
}

TEST(NetworkMonitor, ListingNamesAddressesAndOrder)
{
    Rig rig;
    FakeReader& r = *rig.reader;
    for (const char* name : {"awdl0", "br0", "bridge100", "eth0", "p2p-wlan0-0", "wg0", "wlan0", "zt0"})
        r.counters[name] = {1, 1, false};
    r.addresses = {{"awdl0", {{"169.254.1.1"}, {}, {}}},
                   {"br0", {{"10.1.0.1"}, {}, "02:00:00:00:00:00"}},
                   {"bridge100", {{}, {"fd00::1"}, {}}},
                   {"eth0", {{"10.0.0.2", "10.0.0.3"}, {}, "02:42:ac:11:00:02"}},
                   {"p2p-wlan0-0", {{"192.168.49.1"}, {}, {}}},
                   {"wg0", {{}, {"fd10::1"}, {}}},
                   {"wlan0", {{"192.168.1.9"}, {}, "de:ad:be:ef:00:01"}},
                   {"zt0", {{"10.147.0.1"}, {}, {}}}};
    r.state.primaryInterface = "wlan0";
    r.names = {{"wlan0", "Wi-Fi"}, {"eth0", "Ethernet"}};
    r.factoryAddresses = {{"wlan0", "a4:b1:c1:00:00:01"}};
    r.bridges = {"br0"};
    rig.monitor->sample();

    QStringList order;
    for (const InterfaceInfo& i : rig.monitor->interfaces)
        order << i.bsdName;
    EXPECT_EQ(order, (QStringList{"wlan0", "br0", "bridge100", "eth0", "wg0", "zt0"}));
    const auto name = [&](const char* bsd) { return rig.find(bsd)->displayName; };
    EXPECT_EQ(name("wlan0"), "Wi-Fi");
    EXPECT_EQ(name("br0"), "Bridge (br0)");
    EXPECT_EQ(name("bridge100"), "Bridge (bridge100)");
    EXPECT_EQ(name("wg0"), "VPN (wg0)");
    EXPECT_EQ(name("zt0"), "zt0");
    EXPECT_EQ(rig.find("wlan0")->mac, "a4:b1:c1:00:00:01"); // factory address beats the randomised one
    EXPECT_EQ(rig.find("eth0")->mac, "02:42:ac:11:00:02");
    EXPECT_FALSE(rig.find("br0")->mac); // the placeholder counts as none
    // wg0 carries only IPv6, so it is not an active VPN for the list.
    EXPECT_TRUE(rig.monitor->vpnInterfaces.isEmpty());

    // Display names are read on the first sample and then every 30th.
    EXPECT_EQ(r.displayNameReads, 1);
    for (int i = 0; i < 29; ++i)
        rig.monitor->sample();
    EXPECT_EQ(r.displayNameReads, 2);
}

TEST(NetworkMonitor, WiFiCodesBecomeTexts)
{
    WiFiReading r;
    r.interfaceName = "wlan0";
    r.powerOn = true;
    r.rssi = -60;
    r.noise = -95;
    r.channel = 149;
    r.band = WiFiBand::ghz5;
    r.width = WiFiChannelWidth::mhz80;
    r.phyMode = WiFiPHYMode::ax;
    r.transmitRate = 1200.5;
    r.security = 13;
    WiFiInfo expected;
    expected.interfaceName = "wlan0";
    expected.rssi = -60;
    expected.noise = -95;
    expected.channel = 149;
    expected.band = "5 GHz";
    expected.width = "80 MHz";
    expected.transmitRate = 1200.5;
    expected.phyMode = "802.11ax (Wi-Fi 6)";
    expected.security = "WPA2/WPA3 Personal";
    EXPECT_EQ(NetworkMonitor::wifiInfo(r), expected);

    const std::map<int, QString> securities = {{0, "None"},        {1, "WEP"},           {3, "WPA Personal"},
                                               {5, "Personal"},    {6, "WEP"},           {10, "Enterprise"},
                                               {11, "WPA3 Personal"}, {12, "Enterprise"}, {15, "Enhanced Open"},
                                               {16, "Secured"},    {-1, "Secured"}};
    for (const auto& [code, text] : securities) {
        r.security = code;
        EXPECT_EQ(NetworkMonitor::wifiInfo(r).security, text) << code;
    }
    r.security.reset();
    EXPECT_EQ(NetworkMonitor::wifiInfo(r).security, "—");

    // Unknown values give no text.
    const std::tuple<WiFiBand, WiFiChannelWidth, WiFiPHYMode, std::optional<QString>, std::optional<QString>, QString>
        codes[] = {{WiFiBand::unknown, WiFiChannelWidth::unknown, WiFiPHYMode::none, std::nullopt, std::nullopt, "—"},
                   {WiFiBand::ghz6, WiFiChannelWidth::mhz160, WiFiPHYMode::be, "6 GHz", "160 MHz",
                    "802.11be (Wi-Fi 7)"}};
    for (const auto& [band, width, phyMode, bandText, widthText, phyText] : codes) {
        r.band = band;
        r.width = width;
        r.phyMode = phyMode;
        const WiFiInfo info = NetworkMonitor::wifiInfo(r);
        EXPECT_EQ(info.band, bandText);
        EXPECT_EQ(info.width, widthText);
        EXPECT_EQ(info.phyMode, phyText);
    }

    // Present only while the interface exists and is up.
    Rig rig;
    rig.reader->wifi = r;
    rig.monitor->sample();
    ASSERT_TRUE(rig.monitor->wifi);
    EXPECT_EQ(rig.monitor->wifi->interfaceName, "wlan0");
    rig.reader->wifi->powerOn = false;
    rig.monitor->sample();
    EXPECT_FALSE(rig.monitor->wifi);
    rig.reader->wifi.reset();
    rig.monitor->sample();
    EXPECT_FALSE(rig.monitor->wifi);
}

TEST(NetworkMonitor, PingRunsEveryFifthSampleOneAtATime)
{
    EXPECT_EQ(NetworkMonitor::parsePingTime("64 bytes from 1.1.1.1: icmp_seq=1 ttl=57 time=14.2 ms\n"), 14.2);
    for (const char* noTime : {"1 packets transmitted, 0 received, 100% packet loss", "time=ms", "time=1.2.3 ms", ""})
        EXPECT_EQ(NetworkMonitor::parsePingTime(noTime), std::nullopt) << noTime;

    Rig rig;
    rig.monitor->pingHost = "192.0.2.7";
    EXPECT_FALSE(rig.monitor->internetReachable);
    rig.monitor->sample();
    EXPECT_TRUE(rig.monitor->pingInFlight);
    rig.monitor->runPing(); // ignored while the first one runs
    ASSERT_TRUE(test::waitUntil([&] { return !rig.monitor->pingInFlight; }));
    EXPECT_EQ(rig.monitor->pingMs, 12.5);
    EXPECT_EQ(rig.monitor->internetReachable, true);
    EXPECT_EQ(rig.monitor->pingHistory.values(), std::deque<double>{12.5});
    EXPECT_EQ(rig.pingLog(), QStringList{"-c 1 -W 3 -- 192.0.2.7"});

    for (int i = 2; i <= 11; ++i) {
        rig.monitor->sample();
        test::waitUntil([&] { return !rig.monitor->pingInFlight; });
    }
    EXPECT_EQ(rig.pingLog().size(), 3); // samples 1, 6 and 11

    // Output without a time: unreachable, no figure, the trail keeps only successes.
    rig.monitor->pingProgram = rig.fakePing("echo 'ping: unknown host'; exit 2");
    rig.monitor->runPing();
    ASSERT_TRUE(test::waitUntil([&] { return !rig.monitor->pingInFlight; }));
    EXPECT_EQ(rig.monitor->internetReachable, false);
    EXPECT_FALSE(rig.monitor->pingMs);
    EXPECT_EQ(rig.monitor->pingHistory.size(), 3);

    // A ping program that cannot start is a failed ping, and the next one may run.
    rig.monitor->pingProgram = rig.dir.path() + "/missing";
    rig.monitor->internetReachable = true;
    rig.monitor->runPing();
    ASSERT_TRUE(test::waitUntil([&] { return !rig.monitor->pingInFlight; }));
    EXPECT_EQ(rig.monitor->internetReachable, false);
}

TEST(NetworkMonitor, RealPingOfLoopbackAndOfAnAddressThatCannotAnswer)
{
    Rig rig;
    rig.monitor->pingProgram = "/bin/ping";
    rig.monitor->pingHost = "127.0.0.1";
    rig.monitor->runPing();
    ASSERT_TRUE(test::waitUntil([&] { return !rig.monitor->pingInFlight; }, 8000));
    EXPECT_EQ(rig.monitor->internetReachable, true);
    ASSERT_TRUE(rig.monitor->pingMs);
    EXPECT_GE(*rig.monitor->pingMs, 0);

    // TEST-NET-3 is never routed; with a one-second wait the ping ends unanswered.
    rig.monitor->pingTimeoutSeconds = 1;
    rig.monitor->pingHost = "203.0.113.1";
    QElapsedTimer clock;
    clock.start();
    rig.monitor->sample(); // the tick itself returns at once
    EXPECT_LT(clock.elapsed(), 500);
    ASSERT_TRUE(test::waitUntil([&] { return !rig.monitor->pingInFlight; }, 8000));
    EXPECT_EQ(rig.monitor->internetReachable, false);
    EXPECT_FALSE(rig.monitor->pingMs);
}

namespace {

// A plain-text HTTP server on the loopback that answers every request the same way.
class AddressServer {
public:
    enum class Mode { answer, garbage, serverError, hang };
    Mode mode = Mode::answer;
    QByteArray address = "203.0.113.7";
    int requests = 0;

    AddressServer()
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection())
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { answer(socket); });
        });
    }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort()); }

private:
    void answer(QTcpSocket* socket)
    {
        socket->readAll();
        ++requests;
        QByteArray status = "200 OK", body;
        switch (mode) {
        case Mode::answer:
            body = address + "\n";
            break;
        case Mode::garbage:
            body = "<html><body>Sign in to the hotel network</body></html>";
            break;
        case Mode::serverError:
            status = "503 Service Unavailable";
            body = "203.0.113.99";
            break;
        case Mode::hang:
            return; // keeps the connection open and says nothing
        }
        socket->write("HTTP/1.1 " + status + "\r\nContent-Type: text/plain\r\nContent-Length: "
                      + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
        socket->disconnectFromHost();
    }
    QTcpServer m_server;
};

} // namespace

TEST(NetworkMonitor, PublicAddressAnswersFailuresAndTimeOut)
{
    AddressServer server;
    Rig rig;
    rig.monitor->publicIPURL = server.url();
    rig.monitor->publicIPTimeoutMs = 300;
    QSignalSpy finished(rig.monitor.get(), &NetworkMonitor::publicIPFinished);

    rig.monitor->sample();
    EXPECT_EQ(rig.monitor->lastPublicIPFetch, rig.time);
    ASSERT_TRUE(finished.wait(5000));
    EXPECT_EQ(rig.monitor->publicIP, "203.0.113.7"); // trimmed

    for (auto mode : {AddressServer::Mode::garbage, AddressServer::Mode::serverError, AddressServer::Mode::hang}) {
        server.mode = mode;
        QElapsedTimer clock;
        clock.start();
        rig.monitor->fetchPublicIP();
        EXPECT_LT(clock.elapsed(), 200); // never waits in the caller
        ASSERT_TRUE(finished.wait(5000)) << int(mode);
        EXPECT_EQ(rig.monitor->publicIP, "203.0.113.7") << int(mode); // the previous address stays
    }
    EXPECT_EQ(server.requests, 4);

    // Nothing listening at all.
    rig.monitor->publicIPURL = "http://127.0.0.1:9/";
    rig.monitor->fetchPublicIP();
    ASSERT_TRUE(finished.wait(5000));
    EXPECT_EQ(rig.monitor->publicIP, "203.0.113.7");
}

TEST(NetworkMonitor, PublicAddressRefetchOnNewNetworkOrAfterTenMinutes)
{
    AddressServer server;
    Rig rig;
    FakeReader& r = *rig.reader;
    rig.monitor->publicIPURL = server.url();
    r.counters = {{"wlan0", {1, 1, true}}, {"eth0", {1, 1, true}}};
    r.addresses = {{"wlan0", {{"192.168.1.9"}, {}, {}}}};
    r.state.primaryInterface = "wlan0";
    QSignalSpy finished(rig.monitor.get(), &NetworkMonitor::publicIPFinished);

    rig.monitor->sample();
    ASSERT_TRUE(finished.wait(5000));
    EXPECT_EQ(rig.monitor->lastPublicIPKey, "wlan0|192.168.1.9");
    EXPECT_EQ(server.requests, 1);

    rig.time += 300;
    rig.monitor->sample();
    EXPECT_FALSE(finished.wait(200));
    EXPECT_EQ(server.requests, 1);

    // Wi-Fi to Ethernet: a new key, an immediate fetch.
    server.address = "198.51.100.4";
    r.addresses = {{"eth0", {{"10.0.0.5"}, {}, {}}}};
    r.state.primaryInterface = "eth0";
    rig.time += 1;
    rig.monitor->sample();
    ASSERT_TRUE(finished.wait(5000));
    EXPECT_EQ(server.requests, 2);
    EXPECT_EQ(rig.monitor->publicIP, "198.51.100.4");
    EXPECT_EQ(rig.monitor->lastPublicIPKey, "eth0|10.0.0.5");

    rig.time += 600; // exactly 600 s is not yet "more than"
    rig.monitor->sample();
    EXPECT_FALSE(finished.wait(200));
    rig.time += 1;
    rig.monitor->sample();
    ASSERT_TRUE(finished.wait(5000));
    EXPECT_EQ(server.requests, 3);

    // No primary interface at all still forms a key.
    r.state.primaryInterface.reset();
    rig.monitor->sample();
    EXPECT_EQ(rig.monitor->lastPublicIPKey, "|");
}

TEST(NetworkMonitor, HubSamplesTheNetworkWithTheConfiguredPingHost)
{
    AddressServer server;
    test::ScopedEnv url("PULSEBAR_IPIFY_URL", server.url());
    test::IsolatedSettings isolated;
    AppSettings& settings = isolated.settings;
    Hub hub(settings, systemReaders());
    hub.now = [] { return 5000.0; };
    hub.tick();
    EXPECT_EQ(hub.network.tick, 1);
    EXPECT_EQ(hub.network.pingHost, "127.0.0.1");
    EXPECT_EQ(hub.network.lastSample, 5000.0);
    EXPECT_TRUE(test::waitUntil([&] { return hub.network.internetReachable && hub.network.publicIP; }, 8000));
    EXPECT_EQ(hub.network.internetReachable, true);
    EXPECT_EQ(hub.network.publicIP, "203.0.113.7");
}
