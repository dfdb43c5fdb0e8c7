#pragma once

#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace pulsebar {

// The video-call services whose links get a Join button, in the order they are tried.
const QStringList& meetingHosts();

// True when the host ends with one of meetingHosts(): a plain suffix test, so us02web.zoom.us matches
// and so does any host that merely ends in those characters.
bool isMeetingHost(const QString& host);

// The event's video-call link: its own address when that is a meeting link, else the first meeting
// link in the location text, else the first one in the notes.
std::optional<QUrl> meetingURL(const std::optional<QUrl>& url, const QString& location, const QString& notes);

// The web links in a free text, in the order they appear (http, https and "www." forms).
QList<QUrl> linksIn(const QString& text);

} // namespace pulsebar
