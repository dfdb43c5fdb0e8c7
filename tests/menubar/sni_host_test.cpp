// The built pulsebar against real StatusNotifierItem hosts (run_with_sni_host.sh starts them): what
// each item exports, its menu, quitting through the menu, and one instance per session.
#include "../support/test_support.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QJsonArray>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace pulsebar;

namespace {

bool withRealHosts()
{
    return qEnvironmentVariableIsSet("PULSEBAR_SNI_TEST");
}

QVariant property(const QString& service, const QString& path, const QString& interface, const QString& name)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, "org.freedesktop.DBus.Properties", "Get");
    call << interface << name;
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return {};
    return reply.arguments().first().value<QDBusVariant>().variant();
}

QStringList registeredItems()
{
    return property("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher", "org.kde.StatusNotifierWatcher",
                    "RegisteredStatusNotifierItems")
        .toStringList();
}

// "NAME" or "NAME/PATH", as watchers list them.
std::pair<QString, QString> serviceAndPath(const QString& entry)
{
    const qsizetype slash = entry.indexOf('/');
    if (slash < 0)
        return {entry, "/StatusNotifierItem"};
    return {entry.left(slash), entry.mid(slash)};
}

struct ExportedItem {
    QString service;
    QString id;
    QString title;
    QString category;
    QString label;
    QString guide;
    std::vector<int> pixmapSizes;
    QString menuPath;
};

ExportedItem exported(const QString& entry)
{
    const auto located = serviceAndPath(entry);
    const QString service = located.first, path = located.second;
    const auto get = [&](const char* name) { return property(service, path, "org.kde.StatusNotifierItem", name); };
    ExportedItem item{service,
                      get("Id").toString(),
                      get("Title").toString(),
                      get("Category").toString(),
                      get("XAyatanaLabel").toString(),
                      get("XAyatanaLabelGuide").toString(),
                      {},
                      get("Menu").value<QDBusObjectPath>().path()};
    const QDBusArgument pixmaps = get("IconPixmap").value<QDBusArgument>();
    pixmaps.beginArray();
    while (!pixmaps.atEnd()) {
        int width = 0, height = 0;
        QByteArray data;
        pixmaps.beginStructure();
        pixmaps >> width >> height >> data;
        pixmaps.endStructure();
        if (width == height && data.size() == width * height * 4)
            item.pixmapSizes.push_back(width);
    }
    pixmaps.endArray();
    return item;
}

struct MenuEntry {
    int id;
    QString label; // "-" for a separator
    bool enabled;
    std::vector<MenuEntry> children;
};

// One (ia{sv}av) layout entry, the children being variants of the same structure.
MenuEntry readEntry(const QDBusArgument& argument)
{
    int id = 0;
    QVariantMap properties;
    argument.beginStructure();
    argument >> id >> properties;
    MenuEntry out{id, properties.value("type").toString() == "separator" ? "-" : properties.value("label").toString(),
                  properties.value("enabled", true).toBool(), {}};
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        out.children.push_back(readEntry(child.variant().value<QDBusArgument>()));
    }
    argument.endArray();
    argument.endStructure();
    return out;
}

MenuEntry menuOf(const QString& service, const QString& path)
{
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, "com.canonical.dbusmenu", "GetLayout");
    call << 0 << -1 << QStringList();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) {
        ADD_FAILURE() << "GetLayout: " << reply.errorMessage().toStdString();
        return {};
    }
    return readEntry(reply.arguments().at(1).value<QDBusArgument>());
}

// Every window on the X server, as xwininfo lists them (a title appears in double quotes).
QString windowTitles()
{
    QProcess xwininfo;
    xwininfo.start("xwininfo", {"-root", "-tree"});
    xwininfo.waitForFinished(5000);
    return QString::fromUtf8(xwininfo.readAllStandardOutput());
}

QStringList labels(const std::vector<MenuEntry>& entries)
{
    QStringList out;
    for (const MenuEntry& e : entries)
        out << e.label;
    return out;
}

class SNIHost : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!withRealHosts())
            GTEST_SKIP() << "needs a StatusNotifierWatcher and host (run_with_sni_host.sh)";
        ASSERT_TRUE(test::waitUntil(
            [] {
                return QDBusConnection::sessionBus().interface()->isServiceRegistered("org.kde.StatusNotifierWatcher");
            },
            15000));
    }

    void start(QProcess& app, const QJsonObject& config)
    {
        test::writeConfig(home.path(), config);
        QProcessEnvironment env = test::isolatedEnvironment(home.path());
        env.insert("QT_QPA_PLATFORM", "xcb");
        app.setProcessEnvironment(env);
        app.start(test::binaryPath(), {});
        ASSERT_TRUE(app.waitForStarted());
    }

    QTemporaryDir home;
};

QJsonObject module(const char* kind, const char* style)
{
    return {{"kind", kind}, {"enabled", true}, {"style", style}};
}

} // namespace

TEST_F(SNIHost, EachModuleIsAnItemWithItsLabelIconsAndMenuAndQuitEndsTheApp)
{
    QProcess app;
    start(app, {{"modules", QJsonArray{module("cpu", "graphAndText"), module("memory", "text"),
                                       module("network", "text"), module("disks", "icon")}}});
    ASSERT_TRUE(test::waitUntil([] { return registeredItems().size() == 4; }, 20000))
        << registeredItems().join(' ').toStdString() << app.readAllStandardError().toStdString();

    // In the order of the modules: registered one after another, and status-notifier-watcher lists the
    // newest first (gtk-sni-tray shows them oldest first).
    std::vector<ExportedItem> items;
    for (const QString& entry : registeredItems())
        items.insert(items.begin(), exported(entry));
    QStringList ids, titles;
    for (const ExportedItem& item : items) {
        ids << item.id;
        titles << item.title;
        EXPECT_EQ(item.category, "Hardware");
        EXPECT_EQ(item.pixmapSizes, (std::vector<int>{16, 22, 24, 32, 48, 64})) << item.id.toStdString();
    }
    EXPECT_EQ(ids, (QStringList{"pulsebar-cpu", "pulsebar-memory", "pulsebar-network", "pulsebar-disks"}));
    EXPECT_EQ(titles, (QStringList{"Pulsebar CPU", "Pulsebar Memory", "Pulsebar Network", "Pulsebar Disk"}));

    // Labels: one line per item, as wide as its guide; the icon style has none.
    EXPECT_TRUE(items[0].label.endsWith('%')) << items[0].label.toStdString();
    EXPECT_EQ(items[0].guide, "100%");
    EXPECT_EQ(items[0].label.size(), 4);
    EXPECT_TRUE(items[2].label.contains("↑") && items[2].label.contains("↓") && !items[2].label.contains('\n'))
        << items[2].label.toStdString();
    EXPECT_TRUE(items[3].label.isEmpty());

    // What generic D-Bus tools see of an item: its interface described, every property at once, and a
    // call with the wrong arguments refused.
    QDBusMessage introspect = QDBusMessage::createMethodCall(items[0].service, "/StatusNotifierItem",
                                                             "org.freedesktop.DBus.Introspectable", "Introspect");
    const QString xml = QDBusConnection::sessionBus().call(introspect, QDBus::Block, 5000).arguments().value(0).toString();
    EXPECT_TRUE(xml.contains(R"x(<property name="IconPixmap" type="a(iiay)" access="read"/>)x")) << xml.toStdString();
    EXPECT_TRUE(xml.contains(R"(<signal name="XAyatanaNewLabel">)")) << xml.toStdString();
    QDBusMessage getAll = QDBusMessage::createMethodCall(items[0].service, "/StatusNotifierItem",
                                                         "org.freedesktop.DBus.Properties", "GetAll");
    getAll << QString("org.kde.StatusNotifierItem");
    const QVariantMap all = qdbus_cast<QVariantMap>(
        QDBusConnection::sessionBus().call(getAll, QDBus::Block, 5000).arguments().value(0).value<QDBusArgument>());
    EXPECT_EQ(all.value("Id").toString(), "pulsebar-cpu");
    EXPECT_EQ(all.value("XAyatanaOrderingIndex").toUInt(), 1u);
    QDBusMessage badActivate = QDBusMessage::createMethodCall(items[0].service, "/StatusNotifierItem",
                                                              "org.kde.StatusNotifierItem", "Activate");
    badActivate << QString("not a point");
    EXPECT_EQ(QDBusConnection::sessionBus().call(badActivate, QDBus::Block, 5000).errorName(),
              "org.freedesktop.DBus.Error.InvalidArgs");

    // The menu: keep-awake with its choices, settings, quit.
    const MenuEntry root = menuOf(items[0].service, items[0].menuPath);
    EXPECT_EQ(labels(root.children), (QStringList{"Keep Awake", "-", "Pulsebar Settings…", "-", "Quit Pulsebar"}));
    ASSERT_FALSE(root.children.empty());
    EXPECT_EQ(labels(root.children[0].children),
              (QStringList{"30 minutes", "1 hour", "2 hours", "Until turned off", "-", "Turn Off"}));
    EXPECT_FALSE(root.children[0].children.back().enabled); // nothing to turn off

    // A second start hands over to the first and ends; no second set of items appears.
    const test::RunResult second = test::runPulsebar({}, home.path(), {},
                                                     [] {
                                                         QProcessEnvironment extra;
                                                         extra.insert("QT_QPA_PLATFORM", "xcb");
                                                         return extra;
                                                     }(),
                                                     20000);
    EXPECT_TRUE(second.finished);
    EXPECT_EQ(second.exitCode, 0) << second.err.toStdString();
    EXPECT_EQ(registeredItems().size(), 4);
    // ... and the first one opens its settings window.
    EXPECT_TRUE(test::waitUntil([] { return windowTitles().contains("\"Pulsebar Settings\""); }, 15000));

    // "Quit Pulsebar" chosen in the tray's menu ends the application cleanly.
    QDBusMessage event = QDBusMessage::createMethodCall(items[0].service, items[0].menuPath, "com.canonical.dbusmenu",
                                                        "Event");
    event << root.children.back().id << QString("clicked") << QVariant::fromValue(QDBusVariant(QString()))
          << uint(0);
    QDBusConnection::sessionBus().call(event, QDBus::Block, 5000);
    ASSERT_TRUE(app.waitForFinished(15000));
    EXPECT_EQ(app.exitStatus(), QProcess::NormalExit);
    const QByteArray errors = app.readAllStandardError();
    EXPECT_EQ(app.exitCode(), 0) << errors.right(4000).constData();
    EXPECT_FALSE(errors.contains("AddressSanitizer")) << errors.right(4000).constData();
    EXPECT_TRUE(test::waitUntil([] { return registeredItems().isEmpty(); }, 10000));
}

namespace {

// What the items and their menus tell the bus, as a monitor of the whole bus sees it.
class BusSignals {
public:
    BusSignals()
    {
        m_monitor.setProcessChannelMode(QProcess::MergedChannels);
        m_monitor.start("dbus-monitor", {"--session", "type='signal',interface='org.kde.StatusNotifierItem'",
                                         "type='signal',interface='com.canonical.dbusmenu'"});
        m_monitor.waitForStarted();
        test::waitUntil([] { return false; }, 1000); // until it listens
    }
    ~BusSignals()
    {
        m_monitor.kill();
        m_monitor.waitForFinished();
    }
    // The signals seen since the last call, one "interface member" line each.
    QStringList take()
    {
        test::waitUntil([] { return false; }, 300);
        QStringList out;
        for (const QByteArray& line : m_monitor.readAll().split('\n'))
            if (line.startsWith("signal ") && line.contains("member="))
                out << QString::fromUtf8(line.mid(line.indexOf("interface=")));
        return out;
    }

private:
    QProcess m_monitor;
};

} // namespace

TEST_F(SNIHost, ATickThatChangesNoShownValueSendsNothing)
{
    // A copy of a still machine: its counters never move, so after the first ticks no shown value changes.
    QTemporaryDir root;
    ASSERT_EQ(QProcess::execute("cp", {"-a", test::fixture("monitors/sys-basic-1") + "/.", root.path()}), 0);
    QProcess app;
    QProcessEnvironment extra;
    extra.insert("PULSEBAR_SYSROOT", root.path());
    test::writeConfig(home.path(), {{"updateInterval", 0.25},
                                    {"modules", QJsonArray{module("cpu", "text"), module("memory", "text")}}});
    QProcessEnvironment env = test::isolatedEnvironment(home.path());
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.insert("PULSEBAR_SYSROOT", root.path());
    app.setProcessEnvironment(env);
    app.start(test::binaryPath(), {});
    ASSERT_TRUE(app.waitForStarted());
    ASSERT_TRUE(test::waitUntil([] { return registeredItems().size() == 2; }, 20000))
        << app.readAllStandardError().toStdString();
    test::waitUntil([] { return false; }, 1500); // the first ticks: rates appear once there are two samples

    BusSignals bus;
    bus.take();
    test::waitUntil([] { return false; }, 2500); // ten ticks
    EXPECT_EQ(bus.take(), QStringList());

    // A value that changes is sent: the memory item's label and tooltip, nothing of the CPU item.
    QByteArray meminfo = test::readFile(root.path() + "/proc/meminfo");
    ASSERT_TRUE(meminfo.contains("MemAvailable:    8000000 kB"));
    meminfo.replace("MemAvailable:    8000000 kB", "MemAvailable:    4000000 kB"); // 4 GB more in use
    test::writeFile(root.path() + "/proc/meminfo", meminfo);
    ASSERT_TRUE(test::waitUntil([&] { return !bus.take().isEmpty(); }, 5000));

    app.terminate();
    app.waitForFinished(10000);
}
