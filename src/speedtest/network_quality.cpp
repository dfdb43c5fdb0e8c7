#include "speedtest/network_quality.h"

#include "core/paths.h"

#include <QCoreApplication>
#include <QHttp2Configuration>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkInterface>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslSocket>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>

namespace pulsebar {

using namespace NetworkQualityMethod;

namespace {

// Leaves room after the last measured interval to close the connections and print the report.
constexpr qint64 closingMarginMs = 750;
constexpr int idleLatencySamples = 5;

const QByteArray userAgent = QByteArrayLiteral("pulsebar/" PULSEBAR_VERSION " networkQuality");

// The body every upload flow sends, shared: incompressible bytes. A byte array, unlike a device, is
// handed to the network thread whole, so uploading never waits on the main thread for more data.
const QByteArray& uploadBody()
{
    static const QByteArray body = [] {
        QByteArray block(64 * 1024, Qt::Uninitialized);
        std::mt19937 generator(20240229);
        for (char& byte : block)
            byte = char(generator());
        return block.repeated(512); // 32 MiB; a flow that sends it all starts another
    }();
    return body;
}

// A probe on a connection of its own. The handshake times are only visible on a socket we hold, so the
// probe opens one and speaks just enough HTTP/1.1 over it to fetch the small object once.
class ForeignProbe : public QObject {
public:
    using Done = std::function<void(ForeignProbe&)>;

    ForeignProbe(const QUrl& url, const QSslConfiguration& tls, QObject* parent, Done done)
        : QObject(parent), m_url(url), m_done(std::move(done))
    {
        m_secure = url.scheme() == QLatin1String("https");
        QSslConfiguration configuration = tls;
        configuration.setAllowedNextProtocols({QByteArrayLiteral("http/1.1")});
        m_socket.setSslConfiguration(configuration);
        // The handshake is timed from the resolved address, without the name lookup.
        connect(&m_socket, &QAbstractSocket::hostFound, this, [this] { m_markNs = m_clock.nsecsElapsed(); });
        connect(&m_socket, &QAbstractSocket::connected, this, [this] {
            tcpMs = lap();
            localAddress = m_socket.localAddress();
            if (m_secure)
                m_socket.startClientEncryption();
            else
                sendRequest();
        });
        connect(&m_socket, &QSslSocket::encrypted, this, [this] {
            tlsMs = lap();
            sendRequest();
        });
        connect(&m_socket, &QIODevice::readyRead, this, [this] {
            m_response += m_socket.readAll();
            if (responseComplete(false))
                finish();
        });
        connect(&m_socket, &QAbstractSocket::disconnected, this, [this] {
            m_response += m_socket.readAll();
            responseComplete(true);
            finish();
        });
        connect(&m_socket, &QAbstractSocket::errorOccurred, this, [this] { finish(); });
        m_clock.start();
        m_socket.connectToHost(url.host(), quint16(url.port(m_secure ? 443 : 80)));
    }

    // Closing the socket while the probe goes away must not report a result.
    ~ForeignProbe() override { m_finished = true; }

    std::optional<double> tcpMs;
    std::optional<double> tlsMs;
    std::optional<double> httpMs;
    QHostAddress localAddress;

private:
    double lap()
    {
        const qint64 now = m_clock.nsecsElapsed();
        const double ms = double(now - m_markNs) / 1e6;
        m_markNs = now;
        return ms;
    }

    void sendRequest()
    {
        const QString host = m_url.port() > 0 ? QStringLiteral("%1:%2").arg(m_url.host()).arg(m_url.port()) : m_url.host();
        m_socket.write("GET " + m_url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment)
                       + " HTTP/1.1\r\nHost: " + QUrl::toAce(host) + "\r\nUser-Agent: " + userAgent
                       + "\r\nAccept-Encoding: identity\r\nConnection: close\r\n\r\n");
        m_markNs = m_clock.nsecsElapsed();
        m_requestSent = true;
    }

    // True once the whole response is in: its declared length, or the end of the connection.
    bool responseComplete(bool closed)
    {
        if (httpMs || !m_requestSent)
            return bool(httpMs);
        const qsizetype headerEnd = m_response.indexOf("\r\n\r\n");
        if (headerEnd < 0 || !m_response.startsWith("HTTP/1.1 2"))
            return false;
        qint64 declared = -1;
        for (const QByteArray& line : m_response.left(headerEnd).split('\n'))
            if (line.toLower().startsWith("content-length:"))
                declared = line.mid(15).trimmed().toLongLong();
        const qint64 body = m_response.size() - headerEnd - 4;
        if ((declared >= 0 && body >= declared) || (declared < 0 && closed))
            httpMs = lap();
        return bool(httpMs);
    }

    void finish()
    {
        if (m_finished)
            return;
        m_finished = true;
        m_socket.abort();
        m_done(*this);
    }

    QUrl m_url;
    Done m_done;
    bool m_secure = false;
    bool m_requestSent = false;
    bool m_finished = false;
    QSslSocket m_socket;
    QElapsedTimer m_clock;
    qint64 m_markNs = 0;
    QByteArray m_response;
};

std::optional<QString> interfaceNamed(const QHostAddress& address)
{
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces())
        for (const QNetworkAddressEntry& entry : interface.addressEntries())
            if (entry.ip().isEqual(address, QHostAddress::TolerantConversion))
                return interface.name();
    return std::nullopt;
}

} // namespace

struct NetworkQuality::Flow {
    std::unique_ptr<QNetworkAccessManager> manager;
    QPointer<QNetworkReply> reply;
    qint64 earlierBytes = 0; // from replies this flow already finished
    qint64 currentBytes = 0;
    qint64 bytes() const { return earlierBytes + currentBytes; }
};

struct NetworkQuality::Phase {
    Direction direction = Direction::download;
    std::vector<std::unique_ptr<Flow>> flows;
    size_t nextSelfProbeFlow = 0;
    std::vector<double> goodput;          // bytes per second of each finished interval
    std::vector<double> goodputAverages;  // moving averages over the last intervals
    std::vector<double> responsivenessAverages;
    std::vector<ProbeSamples> intervalProbes{1}; // the last one belongs to the running interval
    qint64 lastBytes = 0;
    qint64 lastSampleMs = 0;
    qint64 startedMs = 0;
    bool saturated = false;
    QObject probes; // parent of the probes in flight; last, so they go before the samples they fill

    qint64 totalBytes() const
    {
        qint64 total = 0;
        for (const auto& flow : flows)
            total += flow->bytes();
        return total;
    }

    // The probes of the last `intervals` intervals, the running one included.
    ProbeSamples recentProbes(size_t intervals) const
    {
        ProbeSamples samples;
        const size_t from = intervalProbes.size() > intervals ? intervalProbes.size() - intervals : 0;
        for (size_t i = from; i < intervalProbes.size(); ++i)
            samples.append(intervalProbes[i]);
        return samples;
    }
};

NetworkQuality::NetworkQuality(Options options, QObject* parent) : QObject(parent), m_options(std::move(options))
{
    m_deadline.setSingleShot(true);
    m_phaseTimer.setSingleShot(true);
    m_intervalTimer.setInterval(intervalMs);
    m_probeTimer.setInterval(probeSpacingMs);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        fail(QStringLiteral("The test server did not answer within %1 seconds.").arg(m_options.maxSeconds));
    });
    connect(&m_phaseTimer, &QTimer::timeout, this, &NetworkQuality::endPhase);
    connect(&m_intervalTimer, &QTimer::timeout, this, &NetworkQuality::onInterval);
    connect(&m_probeTimer, &QTimer::timeout, this, &NetworkQuality::sendProbes);
}

NetworkQuality::~NetworkQuality() = default;

void NetworkQuality::start()
{
    m_clock = m_options.since;
    if (!m_clock.isValid())
        m_clock.start();
    m_report.startDate = QDateTime::currentDateTime();
    m_deadline.start(std::max<qint64>(1, m_options.maxSeconds * 1000 - closingMarginMs));
    m_control = std::make_unique<QNetworkAccessManager>();
    fetchConfig();
}

qint64 NetworkQuality::msLeft() const
{
    return m_options.maxSeconds * 1000 - closingMarginMs - m_clock.elapsed();
}

QNetworkRequest NetworkQuality::request(const QUrl& url) const
{
    QNetworkRequest request(url);
    request.setRawHeader("Accept-Encoding", "identity");
    request.setRawHeader("User-Agent", userAgent);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, true);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setSslConfiguration(m_options.tls);
    // Qt's default windows of 64 KiB would cap a flow at one window per round trip.
    QHttp2Configuration http2;
    http2.setSessionReceiveWindowSize(64 * 1024 * 1024);
    http2.setStreamReceiveWindowSize(16 * 1024 * 1024);
    request.setHttp2Configuration(http2);
    return request;
}

void NetworkQuality::fetchConfig()
{
    QNetworkReply* reply = m_control->get(request(m_options.configUrl));
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (m_done)
            return;
        if (reply->error() != QNetworkReply::NoError) {
            fail(QStringLiteral("Couldn't read the test configuration from %1: %2")
                     .arg(m_options.configUrl.toString(), reply->errorString()));
            return;
        }
        QString error;
        const auto server = parseServerConfig(reply->readAll(), m_options.configUrl, &error);
        if (!server) {
            fail(error);
            return;
        }
        m_server = *server;
        m_report.testEndpoint = m_server.testEndpoint;
        measureIdleLatency(idleLatencySamples + 1);
    });
}

// Sequential fetches of the small object on one idle connection; the first opens the connection and
// is not counted.
void NetworkQuality::measureIdleLatency(int remaining)
{
    if (remaining == 0) {
        m_report.baseRtt = trimmedMean(m_idleSamples);
        m_deadline.stop();
        startPhase(Direction::download);
        return;
    }
    auto sent = std::make_shared<QElapsedTimer>();
    sent->start();
    QNetworkReply* reply = m_control->get(request(m_server.smallDownload));
    connect(reply, &QNetworkReply::finished, this, [this, reply, sent, remaining] {
        reply->deleteLater();
        if (m_done)
            return;
        if (reply->error() != QNetworkReply::NoError) {
            fail(QStringLiteral("Couldn't reach the test server: %1").arg(reply->errorString()));
            return;
        }
        if (remaining <= idleLatencySamples)
            m_idleSamples.push_back(double(sent->nsecsElapsed()) / 1e6);
        measureIdleLatency(remaining - 1);
    });
}

void NetworkQuality::startPhase(Direction direction)
{
    m_phase = std::make_unique<Phase>();
    m_phase->direction = direction;
    m_phase->startedMs = m_phase->lastSampleMs = m_clock.elapsed();
    // Download takes half of what is left, upload the rest.
    const qint64 left = msLeft();
    m_phaseTimer.start(std::max<qint64>(1, direction == Direction::download ? left / 2 : left));
    for (int i = 0; i < initialFlows; ++i)
        addFlow();
    m_intervalTimer.start();
    m_probeTimer.start();
}

void NetworkQuality::addFlow()
{
    auto flow = std::make_unique<Flow>();
    flow->manager = std::make_unique<QNetworkAccessManager>();
    startLoad(*flow);
    m_phase->flows.push_back(std::move(flow));
}

void NetworkQuality::startLoad(Flow& flow)
{
    flow.earlierBytes += flow.currentBytes;
    flow.currentBytes = 0;
    QNetworkReply* reply;
    if (m_phase->direction == Direction::download) {
        reply = flow.manager->get(request(m_server.largeDownload));
        connect(reply, &QIODevice::readyRead, reply, [reply, &flow] {
            char sink[64 * 1024];
            for (qint64 got; (got = reply->read(sink, sizeof sink)) > 0;)
                flow.currentBytes += got;
        });
    } else {
        QNetworkRequest upload = request(m_server.upload);
        upload.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/octet-stream"));
        reply = flow.manager->post(upload, uploadBody());
        connect(reply, &QNetworkReply::uploadProgress, reply,
                [&flow](qint64 sent, qint64) { flow.currentBytes = std::max(flow.currentBytes, sent); });
    }
    flow.reply = reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] {
        reply->deleteLater();
        if (m_done || !m_phase)
            return;
        // A load that fails before anything moved means the server cannot be used at all.
        if (reply->error() != QNetworkReply::NoError && reply->error() != QNetworkReply::OperationCanceledError
            && m_phase->totalBytes() == 0)
            fail(QStringLiteral("Couldn't reach the test server: %1").arg(reply->errorString()));
        // Otherwise the flow is started again on the next interval.
    });
}

void NetworkQuality::onInterval()
{
    Phase& phase = *m_phase;
    const qint64 now = m_clock.elapsed();
    const qint64 bytes = phase.totalBytes();
    phase.goodput.push_back(double(bytes - phase.lastBytes) * 1000.0 / double(std::max<qint64>(1, now - phase.lastSampleMs)));
    phase.lastBytes = bytes;
    phase.lastSampleMs = now;
    if (phase.goodput.size() >= size_t(movingAverageSpan)) {
        double sum = 0;
        for (auto it = phase.goodput.end() - movingAverageSpan; it != phase.goodput.end(); ++it)
            sum += *it;
        phase.goodputAverages.push_back(sum / movingAverageSpan);
        if (const auto rpm = responsivenessRpm(phase.recentProbes(movingAverageSpan)))
            phase.responsivenessAverages.push_back(*rpm);
    }
    phase.saturated = phase.saturated || isStable(phase.goodputAverages);
    if (!phase.saturated)
        for (int i = 0; i < addedFlowsPerInterval && int(phase.flows.size()) < maximumFlows; ++i)
            addFlow();
    for (const auto& flow : phase.flows)
        if (!flow->reply)
            startLoad(*flow);
    phase.intervalProbes.emplace_back();
    // Working conditions reached: goodput saturated and responsiveness settled.
    if (phase.saturated && isStable(phase.responsivenessAverages))
        endPhase();
}

void NetworkQuality::sendProbes()
{
    sendSelfProbe();
    sendForeignProbe();
}

void NetworkQuality::sendSelfProbe()
{
    Phase& phase = *m_phase;
    if (phase.flows.empty())
        return;
    Flow& flow = *phase.flows[phase.nextSelfProbeFlow++ % phase.flows.size()];
    auto sent = std::make_shared<QElapsedTimer>();
    sent->start();
    QNetworkReply* reply = flow.manager->get(request(m_server.smallDownload));
    connect(reply, &QNetworkReply::finished, &phase.probes, [reply, sent, &phase] {
        reply->deleteLater();
        if (reply->error() == QNetworkReply::NoError)
            phase.intervalProbes.back().selfHttp.push_back(double(sent->nsecsElapsed()) / 1e6);
    });
}

void NetworkQuality::sendForeignProbe()
{
    Phase& phase = *m_phase;
    auto* probe = new ForeignProbe(m_server.smallDownload, m_options.tls, &phase.probes, [this, &phase](ForeignProbe& probe) {
        ProbeSamples& samples = phase.intervalProbes.back();
        // Only a probe that went all the way counts; a half-done one says nothing about round trips.
        if (probe.tcpMs && probe.httpMs) {
            samples.tcpHandshake.push_back(*probe.tcpMs);
            if (probe.tlsMs)
                samples.tlsHandshake.push_back(*probe.tlsMs);
            samples.foreignHttp.push_back(*probe.httpMs);
        }
        if (!m_report.interfaceName && !probe.localAddress.isNull())
            m_report.interfaceName = interfaceNamed(probe.localAddress);
        probe.deleteLater();
    });
    Q_UNUSED(probe);
}

void NetworkQuality::endPhase()
{
    m_phaseTimer.stop();
    m_intervalTimer.stop();
    m_probeTimer.stop();
    std::unique_ptr<Phase> phase = std::move(m_phase);
    const qint64 bytes = phase->totalBytes();
    const size_t intervals = std::min(phase->goodput.size(), size_t(movingAverageSpan));
    double bytesPerSecond = 0;
    if (intervals > 0) {
        for (auto it = phase->goodput.end() - qsizetype(intervals); it != phase->goodput.end(); ++it)
            bytesPerSecond += *it;
        bytesPerSecond /= double(intervals);
    } else {
        bytesPerSecond = double(bytes) * 1000.0 / double(std::max<qint64>(1, m_clock.elapsed() - phase->startedMs));
    }
    m_finalProbes.append(phase->recentProbes(movingAverageSpan + 1));
    const bool download = phase->direction == Direction::download;
    (download ? m_report.downloadBitsPerSecond : m_report.uploadBitsPerSecond) = bytesPerSecond * 8.0;
    (download ? m_report.downloadBytes : m_report.uploadBytes) = bytes;
    (download ? m_report.downloadFlows : m_report.uploadFlows) = int(phase->flows.size());
    for (const auto& flow : phase->flows)
        if (flow->reply)
            flow->reply->abort();
    phase.reset();
    if (bytes == 0) {
        fail(download ? QStringLiteral("The test server sent no data.") : QStringLiteral("The test server took no data."));
        return;
    }
    if (download)
        startPhase(Direction::upload);
    else
        complete();
}

void NetworkQuality::complete()
{
    m_done = true;
    m_report.responsiveness = responsivenessRpm(m_finalProbes);
    m_report.endDate = QDateTime::currentDateTime();
    Q_EMIT finished(m_report);
}

void NetworkQuality::fail(const QString& message)
{
    if (m_done)
        return;
    m_done = true;
    m_deadline.stop();
    m_phaseTimer.stop();
    m_intervalTimer.stop();
    m_probeTimer.stop();
    Q_EMIT failed(message);
}

namespace {

struct ModeArguments {
    bool json = false;
    int maxSeconds = 20;
    QString error;
};

ModeArguments modeArguments(int argc, char** argv)
{
    ModeArguments arguments;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-c") == 0)
            arguments.json = true;
        else if (std::strcmp(argv[i], "-M") == 0) {
            bool ok = false;
            const int seconds = i + 1 < argc ? QByteArray(argv[++i]).toInt(&ok) : 0;
            if (!ok || seconds < 1)
                arguments.error = QStringLiteral("-M needs a whole number of seconds, 1 or more.");
            else
                arguments.maxSeconds = seconds;
        }
    }
    return arguments;
}

} // namespace

int NetworkQuality::run(int argc, char** argv)
{
    // -M bounds the whole run, the start of the process included.
    QElapsedTimer since;
    since.start();
    QCoreApplication app(argc, argv);
    const ModeArguments arguments = modeArguments(argc, argv);
    auto report = [&](const QString& error) {
        if (arguments.json)
            std::printf("%s\n", QJsonDocument(QJsonObject{{"error", error}}).toJson(QJsonDocument::Compact).constData());
        else
            std::fprintf(stderr, "pulsebar: %s\n", qPrintable(error));
        return 1;
    };
    if (!arguments.error.isEmpty())
        return report(arguments.error);

    Options options;
    options.configUrl = QUrl(Paths::env("PULSEBAR_SPEEDTEST_URL", defaultConfigUrl));
    options.maxSeconds = arguments.maxSeconds;
    options.since = since;
    options.tls = QSslConfiguration::defaultConfiguration();
    if (const QString extra = Paths::env("PULSEBAR_SPEEDTEST_CA"); !extra.isEmpty()) {
        const QList<QSslCertificate> certificates = QSslCertificate::fromPath(extra);
        if (certificates.isEmpty())
            return report(QStringLiteral("No certificate could be read from %1.").arg(extra));
        options.tls.addCaCertificates(certificates);
    }
    if (!options.configUrl.isValid() || options.configUrl.host().isEmpty())
        return report(QStringLiteral("The test configuration address %1 is not a URL.").arg(options.configUrl.toString()));

    NetworkQuality measurement(options);
    int status = 1;
    connect(&measurement, &NetworkQuality::finished, &app, [&](const Report& result) {
        if (arguments.json)
            std::printf("%s\n", QJsonDocument(reportJson(result)).toJson(QJsonDocument::Compact).constData());
        else
            std::fputs(qPrintable(reportSummary(result)), stdout);
        std::fflush(stdout);
        status = 0;
        app.quit();
    });
    connect(&measurement, &NetworkQuality::failed, &app, [&](const QString& message) {
        status = report(message);
        app.quit();
    });
    QTimer::singleShot(0, &measurement, &NetworkQuality::start);
    app.exec();
    std::fflush(stdout);
    // Replies and probes handed to deleteLater still hold their TLS state; free it before the exit.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return status;
}

} // namespace pulsebar
