#pragma once

#include "speedtest/network_quality_method.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QSslConfiguration>
#include <QTimer>

#include <memory>
#include <vector>

class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

namespace pulsebar {

// `pulsebar --network-quality`: measures download and upload capacity and responsiveness under
// working conditions against a server that speaks the IETF responsiveness method. Load travels over
// HTTP/2 with TLS (HTTP/1.1 for an http:// configuration), one connection per load flow.
class NetworkQuality : public QObject {
    Q_OBJECT
public:
    struct Options {
        QUrl configUrl;
        int maxSeconds = 20;
        QSslConfiguration tls;
        QElapsedTimer since; // when the budget began, if before start()
    };

    explicit NetworkQuality(Options options, QObject* parent = nullptr);
    ~NetworkQuality() override;

    void start();

    // The entry of the mode: parses -c and -M, runs, prints, returns the exit status.
    static int run(int argc, char** argv);

    static inline const QString defaultConfigUrl = QStringLiteral("https://mensura.cdn-apple.com/api/v1/gm/config");

Q_SIGNALS:
    void finished(const NetworkQualityMethod::Report& report);
    void failed(const QString& message);

private:
    enum class Direction { download, upload };
    struct Flow;
    struct Phase;

    void fetchConfig();
    void measureIdleLatency(int remaining);
    void startPhase(Direction direction);
    void addFlow();
    void startLoad(Flow& flow);
    void onInterval();
    void sendProbes();
    void sendSelfProbe();
    void sendForeignProbe();
    void endPhase();
    void complete();
    void fail(const QString& message);
    qint64 msLeft() const;
    QNetworkRequest request(const QUrl& url) const;

    Options m_options;
    NetworkQualityMethod::ServerConfig m_server;
    NetworkQualityMethod::Report m_report;
    QElapsedTimer m_clock;
    QTimer m_deadline;    // the whole run
    QTimer m_phaseTimer;  // the running direction
    QTimer m_intervalTimer;
    QTimer m_probeTimer;
    std::unique_ptr<QNetworkAccessManager> m_control; // configuration and idle latency
    std::vector<double> m_idleSamples;
    std::unique_ptr<Phase> m_phase;
    NetworkQualityMethod::ProbeSamples m_finalProbes; // from the closing window of each phase
    bool m_done = false;
};

} // namespace pulsebar
