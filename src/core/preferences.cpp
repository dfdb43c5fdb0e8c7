#include "core/preferences.h"

#include "core/paths.h"
#include "core/private_files.h"
#include "core/regular_file.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

namespace pulsebar {

Preferences::Preferences(QString path) : m_path(std::move(path)) {}

Preferences& Preferences::standard()
{
    static Preferences preferences(Paths::preferencesFile());
    return preferences;
}

QJsonObject Preferences::all() const
{
    // Far above any real preferences; a file beyond it is damaged, not read to the end.
    constexpr int64_t maxBytes = 16 << 20;
    const auto text = RegularFile::read(m_path, maxBytes);
    if (!text)
        return {};
    const QJsonDocument document = QJsonDocument::fromJson(*text);
    return document.isObject() ? document.object() : QJsonObject{};
}

QJsonValue Preferences::value(const QString& key) const
{
    return all().value(key);
}

bool Preferences::setValue(const QString& key, const QJsonValue& value)
{
    QJsonObject object = all();
    object.insert(key, value);
    return write(object);
}

bool Preferences::remove(const QString& key)
{
    QJsonObject object = all();
    if (!object.contains(key))
        return true;
    object.remove(key);
    return write(object);
}

bool Preferences::write(const QJsonObject& object)
{
    const bool exists = QFileInfo::exists(m_path);
    PrivateFiles::makeFolders(QFileInfo(m_path).absolutePath());
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // A new file is the user's alone whatever the umask; an existing one keeps the mode it has.
    if (!exists && !PrivateFiles::applyTo(file.handle(), PrivateFiles::fileMode))
        return false;
    file.write(QJsonDocument(object).toJson(QJsonDocument::Indented));
    return file.commit();
}

} // namespace pulsebar
