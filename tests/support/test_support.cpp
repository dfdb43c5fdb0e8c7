#include "test_support.h"

#include "platform/linux/hwmon_sensor_source.h"
#include "platform/linux/linux_system_readers.h"
#include "platform/linux/power_supply_reader.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QThread>

namespace pulsebar::test {

ScopedEnv::ScopedEnv(const char* name, const QString& value) : m_name(name)
{
    if (qEnvironmentVariableIsSet(name))
        m_old = qgetenv(name);
    qputenv(name, value.toLocal8Bit());
}

ScopedEnv::~ScopedEnv()
{
    if (m_old)
        qputenv(m_name.constData(), *m_old);
    else
        qunsetenv(m_name.constData());
}

QString fixture(const QString& relative)
{
    return QStringLiteral(PULSEBAR_FIXTURES) + '/' + relative;
}

QString binaryPath()
{
    return QStringLiteral(PULSEBAR_BINARY);
}

void writeFile(const QString& path, const QByteArray& contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(contents);
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeConfig(const QString& home, QJsonObject config)
{
    if (!config.contains("pingHost"))
        config["pingHost"] = "127.0.0.1";
    // A returning user: the first start's question about starting at login was asked long ago.
    writeFile(home + "/.config/pulsebar/preferences.json",
              QJsonDocument(QJsonObject{{"PulsebarConfig.v1", config}, {"startAtLogin.asked", true}}).toJson());
}

IsolatedSettings::IsolatedSettings() : preferences(dir.path() + "/preferences.json"), settings(preferences)
{
    Config config = settings.config();
    config.pingHost = "127.0.0.1";
    settings.setConfig(config);
}

QProcessEnvironment isolatedEnvironment(const QString& home)
{
    // Without a configuration of its own, a run pings loopback instead of the public default.
    if (!QFile::exists(home + "/.config/pulsebar/preferences.json"))
        writeConfig(home, {});
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home);
    env.insert("XDG_CONFIG_HOME", home + "/.config");
    env.insert("XDG_DATA_HOME", home + "/.local/share");
    env.insert("QT_QPA_PLATFORM", "offscreen");
    return env;
}

RunResult runPulsebar(const QStringList& arguments, const QString& home, const QByteArray& input,
                      const QProcessEnvironment& extra, int timeoutMs)
{
    QProcess process;
    QProcessEnvironment env = isolatedEnvironment(home);
    for (const QString& key : extra.keys())
        env.insert(key, extra.value(key));
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(home); // modes that write into the current folder write into the home
    process.start(binaryPath(), arguments);
    RunResult result;
    if (!process.waitForStarted(timeoutMs))
        return result;
    if (!input.isEmpty())
        process.write(input);
    process.closeWriteChannel();
    result.finished = process.waitForFinished(timeoutMs);
    if (!result.finished) {
        process.kill();
        process.waitForFinished();
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

bool waitUntil(const std::function<bool()>& predicate, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!predicate()) {
        if (deadline.hasExpired())
            return predicate();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

namespace {

struct NoNetwork : NetworkReader {
    std::map<QString, InterfaceCounters> readCounters() override { return {}; }
    std::map<QString, Addresses> readAddresses() override { return {}; }
    GlobalNetworkState readGlobalState() override { return {}; }
    std::optional<WiFiReading> readWiFi() override { return std::nullopt; }
    std::map<QString, QString> readDisplayNames() override { return {}; }
    std::map<QString, QString> readHardwareAddresses() override { return {}; }
    bool isBridge(const QString&) override { return false; }
};

} // namespace

SystemReaders fixtureReaders(const QString& root)
{
    const RootedFileReader files(root.toStdString());
    SystemReaders readers = linuxSystemReaders(files);
    readers.network = std::make_unique<NoNetwork>();
    readers.sensors = std::make_shared<HwmonSensorSource>(files); // never the machine's own SMC
    readers.battery = std::make_unique<PowerSupplyReader>(files, false); // nor its system bus
    return readers;
}

} // namespace pulsebar::test
