// The application role posts through a real session bus: a private dbus-daemon, with a notification
// service played by this test, stands in for the desktop.
#include "alerts/notifier.h"
#include "core/config.h"

#include "../support/test_support.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QFile>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QVariantMap>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

// A session bus of our own that knows no services, so nothing on the machine can answer for them.
class PrivateBus {
public:
    PrivateBus()
    {
        const QString config = m_dir.path() + "/bus.conf";
        test::writeFile(config, QStringLiteral(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)").arg(m_dir.path()).toUtf8());
        m_daemon.start("dbus-daemon", {"--config-file=" + config, "--nofork", "--print-address"});
        if (m_daemon.waitForStarted(5000) && m_daemon.waitForReadyRead(5000))
            address = QString::fromUtf8(m_daemon.readLine()).trimmed();
    }
    ~PrivateBus()
    {
        QDBusConnection::disconnectFromBus(connectionName);
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(3000))
            m_daemon.kill();
    }

    QDBusConnection connect() { return QDBusConnection::connectToBus(address, connectionName); }

    QString address;
    static inline const QString connectionName = QStringLiteral("pulsebar-test-bus");

private:
    QTemporaryDir m_dir;
    QProcess m_daemon;
};

struct Received {
    QString appName;
    QString icon;
    QString summary;
    QString body;
    QStringList actions;
    QVariantMap hints;
};

// Plays the desktop's notification service and keeps what it is asked to show.
class FakeNotificationService : public QDBusVirtualObject {
public:
    std::vector<Received> received;

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        if (message.member() == "Notify" && message.signature() == "susssasa{sv}i") {
            const QVariantList a = message.arguments();
            received.push_back({a[0].toString(), a[2].toString(), a[3].toString(), a[4].toString(),
                                a[5].toStringList(), qdbus_cast<QVariantMap>(a[6])});
            return connection.send(message.createReply(QVariant::fromValue(uint(received.size()))));
        }
        if (message.member() == "GetCapabilities")
            return connection.send(message.createReply(QStringList{"body", "sound"}));
        return false;
    }
};

// A home whose preferences hold one rule that holds on every tick, and no events that a change
// on the test machine could trigger.
QString prepareHome(const QTemporaryDir& home)
{
    Config config;
    config.updateInterval = 1;
    Rule always = Rule::make(true, RuleMetric::cpu, RuleComparison::above, -1, 0);
    config.rules = {always};
    config.events = EventToggles{false, false, false, false, false, false};
    QJsonObject stored = config.toJson();
    stored.remove("pingHost"); // a test run pings loopback, never a public address
    test::writeConfig(home.path(), stored);
    return home.path();
}

void startApplication(QProcess& app, const QString& home, const QString& busAddress)
{
    QProcessEnvironment env = test::isolatedEnvironment(home);
    env.insert("DBUS_SESSION_BUS_ADDRESS", busAddress);
    app.setProcessEnvironment(env);
    app.start(test::binaryPath(), {});
}

void stopApplication(QProcess& app)
{
    app.terminate();
    if (!app.waitForFinished(10000)) {
        app.kill();
        app.waitForFinished();
    }
}

const QRegularExpression currentBody(QStringLiteral(R"(^Currently -?\d+(\.\d)? %\.$)"));

} // namespace

TEST(NotifierEndToEnd, ARuleFiringInTheApplicationPostsExactlyOneNotification)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address.isEmpty()) << "dbus-daemon did not start";
    QDBusConnection connection = bus.connect();
    ASSERT_TRUE(connection.isConnected());
    FakeNotificationService service;
    ASSERT_TRUE(connection.registerVirtualObject("/org/freedesktop/Notifications", &service));
    ASSERT_TRUE(connection.registerService("org.freedesktop.Notifications"));

    QTemporaryDir home;
    QProcess app;
    startApplication(app, prepareHome(home), bus.address);
    ASSERT_TRUE(app.waitForStarted(10000));

    // The rule holds from the first tick, but the first five seconds after launch stay silent.
    EXPECT_TRUE(test::waitUntil([&] { return !service.received.empty(); }, 20000));
    // Further ticks while the rule keeps holding must not repeat it.
    test::waitUntil([] { return false; }, 2500);
    stopApplication(app);

    ASSERT_EQ(service.received.size(), 1u) << app.readAllStandardError().toStdString();
    const Received& n = service.received[0];
    EXPECT_EQ(n.appName, "Pulsebar");
    EXPECT_FALSE(n.icon.isEmpty());
    EXPECT_EQ(n.summary, "CPU usage is above -1 %");
    EXPECT_TRUE(currentBody.match(n.body).hasMatch()) << n.body.toStdString();
    EXPECT_TRUE(n.hints.contains("sound-name"));
    // Notification centres group by the desktop entry: the installed one is named after the app id.
    EXPECT_EQ(n.hints.value("desktop-entry").toString(), "org.pulsebar.Pulsebar");
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
}

TEST(NotifierEndToEnd, WithoutANotificationServiceThePostBecomesALogLine)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address.isEmpty()) << "dbus-daemon did not start";
    QTemporaryDir home;
    QProcess app;
    startApplication(app, prepareHome(home), bus.address);
    ASSERT_TRUE(app.waitForStarted(10000));
    QByteArray err;
    test::waitUntil([&] {
        err += app.readAllStandardError();
        return err.contains("Pulsebar notification:");
    }, 20000);
    stopApplication(app);
    err += app.readAllStandardError();

    const QString text = QString::fromUtf8(err);
    EXPECT_TRUE(text.contains("Notifications need a desktop notification service.\n")) << err.toStdString();
    const QRegularExpression line(QStringLiteral(R"(Pulsebar notification: CPU usage is above -1 % — Currently -?\d+(\.\d)? %\.\n)"));
    EXPECT_EQ(text.count(line), 1) << err.toStdString();
}

TEST(NotifierEndToEnd, TheFirstStartAsksOnceToStartAtLoginAndItsButtonWritesTheEntry)
{
    PrivateBus bus;
    ASSERT_FALSE(bus.address.isEmpty()) << "dbus-daemon did not start";
    QDBusConnection connection = bus.connect();
    FakeNotificationService service;
    ASSERT_TRUE(connection.registerVirtualObject("/org/freedesktop/Notifications", &service));
    ASSERT_TRUE(connection.registerService("org.freedesktop.Notifications"));

    QTemporaryDir home;
    const QString preferences = home.path() + "/.config/pulsebar/preferences.json";
    test::writeFile(preferences, R"({"PulsebarConfig.v1": {"pingHost": "127.0.0.1"}})");
    QProcess app;
    startApplication(app, home.path(), bus.address);
    ASSERT_TRUE(app.waitForStarted(10000));
    const auto question = [&]() -> const Received* {
        for (const Received& n : service.received)
            if (n.summary == "Start Pulsebar when you log in?")
                return &n;
        return nullptr;
    };
    ASSERT_TRUE(test::waitUntil([&] { return question() != nullptr; }, 20000)) << app.readAllStandardError().toStdString();
    ASSERT_EQ(question()->actions.size(), 2);
    EXPECT_EQ(question()->actions[1], "Start at Login");
    const uint id = uint(question() - service.received.data()) + 1; // the service numbers them from 1

    QDBusMessage chosen = QDBusMessage::createSignal("/org/freedesktop/Notifications", "org.freedesktop.Notifications",
                                                     "ActionInvoked");
    chosen << id << question()->actions[0];
    const QString entry = home.path() + "/.config/autostart/org.pulsebar.Pulsebar.desktop";
    // Clicked until it takes: the application may not have read the notification's id yet.
    EXPECT_TRUE(test::waitUntil([&] { return connection.send(chosen) && QFile::exists(entry); }, 10000));
    stopApplication(app);
    EXPECT_TRUE(QString::fromUtf8(test::readFile(entry)).contains("\nExec=" + test::binaryPath() + "\n"));
    // Asked once: the answer is remembered whatever it was.
    EXPECT_TRUE(QString::fromUtf8(test::readFile(preferences)).contains(R"("startAtLogin.asked": true)"));
}
