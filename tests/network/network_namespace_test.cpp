#include "monitors/network_monitor.h"
#include "platform/linux/icmp_echo.h"
#include "platform/linux/linux_network_reader.h"

#include "../support/test_support.h"

#include <QCoreApplication>
#include <QProcess>

#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

using namespace pulsebar;

// Virtual links in a network namespace of their own: a dummy, a bridge, a tun device and a veth pair
// whose other end lives in a second namespace. The parent test builds them (root only) and runs the
// checks inside the namespace by starting this test binary again under `ip netns exec`.

namespace {

const char* const childVariable = "PULSEBAR_NETNS_CHILD";

bool run(const QStringList& command)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(command.front(), command.mid(1));
    const bool ok = process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit
                    && process.exitCode() == 0;
    if (!ok)
        ADD_FAILURE() << command.join(' ').toStdString() << ": " << process.readAll().toStdString();
    return ok;
}

bool ipAvailable()
{
    QProcess process;
    process.start("ip", {"-V"});
    return process.waitForFinished(5000) && process.exitCode() == 0;
}

// Removes the namespaces (and with them every link in them) however the test ends.
struct Namespaces {
    QString a, b;
    ~Namespaces()
    {
        QProcess::execute("ip", {"netns", "del", a});
        QProcess::execute("ip", {"netns", "del", b});
    }
};

} // namespace

TEST(NetworkNamespace, VirtualLinksAreListedButNotCounted)
{
    if (qEnvironmentVariableIsSet(childVariable))
        GTEST_SKIP() << "running inside the namespace";
    if (geteuid() != 0 || !ipAvailable())
        GTEST_SKIP() << "needs root and iproute2 to create network namespaces";

    const QString id = QString::number(getpid());
    Namespaces ns{"pulsebar-a-" + id, "pulsebar-b-" + id};
    if (QProcess::execute("ip", {"netns", "add", ns.a}) != 0)
        GTEST_SKIP() << "network namespaces are not available here";
    ASSERT_TRUE(run({"ip", "netns", "add", ns.b}));
    const auto in = [](const QString& n, const QString& command) {
        return run(QStringList{"ip", "-n", n} + command.split(' '));
    };
    ASSERT_TRUE(in(ns.a, "link set lo up"));
    ASSERT_TRUE(in(ns.a, "link add veth0 type veth peer name veth1"));
    ASSERT_TRUE(in(ns.a, "link set veth1 netns " + ns.b));
    ASSERT_TRUE(in(ns.a, "addr add 10.99.2.1/24 dev veth0"));
    ASSERT_TRUE(in(ns.a, "link set veth0 up"));
    ASSERT_TRUE(in(ns.b, "addr add 10.99.2.2/24 dev veth1"));
    ASSERT_TRUE(in(ns.b, "link set veth1 up"));
    ASSERT_TRUE(in(ns.a, "route add default via 10.99.2.2 dev veth0"));
    // Kernels without the dummy module or /dev/net/tun leave those links out of the check.
    QStringList extras;
    const auto tryAdd = [&](const QString& name, const QString& add, const QString& address) {
        if (QProcess::execute("ip", QStringList{"-n", ns.a} + add.split(' ')) == 0
            && in(ns.a, "addr add " + address + " dev " + name) && in(ns.a, "link set " + name + " up"))
            extras << name;
    };
    tryAdd("br0", "link add br0 type bridge", "10.99.3.1/24");
    tryAdd("dum0", "link add dum0 type dummy", "10.99.1.1/24");
    tryAdd("tun0", "tuntap add tun0 mode tun", "10.99.4.1/24");

    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(childVariable, extras.join(','));
    env.remove("PULSEBAR_SYSROOT");
    child.setProcessEnvironment(env);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start("ip", {"netns", "exec", ns.a, QCoreApplication::applicationFilePath(),
                       "--gtest_filter=NetworkNamespace.InsideTheNamespace"});
    ASSERT_TRUE(child.waitForFinished(30000));
    const QByteArray output = child.readAll();
    EXPECT_EQ(child.exitCode(), 0) << output.toStdString();
    EXPECT_TRUE(output.contains("[  PASSED  ] 1 test")) << output.toStdString();
}

TEST(NetworkNamespace, InsideTheNamespace)
{
    if (!qEnvironmentVariableIsSet(childVariable))
        GTEST_SKIP() << "runs only when started by VirtualLinksAreListedButNotCounted";
    const QStringList extras = qEnvironmentVariable(childVariable).split(',', Qt::SkipEmptyParts);

    NetworkMonitor monitor(std::make_unique<LinuxNetworkReader>(RootedFileReader::fromEnvironment()));
    monitor.pingHost = "10.99.2.2"; // the far end of the veth pair
    monitor.publicIPURL = "http://127.0.0.1:9/";
    double time = 100;
    monitor.now = [&] { return time; };
    monitor.sample();
    ASSERT_TRUE(test::waitUntil([&] { return !monitor.isPinging(); }, 8000));
    EXPECT_EQ(monitor.internetReachable, true);

    // Traffic across the veth pair.
    QProcess ping;
    ping.start("/bin/ping", {"-c", "3", "-i", "0.2", "-s", "1000", "-W", "2", "10.99.2.2"});
    ASSERT_TRUE(ping.waitForFinished(10000));
    ASSERT_EQ(ping.exitCode(), 0);
    time += 2;
    monitor.sample();

    QStringList names;
    const InterfaceInfo* veth = nullptr;
    for (const InterfaceInfo& i : monitor.interfaces) {
        names << i.bsdName;
        if (i.bsdName == "veth0")
            veth = &i;
    }
    QStringList expected{"veth0"}; // the primary first, then by name; no loopback
    expected += extras;
    std::sort(expected.begin() + 1, expected.end());
    EXPECT_EQ(names, expected);
    ASSERT_TRUE(veth);
    EXPECT_GT(veth->upload, 1000);   // three 1 kB echo requests and the first ping
    EXPECT_GT(veth->download, 1000);
    EXPECT_EQ(monitor.upload, 0);    // but no hardware interface carried anything
    EXPECT_EQ(monitor.download, 0);
    EXPECT_EQ(monitor.sessionUp, 0u);
    EXPECT_EQ(monitor.primaryInterface, "veth0");
    EXPECT_EQ(monitor.router, "10.99.2.2");
    const std::map<QString, QString> expectedNames{{"br0", "Bridge (br0)"}, {"dum0", "dum0"}, {"tun0", "VPN (tun0)"}};
    for (const InterfaceInfo& i : monitor.interfaces)
        if (i.bsdName != "veth0")
            EXPECT_EQ(i.displayName, expectedNames.at(i.bsdName));
    EXPECT_EQ(monitor.vpnInterfaces, extras.contains("tun0") ? QStringList{"tun0"} : QStringList{});
    EXPECT_FALSE(monitor.wifi);

    // What the reader keeps between samples follows the kernel's notifications: an address added and
    // the default route moved are there at the next sample.
    ASSERT_TRUE(run({"ip", "addr", "add", "10.99.2.7/24", "dev", "veth0"}));
    ASSERT_TRUE(run({"ip", "route", "replace", "default", "via", "10.99.2.3", "dev", "veth0"}));
    time += 2;
    monitor.sample();
    ASSERT_FALSE(monitor.interfaces.empty());
    EXPECT_EQ(monitor.interfaces.front().ipv4, (QStringList{"10.99.2.1", "10.99.2.7"}));
    EXPECT_EQ(monitor.router, "10.99.2.3");

    // The echo request of the reader's own socket: refused while no group of ours is in the
    // namespace's ping_group_range (its default), answered once everyone is.
    const auto echo = [](std::optional<double>& answer, bool& answered) {
        return IcmpEchoRequest::send(QHostAddress("10.99.2.2"), 3000, [&](std::optional<double> ms) {
            answer = ms;
            answered = true;
        });
    };
    std::optional<double> answer;
    bool answered = false;
    if (test::readFile("/proc/sys/net/ipv4/ping_group_range").simplified() == "1 0")
        EXPECT_FALSE(echo(answer, answered));
    ASSERT_EQ(QProcess::execute("sysctl", {"-q", "-w", "net.ipv4.ping_group_range=0 2147483647"}), 0);
    const auto request = echo(answer, answered);
    ASSERT_TRUE(request);
    ASSERT_TRUE(test::waitUntil([&] { return answered; }, 5000));
    ASSERT_TRUE(answer);
    EXPECT_GE(*answer, 0);
    EXPECT_LT(*answer, 1000);
}
