#pragma once

#include "metrics/metrics_exposition.h"
#include "metrics/metrics_preferences.h"
#include "metrics/metrics_server.h"

#include <QObject>

#include <array>
#include <optional>

namespace pulsebar {

class Hub;

// The opt-in exporter of the tray application: the HTTP endpoint for Prometheus and the textfile for
// node_exporter, both fed from the hub's last tick. The exposition is rendered at most once per tick
// and format, on the first scrape that asks for it, and served from that copy until the next tick.
class MetricsExporter : public QObject {
    Q_OBJECT
public:
    static inline const QString textfileName = QStringLiteral("pulsebar.prom");

    MetricsExporter(const Hub& hub, Preferences& preferences, QObject* parent = nullptr);
    ~MetricsExporter() override;

    // Reads the preferences again and applies what changed: starts, stops or moves the server and
    // names the textfile's folder.
    void reload();
    const MetricsPreferences& current() const { return m_current; }

    bool isServing() const { return m_server.isListening(); }
    quint16 servingPort() const { return m_server.port(); }
    // Why the server is not listening although it should (a bad address, a port in use); empty otherwise.
    const QString& serverError() const { return m_serverError; }
    // Why the last textfile could not be written; empty when it was (or none is wanted).
    const QString& textfileError() const { return m_textfileError; }

    // The exposition of the last tick, from the per-tick copy.
    QByteArray exposition(MetricsFormat format);

    MetricsServer& server() { return m_server; }

    // Where an address typed by the user binds: an IP address, or "localhost" for the loopback.
    static std::optional<QHostAddress> bindAddress(const QString& text);

Q_SIGNALS:
    // The serving state, the bound port or an error changed.
    void stateChanged();

private:
    void apply(const MetricsPreferences& wanted);
    void hubTicked();
    void writeTextfile();

    const Hub& m_hub;
    Preferences& m_preferences;
    MetricsServer m_server;
    MetricsPreferences m_current;
    bool m_applied = false;
    QString m_serverError;
    QString m_textfileError;
    std::array<QByteArray, 2> m_cache; // by MetricsFormat
    int m_cacheTick = -1;
};

} // namespace pulsebar
