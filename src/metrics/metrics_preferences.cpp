#include "metrics/metrics_preferences.h"

#include <QRandomGenerator>

#include <array>
#include <cmath>

namespace pulsebar {

MetricsPreferences MetricsPreferences::load(const Preferences& preferences)
{
    MetricsPreferences out;
    out.enabled = preferences.value(enabledKey).toBool(false);
    const double port = preferences.value(portKey).toDouble(-1);
    if (port >= 1 && port <= 65535 && port == std::trunc(port))
        out.port = quint16(port);
    if (const QString address = preferences.value(addressKey).toString().trimmed(); !address.isEmpty())
        out.address = address;
    out.token = preferences.value(tokenKey).toString();
    out.textfileDirectory = preferences.value(textfileDirectoryKey).toString();
    return out;
}

QString MetricsPreferences::ensureToken(Preferences& preferences)
{
    const QString stored = preferences.value(tokenKey).toString();
    return stored.isEmpty() ? renewToken(preferences) : stored;
}

QString MetricsPreferences::renewToken(Preferences& preferences)
{
    std::array<quint32, 8> words;
    QRandomGenerator::system()->fillRange(words.data(), qsizetype(words.size()));
    const QString token = QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(words.data()), qsizetype(sizeof words)).toHex());
    preferences.setValue(tokenKey, token);
    return token;
}

void MetricsPreferences::setEnabled(Preferences& preferences, bool enabled)
{
    preferences.setValue(enabledKey, enabled);
}

void MetricsPreferences::setPort(Preferences& preferences, quint16 port)
{
    preferences.setValue(portKey, int(port));
}

void MetricsPreferences::setAddress(Preferences& preferences, const QString& address)
{
    preferences.setValue(addressKey, address);
}

void MetricsPreferences::setTextfileDirectory(Preferences& preferences, const QString& directory)
{
    preferences.setValue(textfileDirectoryKey, directory);
}

} // namespace pulsebar
