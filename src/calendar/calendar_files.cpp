#include "calendar/calendar_files.h"

#include "calendar/ical_expansion.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <array>

namespace pulsebar {

namespace {

// Larger files are not calendars a person keeps; reading them whole would only cost memory.
constexpr qint64 maxFileBytes = 64 * 1024 * 1024;

std::optional<QByteArray> readSmallFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maxFileBytes)
        return std::nullopt;
    return file.readAll();
}

QString firstLine(const QString& path)
{
    const std::optional<QByteArray> text = readSmallFile(path);
    return text ? QString::fromUtf8(*text).section(QLatin1Char('\n'), 0, 0).trimmed() : QString();
}

QString absolute(const QString& path)
{
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

} // namespace

QColor calendarColor(const QString& text)
{
    static const QRegularExpression hex(QStringLiteral("^#[0-9A-Fa-f]{6}([0-9A-Fa-f]{2})?$"));
    const QString trimmed = text.trimmed();
    if (hex.match(trimmed).hasMatch())
        return QColor(trimmed.left(7)); // the alpha of #RRGGBBAA is dropped: a calendar colour is opaque
    // RFC 7986's COLOR names a CSS colour ("turquoise").
    if (!trimmed.startsWith(QLatin1Char('#')) && QColor::isValidColor(trimmed))
        return QColor(trimmed);
    return {};
}

QColor fallbackColor(const QString& id)
{
    static const std::array<QColor, 8> palette{QColor(0x3478F6), QColor(0x34C759), QColor(0xFF9500), QColor(0xAF52DE),
                                               QColor(0xFF2D55), QColor(0x5AC8FA), QColor(0xFFCC00), QColor(0xA2845E)};
    const QByteArray digest = QCryptographicHash::hash(id.toUtf8(), QCryptographicHash::Sha1);
    return palette[uchar(digest.at(0)) % palette.size()];
}

QString vdirCalendarID(const QString& path)
{
    return QStringLiteral("folder:") + absolute(path);
}

QString fileCalendarID(const QString& path)
{
    return QStringLiteral("file:") + absolute(path);
}

std::optional<CalendarFeed> readVdirFolder(const QString& path, const QString& source, bool withItems)
{
    const QDir folder(path);
    if (!folder.exists() || !folder.isReadable())
        return std::nullopt;
    CalendarFeed feed;
    feed.info.id = vdirCalendarID(path);
    feed.info.title = firstLine(folder.filePath(QStringLiteral("displayname")));
    if (feed.info.title.isEmpty())
        feed.info.title = folder.dirName();
    feed.info.source = source;
    feed.info.color = calendarColor(firstLine(folder.filePath(QStringLiteral("color"))));
    if (!feed.info.color.isValid())
        feed.info.color = fallbackColor(feed.info.id);
    if (withItems) {
        const QStringList names = folder.entryList({QStringLiteral("*.ics")}, QDir::Files | QDir::Readable, QDir::Name);
        feed.items.reserve(names.size());
        for (const QString& name : names)
            if (std::optional<QByteArray> text = readSmallFile(folder.filePath(name)))
                feed.items.push_back(std::move(*text));
    }
    return feed;
}

std::optional<CalendarFeed> readIcsFile(const QString& path, const QString& id, const QString& fallbackTitle,
                                        const QString& source, bool withItems)
{
    std::optional<QByteArray> text = readSmallFile(path);
    if (!text)
        return std::nullopt;
    const CalendarHeader header = calendarHeader(*text);
    CalendarFeed feed;
    feed.info.id = id;
    feed.info.title = header.name.isEmpty() ? fallbackTitle : header.name;
    feed.info.source = source;
    feed.info.color = calendarColor(header.color);
    if (!feed.info.color.isValid())
        feed.info.color = fallbackColor(id);
    if (withItems)
        feed.items.push_back(std::move(*text));
    return feed;
}

} // namespace pulsebar
