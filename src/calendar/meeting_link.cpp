#include "calendar/meeting_link.h"

#include <QRegularExpression>

namespace pulsebar {

const QStringList& meetingHosts()
{
    static const QStringList hosts{"zoom.us",        "meet.google.com", "teams.microsoft.com",
                                   "teams.live.com", "webex.com",       "facetime.apple.com"};
    return hosts;
}

bool isMeetingHost(const QString& host)
{
    const QString lower = host.toLower();
    for (const QString& listed : meetingHosts())
        if (lower.endsWith(listed))
            return true;
    return false;
}

QList<QUrl> linksIn(const QString& text)
{
    // Stops at white space, angle brackets and quotes, which never belong to a link in running text;
    // closing punctuation that ends a sentence or a bracket is trimmed below.
    static const QRegularExpression link(QStringLiteral(R"((?:https?://|www\.)[^\s<>"']+)"),
                                         QRegularExpression::CaseInsensitiveOption);
    QList<QUrl> links;
    auto matches = link.globalMatch(text);
    while (matches.hasNext()) {
        QString found = matches.next().captured();
        while (!found.isEmpty() && QStringLiteral(".,;:!?)]}").contains(found.back()))
            found.chop(1);
        if (found.startsWith(QStringLiteral("www."), Qt::CaseInsensitive))
            found.prepend(QStringLiteral("https://"));
        const QUrl url(found, QUrl::TolerantMode);
        if (url.isValid() && !url.host().isEmpty())
            links.append(url);
    }
    return links;
}

std::optional<QUrl> meetingURL(const std::optional<QUrl>& url, const QString& location, const QString& notes)
{
    if (url && isMeetingHost(url->host()))
        return url;
    for (const QString& text : {location, notes})
        for (const QUrl& link : linksIn(text))
            if (isMeetingHost(link.host()))
                return link;
    return std::nullopt;
}

} // namespace pulsebar
