#include "calendar/calendar_subscriptions.h"

#include "core/clock.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QTimer>

namespace pulsebar {

CalendarSubscriptions::CalendarSubscriptions(QString cacheFolder, QObject* parent)
    : QObject(parent), now(systemClock()), m_folder(std::move(cacheFolder))
{
}

CalendarSubscriptions::~CalendarSubscriptions() = default;

QNetworkAccessManager& CalendarSubscriptions::network()
{
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    return *m_network;
}

QUrl CalendarSubscriptions::downloadURL(const QString& address)
{
    QUrl url(address.trimmed(), QUrl::TolerantMode);
    const QString scheme = url.scheme().toLower();
    if (scheme == QStringLiteral("webcal") || scheme == QStringLiteral("webcals"))
        url.setScheme(QStringLiteral("https"));
    return url;
}

QString CalendarSubscriptions::cacheFile(const QString& address) const
{
    const QByteArray name = QCryptographicHash::hash(address.trimmed().toUtf8(), QCryptographicHash::Sha1).toHex();
    return m_folder + QLatin1Char('/') + QString::fromLatin1(name) + QStringLiteral(".ics");
}

std::optional<QString> CalendarSubscriptions::lastError(const QString& address) const
{
    const auto it = m_errors.constFind(address);
    if (it == m_errors.constEnd())
        return std::nullopt;
    return *it;
}

bool CalendarSubscriptions::due(const QString& address) const
{
    double last = m_lastAttempt.value(address, 0);
    const QFileInfo copy(cacheFile(address));
    if (copy.exists())
        last = std::max(last, copy.lastModified().toSecsSinceEpoch() * 1.0);
    return now() - last >= refreshInterval;
}

void CalendarSubscriptions::refreshIfNeeded(const QStringList& addresses)
{
    for (const QString& address : addresses)
        if (!m_downloading.contains(address) && due(address))
            download(address);
}

void CalendarSubscriptions::download(const QString& address)
{
    const QUrl url = downloadURL(address);
    m_lastAttempt[address] = now();
    const QString scheme = url.scheme();
    if (!url.isValid() || (scheme != QStringLiteral("http") && scheme != QStringLiteral("https"))) {
        m_errors[address] = QStringLiteral("“%1” is not a web address.").arg(address);
        Q_EMIT finished(address);
        return;
    }
    m_downloading.insert(address);
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Pulsebar/" PULSEBAR_VERSION));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    // The whole answer must arrive in time, not just its first byte: a server that trickles never hangs a copy.
    QNetworkReply* reply = network().get(request);
    auto timedOut = std::make_shared<bool>(false);
    QTimer::singleShot(timeout, reply, [reply, timedOut] {
        *timedOut = true;
        reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply, address, timedOut] {
        reply->deleteLater();
        m_downloading.remove(address);
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        const QByteArray body = reply->error() == QNetworkReply::NoError ? reply->readAll() : QByteArray();
        if (*timedOut)
            m_errors[address] = QStringLiteral("The calendar server did not answer within %1 seconds.").arg(timeout / 1000.0);
        else if (reply->error() != QNetworkReply::NoError && status == 0)
            m_errors[address] = QStringLiteral("Cannot reach the calendar server: %1.").arg(reply->errorString());
        else if (status >= 400)
            m_errors[address] = QStringLiteral("The calendar server answered with HTTP status %1.").arg(status);
        else if (!body.contains("BEGIN:VCALENDAR"))
            m_errors[address] = QStringLiteral("The address did not give a calendar.");
        else
            store(address, body);
        Q_EMIT finished(address);
    });
}

void CalendarSubscriptions::store(const QString& address, const QByteArray& body)
{
    QDir().mkpath(m_folder);
    QSaveFile file(cacheFile(address));
    if (!file.open(QIODevice::WriteOnly) || file.write(body) != body.size() || !file.commit()) {
        m_errors[address] = QStringLiteral("Cannot write the calendar's copy to %1.").arg(m_folder);
        return;
    }
    m_errors.remove(address);
    Q_EMIT updated();
}

} // namespace pulsebar
