#include "metrics/metrics_exporter.h"

#include "hub/hub.h"

#include <QDir>
#include <QSaveFile>

namespace pulsebar {

MetricsExporter::MetricsExporter(const Hub& hub, Preferences& preferences, QObject* parent)
    : QObject(parent), m_hub(hub), m_preferences(preferences),
      m_server([this](MetricsFormat format) { return exposition(format); })
{
    connect(&hub, &Hub::changed, this, &MetricsExporter::hubTicked);
}

MetricsExporter::~MetricsExporter() = default;

std::optional<QHostAddress> MetricsExporter::bindAddress(const QString& text)
{
    if (text.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0)
        return QHostAddress(QHostAddress::LocalHost);
    QHostAddress address;
    if (!address.setAddress(text))
        return std::nullopt;
    return address;
}

void MetricsExporter::reload()
{
    apply(MetricsPreferences::load(m_preferences));
}

void MetricsExporter::apply(const MetricsPreferences& wanted)
{
    const bool serverChanged = !m_applied || wanted.enabled != m_current.enabled || wanted.port != m_current.port
                               || wanted.address != m_current.address || wanted.token != m_current.token;
    const bool textfileChanged = !m_applied || wanted.textfileDirectory != m_current.textfileDirectory;
    m_current = wanted;
    m_applied = true;
    if (textfileChanged) {
        m_textfileError.clear();
        if (!m_current.textfileDirectory.isEmpty() && m_hub.tickCount() > 0)
            writeTextfile();
    }
    if (!serverChanged) {
        if (textfileChanged)
            Q_EMIT stateChanged();
        return;
    }

    m_server.close();
    m_serverError.clear();
    if (m_current.enabled) {
        const std::optional<QHostAddress> address = bindAddress(m_current.address);
        if (!address) {
            m_serverError = QStringLiteral("“%1” is not an IP address.").arg(m_current.address);
        } else {
            // Off the loopback anyone on the network could read the figures: they must show the token.
            if (address->isLoopback()) {
                m_server.setRequiredToken(std::nullopt);
            } else {
                if (m_current.token.isEmpty())
                    m_current.token = MetricsPreferences::ensureToken(m_preferences);
                m_server.setRequiredToken(m_current.token.toUtf8());
            }
            if (!m_server.listen(*address, m_current.port))
                m_serverError = QStringLiteral("Cannot listen on %1 port %2: %3.")
                                    .arg(m_current.address)
                                    .arg(m_current.port)
                                    .arg(m_server.errorString());
        }
    }
    Q_EMIT stateChanged();
}

QByteArray MetricsExporter::exposition(MetricsFormat format)
{
    if (m_cacheTick != m_hub.tickCount()) {
        m_cache = {};
        m_cacheTick = m_hub.tickCount();
    }
    QByteArray& cached = m_cache[std::size_t(format)];
    if (cached.isEmpty())
        cached = MetricsExposition::render(m_hub, format);
    return cached;
}

void MetricsExporter::hubTicked()
{
    if (!m_current.textfileDirectory.isEmpty())
        writeTextfile();
}

void MetricsExporter::writeTextfile()
{
    // QSaveFile writes a temporary file beside the target and renames it over the target, so the
    // collector never reads half a file; the temporary name does not end in .prom, so it is never read.
    const QString path = QDir(m_current.textfileDirectory).filePath(textfileName);
    QSaveFile file(path);
    const QByteArray text = exposition(MetricsFormat::prometheusText);
    QString error;
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit())
        error = QStringLiteral("Cannot write %1: %2.").arg(path, file.errorString());
    if (error != m_textfileError) {
        m_textfileError = error;
        Q_EMIT stateChanged();
    }
}

} // namespace pulsebar
