#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace pulsebar::NetworkQualityMethod {

// The constants of the responsiveness method, at the IETF draft's defaults.
constexpr int intervalMs = 1000;      // one goodput and probe sample per second
constexpr int movingAverageSpan = 4;  // intervals in each moving average
constexpr double stabilityTolerance = 0.05; // moving averages within 5 % of each other count as stable
constexpr double trimmedPercentile = 0.95;  // trimmed means drop the slowest 5 %
constexpr int initialFlows = 1;
constexpr int addedFlowsPerInterval = 1;
constexpr int maximumFlows = 16;
constexpr int probeSpacingMs = 200;   // one foreign and one self probe this often while loaded

// The server's description of itself. Both the draft's member names and the ones macOS's tool reads
// ("small_https_download_url" and its siblings) are accepted.
struct ServerConfig {
    QUrl largeDownload;
    QUrl smallDownload;
    QUrl upload;
    QString testEndpoint; // the host that answers; the configuration's host name when it names none
};

// Relative URLs resolve against the configuration's own address. On failure `error` says why.
std::optional<ServerConfig> parseServerConfig(const QByteArray& json, const QUrl& configUrl, QString* error);

// Mean of the values after dropping those above the 95th percentile; nullopt for no values.
std::optional<double> trimmedMean(std::vector<double> values);

// Goodput (or responsiveness) is stable once the last `movingAverageSpan` moving averages differ by
// less than the tolerance from the newest one.
bool isStable(const std::vector<double>& movingAverages);

// Round-trip times in milliseconds of one measurement window, by kind.
struct ProbeSamples {
    std::vector<double> tcpHandshake;  // foreign: new connection
    std::vector<double> tlsHandshake;  // foreign: empty over plain HTTP
    std::vector<double> foreignHttp;   // foreign: GET of the small object on the new connection
    std::vector<double> selfHttp;      // self: GET of the small object on a loaded connection
    void append(const ProbeSamples& other);
    bool empty() const;
};

// Round trips per minute: 60000 over the mean of the foreign probes' trimmed means (weight one half)
// and the self probes' trimmed mean (the other half). A kind without samples leaves the average.
std::optional<double> responsivenessRpm(const ProbeSamples& samples);

// "Low" below 300 RPM, "Medium" below 1000, "High" from 1000.
QString responsivenessGrade(double rpm);

struct Report {
    double downloadBitsPerSecond = 0;
    double uploadBitsPerSecond = 0;
    qint64 downloadBytes = 0;
    qint64 uploadBytes = 0;
    int downloadFlows = 0;
    int uploadFlows = 0;
    std::optional<double> responsiveness;
    std::optional<double> baseRtt; // ms
    std::optional<QString> interfaceName;
    QDateTime startDate;
    QDateTime endDate;
    QString testEndpoint;
};

// The machine-readable report (-c) and the human summary.
QJsonObject reportJson(const Report& report);
QString reportSummary(const Report& report);

} // namespace pulsebar::NetworkQualityMethod
