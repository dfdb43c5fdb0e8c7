#pragma once

#include "core/preferences.h"

#include <QString>

namespace pulsebar {

// The exporter's preferences. They live in the preferences file beside "appearance", outside the
// configuration record: they describe how this computer shares its figures, not what it monitors.
struct MetricsPreferences {
    static inline const QString enabledKey = QStringLiteral("metrics.enabled");
    static inline const QString portKey = QStringLiteral("metrics.port");
    static inline const QString addressKey = QStringLiteral("metrics.address");
    static inline const QString tokenKey = QStringLiteral("metrics.token");
    static inline const QString textfileDirectoryKey = QStringLiteral("metrics.textfileDirectory");

    static constexpr quint16 defaultPort = 9836;
    static inline const QString defaultAddress = QStringLiteral("127.0.0.1");

    bool enabled = false;
    quint16 port = defaultPort;
    QString address = defaultAddress;
    QString token;             // empty until one is generated
    QString textfileDirectory; // empty: no textfile is written

    // A missing or unusable value reads as its default (a port outside 1–65535, an empty address).
    static MetricsPreferences load(const Preferences& preferences);

    // The stored token, generated (32 random bytes, hex) and saved on first use.
    static QString ensureToken(Preferences& preferences);
    // Replaces the token with a new one and returns it; scrapers holding the old one get 401 from then on.
    static QString renewToken(Preferences& preferences);

    static void setEnabled(Preferences& preferences, bool enabled);
    static void setPort(Preferences& preferences, quint16 port);
    static void setAddress(Preferences& preferences, const QString& address);
    static void setTextfileDirectory(Preferences& preferences, const QString& directory);

    bool operator==(const MetricsPreferences&) const = default;
};

} // namespace pulsebar
