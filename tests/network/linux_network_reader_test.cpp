#include "platform/linux/linux_network_reader.h"

#include "../support/test_support.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <linux/nl80211.h>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

std::unique_ptr<LinuxNetworkReader> laptopReader(LinuxNetworkReader::WirelessLinkSource links = nullptr)
{
    if (!links)
        links = [](const QString&) { return std::optional<WirelessLink>(); };
    return std::make_unique<LinuxNetworkReader>(RootedFileReader(test::fixture("network/laptop").toStdString()), links);
}

// A copy of the laptop tree that a test may change.
struct ScratchTree {
    QTemporaryDir dir;
    ScratchTree()
    {
        const QString source = test::fixture("network/laptop");
        QDir().mkpath(dir.path());
        QProcess::execute("cp", {"-a", source + "/.", dir.path()});
    }
    void write(const QString& relative, const QByteArray& text) { test::writeFile(dir.path() + "/" + relative, text); }
    void remove(const QString& relative) { QFile::remove(dir.path() + "/" + relative); }
    LinuxNetworkReader reader() const
    {
        return LinuxNetworkReader(RootedFileReader(dir.path().toStdString()), [](const QString&) { return std::optional<WirelessLink>(); });
    }
};

} // namespace

TEST(LinuxNetworkReader, CountersComeFromSysfsAndOnlyDevicesAreHardware)
{
    const auto counters = laptopReader()->readCounters();
    // gone0 has no statistics (it vanished between listing and reading) and is left out.
    EXPECT_EQ(counters.count("gone0"), 0u);
    ASSERT_EQ(counters.size(), 8u);
    EXPECT_EQ(counters.at("eth0"), (InterfaceCounters{1000, 2000, true}));
    EXPECT_EQ(counters.at("wlp2s0").rx, 18446744073709551000ull); // full 64-bit range
    EXPECT_TRUE(counters.at("wwan0").hardware);
    for (const char* virtualLink : {"lo", "br0", "veth1", "tun0"})
        EXPECT_FALSE(counters.at(virtualLink).hardware) << virtualLink;
}

TEST(LinuxNetworkReader, PrimaryRouteHasTheLowestMetricAndDnsFollowsTheResolvedStub)
{
    const GlobalNetworkState state = laptopReader()->readGlobalState();
    EXPECT_EQ(state.primaryInterface, "eth0");
    EXPECT_EQ(state.router, "10.10.10.1");
    // resolv.conf names only 127.0.0.53, so the upstream list is read; invalid lines are dropped.
    EXPECT_EQ(state.dns, (QStringList{"192.168.0.1", "fd00::1"}));
}

TEST(LinuxNetworkReader, ResolvConfWithoutStubAndBrokenFiles)
{
    ScratchTree tree;
    tree.write("etc/resolv.conf", "nameserver 9.9.9.9\n# nameserver 1.2.3.4\nnameserver 127.0.0.53\n");
    EXPECT_EQ(tree.reader().readGlobalState().dns, (QStringList{"9.9.9.9", "127.0.0.53"}));

    // The stub alone, and resolved's own file missing: the stub is all there is to show.
    tree.write("etc/resolv.conf", "nameserver 127.0.0.53\n");
    tree.remove("run/systemd/resolve/resolv.conf");
    EXPECT_EQ(tree.reader().readGlobalState().dns, (QStringList{"127.0.0.53"}));

    tree.write("etc/resolv.conf", QByteArray("\0\xff nameserver\nnameserver 300.1.1.1\n\n", 35));
    tree.write("proc/net/route", "Iface\tDestination\n\x01\x02 broken\n");
    const GlobalNetworkState broken = tree.reader().readGlobalState();
    EXPECT_TRUE(broken.dns.isEmpty());
    EXPECT_FALSE(broken.primaryInterface);
    EXPECT_FALSE(broken.router);

    tree.remove("etc/resolv.conf");
    tree.remove("proc/net/route");
    EXPECT_EQ(tree.reader().readGlobalState(), GlobalNetworkState{});
}

TEST(LinuxNetworkReader, DefaultRouteWithoutGatewayHasNoRouter)
{
    const auto route = NetText::defaultRoute("Iface Destination Gateway Flags RefCnt Use Metric Mask\n"
                                             "ppp0 00000000 00000000 0001 0 0 50 00000000\n"
                                             "eth0 00000000 0101A8C0 0003 0 0 100 00000000\n");
    EXPECT_EQ(route.interface, "ppp0");
    EXPECT_FALSE(route.gateway);
}

TEST(LinuxNetworkReader, DisplayNamesHardwareAddressesAndBridges)
{
    auto reader = laptopReader();
    const auto names = reader->readDisplayNames();
    EXPECT_EQ(names, (std::map<QString, QString>{
                         {"eth0", "Ethernet"}, {"eth1", "Ethernet 2"}, {"wlp2s0", "Wi-Fi"}, {"wwan0", "Mobile Broadband"}}));
    // eth1's address was set by software, wwan0 has none: only factory addresses are kept.
    EXPECT_EQ(reader->readHardwareAddresses(),
              (std::map<QString, QString>{{"eth0", "3c:7c:3f:12:34:56"}, {"wlp2s0", "a4:b1:c1:00:00:01"}}));
    EXPECT_TRUE(reader->isBridge("br0"));
    EXPECT_FALSE(reader->isBridge("eth0"));
    EXPECT_FALSE(reader->isBridge("missing"));
}

TEST(LinuxNetworkReader, WiFiCombinesNl80211FactsWithProcLevels)
{
    // Without nl80211 facts the levels come from proc/net/wireless and the link facts stay empty.
    WiFiReading expected;
    expected.interfaceName = "wlp2s0";
    expected.powerOn = true;
    expected.rssi = -54;
    expected.noise = -92;
    EXPECT_EQ(laptopReader()->readWiFi(), expected);

    WirelessLink link;
    link.associated = true;
    link.ssid = "Home";
    link.bssid = "aa:bb:cc:dd:ee:ff";
    link.frequency = 5500;
    link.channelWidth = NL80211_CHAN_WIDTH_80;
    link.signal = -48;
    link.txBitrate = 866.7;
    link.rateKind = WirelessRateKind::vht;
    link.security = WiFiSecurityCode::wpa2Personal;
    link.countryCode = "DE";
    QString askedFor;
    const auto reading = laptopReader([&](const QString& name) {
                             askedFor = name;
                             return std::optional(link);
                         })->readWiFi();
    EXPECT_EQ(askedFor, "wlp2s0");
    expected.rssi = -48; // nl80211's figure wins; the noise, which it lacks, stays from proc/net/wireless
    expected.channel = 100;
    expected.band = WiFiBand::ghz5;
    expected.width = WiFiChannelWidth::mhz80;
    expected.phyMode = WiFiPHYMode::ac;
    expected.transmitRate = 866.7;
    expected.security = WiFiSecurityCode::wpa2Personal;
    expected.ssid = "Home";
    expected.bssid = "aa:bb:cc:dd:ee:ff";
    expected.countryCode = "DE";
    EXPECT_EQ(reading, expected);
}

TEST(LinuxNetworkReader, WiFiDownOrMissing)
{
    ScratchTree tree;
    tree.write("sys/class/net/wlp2s0/flags", "0x1002\n");
    const auto down = tree.reader().readWiFi();
    ASSERT_TRUE(down);
    EXPECT_FALSE(down->powerOn);

    QProcess::execute("rm", {"-r", tree.dir.path() + "/sys/class/net/wlp2s0/wireless"});
    EXPECT_FALSE(tree.reader().readWiFi());
}

TEST(WirelessFacts, ChannelsBandsWidthsAndPhyModes)
{
    // Frequency → channel and band: 2.4 GHz (with channel 14's odd spacing), 5 GHz, 6 GHz, 60 GHz.
    const std::tuple<int, std::optional<int>, WiFiBand> frequencies[] = {{2412, 1, WiFiBand::ghz2_4},
                                                                         {2484, 14, WiFiBand::ghz2_4},
                                                                         {5180, 36, WiFiBand::ghz5},
                                                                         {5955, 1, WiFiBand::ghz6},
                                                                         {60480, std::nullopt, WiFiBand::unknown}};
    for (const auto& [mhz, channel, band] : frequencies) {
        EXPECT_EQ(WirelessFacts::channel(mhz), channel) << mhz;
        EXPECT_EQ(WirelessFacts::band(mhz), band) << mhz;
    }
    EXPECT_EQ(WirelessFacts::width(NL80211_CHAN_WIDTH_20_NOHT), WiFiChannelWidth::mhz20);
    EXPECT_EQ(WirelessFacts::width(NL80211_CHAN_WIDTH_160), WiFiChannelWidth::mhz160);
    EXPECT_EQ(WirelessFacts::width(NL80211_CHAN_WIDTH_320), WiFiChannelWidth::unknown);
    EXPECT_EQ(WirelessFacts::phyMode(WirelessRateKind::he, 5180, 1200), WiFiPHYMode::ax);
    EXPECT_EQ(WirelessFacts::phyMode(WirelessRateKind::eht, 6115, 2882), WiFiPHYMode::be);
    EXPECT_EQ(WirelessFacts::phyMode(WirelessRateKind::legacy, 5180, 54), WiFiPHYMode::a);
    EXPECT_EQ(WirelessFacts::phyMode(WirelessRateKind::legacy, 2412, 11), WiFiPHYMode::b);
    EXPECT_EQ(WirelessFacts::phyMode(WirelessRateKind::legacy, 2412, 54), WiFiPHYMode::g);
    EXPECT_EQ(WirelessFacts::phyMode(WirelessRateKind::none, 2412, 0), WiFiPHYMode::none);
}

namespace {

QByteArray element(unsigned char id, const QByteArray& body)
{
    return QByteArray(1, char(id)) + QByteArray(1, char(body.size())) + body;
}

// An RSN element with CCMP and the given AKM suite types of the IEEE organisation.
QByteArray rsn(std::initializer_list<int> akms)
{
    QByteArray body("\x01\x00" "\x00\x0f\xac\x04" "\x01\x00" "\x00\x0f\xac\x04", 12);
    body += char(akms.size());
    body += '\0';
    for (int akm : akms)
        body += QByteArray("\x00\x0f\xac", 3) + char(akm);
    return element(48, body);
}

QByteArray wpa(int akm)
{
    return element(221, QByteArray("\x00\x50\xf2\x01" "\x01\x00" "\x00\x50\xf2\x02" "\x01\x00" "\x00\x50\xf2\x02"
                                   "\x01\x00" "\x00\x50\xf2",
                                   21)
                            + char(akm));
}

} // namespace

TEST(WirelessFacts, SecurityFromInformationElements)
{
    using namespace WiFiSecurityCode;
    const QByteArray ssid = element(0, "Home");
    EXPECT_EQ(WirelessFacts::securityCode(ssid, false), none);
    EXPECT_EQ(WirelessFacts::securityCode(ssid, true), wep);
    EXPECT_EQ(WirelessFacts::securityCode(ssid + rsn({2}), true), wpa2Personal);
    EXPECT_EQ(WirelessFacts::securityCode(ssid + wpa(2), true), wpaPersonal);
    EXPECT_EQ(WirelessFacts::securityCode(ssid + rsn({2}) + wpa(2), true), wpaPersonalMixed);
    EXPECT_EQ(WirelessFacts::securityCode(rsn({8}), true), wpa3Personal);
    EXPECT_EQ(WirelessFacts::securityCode(rsn({2, 8}), true), wpa3Transition);
    EXPECT_EQ(WirelessFacts::securityCode(rsn({1}), true), wpa2Enterprise);
    EXPECT_EQ(WirelessFacts::securityCode(rsn({12}), true), wpa3Enterprise);
    EXPECT_EQ(WirelessFacts::securityCode(rsn({18}), true), owe);
    EXPECT_EQ(WirelessFacts::securityCode(element(221, QByteArray("\x50\x6f\x9a\x1c", 4)), false), oweTransition);
    // A truncated RSN element still counts as protected, without naming the method.
    EXPECT_EQ(WirelessFacts::securityCode(element(48, QByteArray("\x01\x00", 2)), true), personal);
    // An element whose length runs past the end stops the walk without reading beyond it.
    EXPECT_EQ(WirelessFacts::securityCode(ssid + QByteArray("\x30\xff\x01", 3), false), none);

    EXPECT_EQ(WirelessFacts::ssid(ssid + rsn({2})), "Home");
    EXPECT_EQ(WirelessFacts::ssid(element(0, QByteArray(4, '\0'))), std::nullopt); // hidden network
    EXPECT_EQ(WirelessFacts::ssid(rsn({2})), std::nullopt);
}

TEST(LinuxNetworkReader, LiveSystemReadsDoNotFail)
{
    // The running machine: whatever it has, every read returns and the loopback has its address.
    auto reader = std::make_unique<LinuxNetworkReader>(RootedFileReader::fromEnvironment());
    const auto addresses = reader->readAddresses();
    ASSERT_TRUE(addresses.count("lo"));
    EXPECT_TRUE(addresses.at("lo").v4.contains("127.0.0.1"));
    reader->readCounters();
    reader->readGlobalState();
    reader->readWiFi();
}

TEST(Nl80211, WiredAndMissingInterfacesHaveNoWirelessLink)
{
    // Asks the running kernel: a wired interface is refused by nl80211 (or nl80211 is absent), and the
    // socket stays usable for the next question.
    Nl80211 nl80211;
    EXPECT_FALSE(nl80211.query("lo"));
    EXPECT_FALSE(nl80211.query("lo"));
    EXPECT_FALSE(nl80211.query("pulsebar-none0"));
}
