#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>

class QNetworkAccessManager;

namespace pulsebar {

// Calendars the user subscribed to by address (http, https or webcal). Each is downloaded to a file in
// the cache folder and read from there, so its events stay when the computer is offline; a download
// that fails keeps the cached copy. Downloads run in Qt's network thread; everything here happens on
// the main thread.
class CalendarSubscriptions : public QObject {
    Q_OBJECT
public:
    static constexpr double refreshInterval = 900; // seconds a downloaded copy stays fresh
    static constexpr int timeoutMs = 30000;

    explicit CalendarSubscriptions(QString cacheFolder, QObject* parent = nullptr);
    ~CalendarSubscriptions() override;

    // Seconds since 1970; tests replace it.
    std::function<double()> now;
    int timeout = timeoutMs; // milliseconds; tests shorten it

    // Downloads each address whose copy is missing or 15 minutes old, unless a download of it is
    // already under way. A copy written before this process started counts by its file's age.
    void refreshIfNeeded(const QStringList& addresses);

    // Where the copy of an address is kept (it may not exist yet).
    QString cacheFile(const QString& address) const;
    // Why the last download of an address failed; absent after a success or before any attempt.
    std::optional<QString> lastError(const QString& address) const;
    bool isDownloading() const { return !m_downloading.isEmpty(); }

    // webcal:// and webcals:// are https:// on the wire.
    static QUrl downloadURL(const QString& address);

Q_SIGNALS:
    // A download replaced a cached copy.
    void updated();
    // A download ended, well or not.
    void finished(const QString& address);

private:
    bool due(const QString& address) const;
    void download(const QString& address);
    void store(const QString& address, const QByteArray& body);
    QNetworkAccessManager& network();

    QString m_folder;
    QPointer<QNetworkAccessManager> m_network;
    QHash<QString, double> m_lastAttempt;
    QHash<QString, QString> m_errors;
    QSet<QString> m_downloading;
};

} // namespace pulsebar
