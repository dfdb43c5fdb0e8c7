#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

namespace pulsebar {

// The user's preferences: one JSON object in one file, keyed by strings ("PulsebarConfig.v1",
// "appearance", "PulsebarSpeedTests.v1", "settings.pane", "panel.historyRange").
// A missing, empty or damaged file reads as an empty object; the next write replaces it.
class Preferences {
public:
    explicit Preferences(QString path);

    // The preferences file of this user.
    static Preferences& standard();

    const QString& path() const { return m_path; }

    QJsonObject all() const;
    QJsonValue value(const QString& key) const;

    // Rewrites the file atomically, keeping every other key. Returns false when it could not be written.
    bool setValue(const QString& key, const QJsonValue& value);
    bool remove(const QString& key);

private:
    bool write(const QJsonObject& object);

    QString m_path;
};

} // namespace pulsebar
