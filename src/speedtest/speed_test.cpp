#include "speedtest/speed_test.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <cmath>

namespace pulsebar {

namespace {

std::optional<double> number(const QJsonObject& object, const char* key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isDouble() || !std::isfinite(value.toDouble()))
        return std::nullopt;
    return value.toDouble();
}

std::optional<QDateTime> dateOf(const QJsonValue& value)
{
    if (value.isDouble() && std::isfinite(value.toDouble()))
        return QDateTime::fromMSecsSinceEpoch(qint64(value.toDouble() * 1000.0), Qt::UTC);
    const QDateTime parsed = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (parsed.isValid())
        return parsed;
    return std::nullopt;
}

} // namespace

QJsonObject SpeedTestResult::toJson() const
{
    QJsonObject json{{"date", date.toUTC().toString(Qt::ISODateWithMs)}, {"download", download}, {"upload", upload}};
    if (responsiveness)
        json.insert("responsiveness", *responsiveness);
    if (baseRTT)
        json.insert("baseRTT", *baseRTT);
    if (interface)
        json.insert("interface", *interface);
    if (dataUsed)
        json.insert("dataUsed", *dataUsed);
    return json;
}

std::optional<SpeedTestResult> SpeedTestResult::fromJson(const QJsonValue& value)
{
    const QJsonObject object = value.toObject();
    const auto date = dateOf(object.value(QLatin1String("date")));
    const auto download = number(object, "download");
    const auto upload = number(object, "upload");
    if (!date || !download || !upload)
        return std::nullopt;
    SpeedTestResult result{*date, *download, *upload, number(object, "responsiveness"), number(object, "baseRTT"),
                           std::nullopt, number(object, "dataUsed")};
    if (const QJsonValue name = object.value(QLatin1String("interface")); name.isString())
        result.interface = name.toString();
    return result;
}

SpeedTest::Command SpeedTest::ownMeasurement()
{
    // Our own executable is always there, unlike a system tool.
    return {QCoreApplication::applicationFilePath(), {"--network-quality", "-c", "-M", "20"}};
}

SpeedTest::SpeedTest(Preferences& preferences, Command command, QObject* parent)
    : QObject(parent), m_preferences(preferences), m_command(std::move(command)),
      m_results(decode(preferences.value(preferencesKey)))
{
    m_progress.setInterval(500);
    connect(&m_progress, &QTimer::timeout, this, &SpeedTest::changed);
}

SpeedTest::~SpeedTest()
{
    if (m_process) {
        m_process->disconnect(this);
        m_process->kill();
        m_process->waitForFinished(1000);
    }
}

void SpeedTest::start()
{
    if (m_state.kind == State::Kind::running || !QFileInfo(m_command.program).isExecutable())
        return;
    m_process = std::make_unique<QProcess>();
    QProcess* process = m_process.get();
    process->setProgram(m_command.program);
    process->setArguments(m_command.arguments);
    connect(process, &QProcess::finished, this, [this, process](int status, QProcess::ExitStatus reason) {
        finish(process->readAllStandardOutput(), status, reason);
    });
    connect(process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        m_process.release()->deleteLater();
        m_progress.stop();
        setState({State::Kind::failed, {}, QStringLiteral("Couldn't start the test.")});
    });
    setState({State::Kind::running, QDateTime::currentDateTime(), {}});
    m_progress.start();
    process->start();
}

void SpeedTest::cancel()
{
    if (m_process && m_state.kind == State::Kind::running)
        m_process->terminate();
}

void SpeedTest::finish(const QByteArray& data, int status, QProcess::ExitStatus reason)
{
    m_progress.stop();
    // The process object is still delivering this signal; it goes once control returns to the loop.
    if (m_process)
        m_process.release()->deleteLater();
    if (reason == QProcess::CrashExit) {
        setState({});
        return;
    }
    const auto result = parse(data, QDateTime::currentDateTime());
    if (!result) {
        setState({State::Kind::failed, {},
                  status != 0 ? QStringLiteral("The test failed. Check your connection.")
                              : QStringLiteral("The test returned no result.")});
        return;
    }
    m_results.insert(m_results.begin(), *result);
    if (m_results.size() > size_t(maximumResults))
        m_results.resize(maximumResults);
    save();
    setState({});
}

void SpeedTest::setState(State state)
{
    m_state = std::move(state);
    Q_EMIT changed();
}

void SpeedTest::save()
{
    QJsonArray list;
    for (const SpeedTestResult& result : m_results)
        list.append(result.toJson());
    m_preferences.setValue(preferencesKey, list);
}

std::optional<SpeedTestResult> SpeedTest::parse(const QByteArray& data, const QDateTime& now)
{
    const QJsonDocument document = QJsonDocument::fromJson(data);
    if (!document.isObject())
        return std::nullopt;
    const QJsonObject report = document.object();
    const auto download = number(report, "dl_throughput");
    const auto upload = number(report, "ul_throughput");
    if (!download || !upload)
        return std::nullopt;
    // The report counts bits per second; results keep bytes per second.
    SpeedTestResult result{now, *download * 0.125, *upload * 0.125, number(report, "responsiveness"),
                           number(report, "base_rtt"), std::nullopt, std::nullopt};
    const auto downloaded = number(report, "dl_bytes_transferred");
    const auto uploaded = number(report, "ul_bytes_transferred");
    if (downloaded || uploaded)
        result.dataUsed = downloaded.value_or(0) + uploaded.value_or(0);
    if (const QJsonValue name = report.value(QLatin1String("interface_name")); name.isString())
        result.interface = name.toString();
    return result;
}

std::vector<SpeedTestResult> SpeedTest::decode(const QJsonValue& saved)
{
    std::vector<SpeedTestResult> results;
    for (const QJsonValue& value : saved.toArray())
        if (auto result = SpeedTestResult::fromJson(value))
            results.push_back(std::move(*result));
    return results;
}

} // namespace pulsebar
