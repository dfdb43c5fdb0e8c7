#include "speedtest/network_quality_method.h"

#include "core/fmt.h"

#include <QJsonDocument>
#include <QJsonValue>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace pulsebar::NetworkQualityMethod {

namespace {

QUrl urlMember(const QJsonObject& urls, std::initializer_list<const char*> names, const QUrl& base)
{
    for (const char* name : names) {
        const QJsonValue value = urls.value(QLatin1String(name));
        if (value.isString() && !value.toString().isEmpty())
            return base.resolved(QUrl(value.toString()));
    }
    return {};
}

bool usable(const QUrl& url)
{
    return url.isValid() && (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http"))
        && !url.host().isEmpty();
}

std::optional<double> mean(const std::vector<double>& values)
{
    if (values.empty())
        return std::nullopt;
    return std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
}

} // namespace

std::optional<ServerConfig> parseServerConfig(const QByteArray& json, const QUrl& configUrl, QString* error)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        *error = QStringLiteral("The test configuration is not a JSON object.");
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    const QJsonObject urls = root.value(QLatin1String("urls")).toObject();
    ServerConfig config;
    config.largeDownload = urlMember(urls, {"large_download_url", "large_https_download_url"}, configUrl);
    config.smallDownload = urlMember(urls, {"small_download_url", "small_https_download_url"}, configUrl);
    config.upload = urlMember(urls, {"upload_url", "https_upload_url"}, configUrl);
    if (!usable(config.largeDownload) || !usable(config.smallDownload) || !usable(config.upload)) {
        *error = QStringLiteral("The test configuration lacks the download and upload addresses.");
        return std::nullopt;
    }
    config.testEndpoint = root.value(QLatin1String("test_endpoint")).toString();
    if (config.testEndpoint.isEmpty())
        config.testEndpoint = config.largeDownload.host();
    return config;
}

std::optional<double> trimmedMean(std::vector<double> values)
{
    if (values.empty())
        return std::nullopt;
    std::sort(values.begin(), values.end());
    const auto kept = std::max<size_t>(1, size_t(std::ceil(double(values.size()) * trimmedPercentile)));
    values.resize(std::min(kept, values.size()));
    return mean(values);
}

bool isStable(const std::vector<double>& movingAverages)
{
    if (int(movingAverages.size()) < movingAverageSpan)
        return false;
    const double newest = movingAverages.back();
    if (newest <= 0)
        return false;
    return std::all_of(movingAverages.end() - movingAverageSpan, movingAverages.end(),
                       [newest](double average) { return std::abs(average - newest) <= stabilityTolerance * newest; });
}

void ProbeSamples::append(const ProbeSamples& other)
{
    auto join = [](std::vector<double>& into, const std::vector<double>& from) {
        into.insert(into.end(), from.begin(), from.end());
    };
    join(tcpHandshake, other.tcpHandshake);
    join(tlsHandshake, other.tlsHandshake);
    join(foreignHttp, other.foreignHttp);
    join(selfHttp, other.selfHttp);
}

bool ProbeSamples::empty() const
{
    return tcpHandshake.empty() && tlsHandshake.empty() && foreignHttp.empty() && selfHttp.empty();
}

std::optional<double> responsivenessRpm(const ProbeSamples& samples)
{
    std::vector<double> foreignMeans;
    for (const auto* kind : {&samples.tcpHandshake, &samples.tlsHandshake, &samples.foreignHttp})
        if (const auto value = trimmedMean(*kind))
            foreignMeans.push_back(*value);
    std::vector<double> halves;
    if (const auto foreign = mean(foreignMeans))
        halves.push_back(*foreign);
    if (const auto self = trimmedMean(samples.selfHttp))
        halves.push_back(*self);
    const auto roundTripMs = mean(halves);
    if (!roundTripMs)
        return std::nullopt;
    // A loopback round trip can measure as zero milliseconds; cap at one microsecond.
    return 60000.0 / std::max(*roundTripMs, 0.001);
}

QString responsivenessGrade(double rpm)
{
    if (rpm < 300)
        return QStringLiteral("Low");
    if (rpm < 1000)
        return QStringLiteral("Medium");
    return QStringLiteral("High");
}

QJsonObject reportJson(const Report& report)
{
    QJsonObject json{
        {"dl_throughput", std::round(report.downloadBitsPerSecond)},
        {"ul_throughput", std::round(report.uploadBitsPerSecond)},
        {"dl_bytes_transferred", double(report.downloadBytes)},
        {"ul_bytes_transferred", double(report.uploadBytes)},
        {"dl_flows", report.downloadFlows},
        {"ul_flows", report.uploadFlows},
        {"start_date", report.startDate.toString(Qt::ISODate)},
        {"end_date", report.endDate.toString(Qt::ISODate)},
        {"test_endpoint", report.testEndpoint},
    };
    if (report.responsiveness)
        json.insert("responsiveness", std::round(*report.responsiveness));
    if (report.baseRtt)
        json.insert("base_rtt", std::round(*report.baseRtt * 1000.0) / 1000.0);
    if (report.interfaceName)
        json.insert("interface_name", *report.interfaceName);
    return json;
}

QString reportSummary(const Report& report)
{
    QString text = QStringLiteral("==== SUMMARY ====\n");
    text += QStringLiteral("Download capacity: %1 (%2 flows)\n")
                .arg(Fmt::rate(report.downloadBitsPerSecond / 8.0, true)).arg(report.downloadFlows);
    text += QStringLiteral("Upload capacity: %1 (%2 flows)\n")
                .arg(Fmt::rate(report.uploadBitsPerSecond / 8.0, true)).arg(report.uploadFlows);
    if (report.responsiveness)
        text += QStringLiteral("Responsiveness: %1 (%2 RPM)\n")
                    .arg(responsivenessGrade(*report.responsiveness))
                    .arg(Fmt::number(*report.responsiveness, 0));
    else
        text += QStringLiteral("Responsiveness: not measured\n");
    if (report.baseRtt)
        text += QStringLiteral("Idle latency: %1 ms\n").arg(Fmt::number(*report.baseRtt, 1));
    text += QStringLiteral("Server: %1%2\n")
                .arg(report.testEndpoint,
                     report.interfaceName ? QStringLiteral(" (via %1)").arg(*report.interfaceName) : QString());
    return text;
}

} // namespace pulsebar::NetworkQualityMethod
