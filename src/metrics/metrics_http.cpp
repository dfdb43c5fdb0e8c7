#include "metrics/metrics_http.h"

#include <QList>

namespace pulsebar::MetricsHttp {

namespace {

QByteArrayView reason(int status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 414: return "URI Too Long";
    case 431: return "Request Header Fields Too Large";
    default: return "Error";
    }
}

// Compares in time independent of where the first difference lies, so the token cannot be guessed
// byte by byte from response times.
bool sameSecret(QByteArrayView a, QByteArrayView b)
{
    unsigned char difference = a.size() == b.size() ? 0 : 1;
    for (qsizetype i = 0; i < a.size(); ++i)
        difference |= static_cast<unsigned char>(a[i] ^ b[i % std::max<qsizetype>(b.size(), 1)]);
    return difference == 0 && !b.isEmpty();
}

QByteArray plainText(const char* text)
{
    return QByteArray(text) + '\n';
}

} // namespace

std::optional<RequestHead> parseHead(QByteArrayView head)
{
    QList<QByteArrayView> lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i < head.size(); ++i) {
        if (head[i] != '\n')
            continue;
        QByteArrayView line = head.sliced(start, i - start);
        if (line.endsWith('\r'))
            line.chop(1);
        if (line.isEmpty())
            break;
        lines.append(line);
        start = i + 1;
    }
    if (lines.isEmpty())
        return std::nullopt;

    const QByteArrayView requestLine = lines.front();
    const qsizetype firstSpace = requestLine.indexOf(' ');
    const qsizetype lastSpace = requestLine.lastIndexOf(' ');
    if (firstSpace <= 0 || lastSpace <= firstSpace + 1 || !requestLine.sliced(lastSpace + 1).startsWith("HTTP/1."))
        return std::nullopt;
    RequestHead request;
    request.method = requestLine.first(firstSpace).toByteArray();
    QByteArrayView target = requestLine.sliced(firstSpace + 1, lastSpace - firstSpace - 1);
    if (const qsizetype query = target.indexOf('?'); query >= 0)
        target = target.first(query);
    request.path = target.toByteArray();

    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon <= 0)
            continue;
        const QByteArrayView name = lines[i].first(colon).trimmed();
        const QByteArrayView value = lines[i].sliced(colon + 1).trimmed();
        if (name.compare("authorization", Qt::CaseInsensitive) == 0)
            request.authorization = value.toByteArray();
        else if (name.compare("accept", Qt::CaseInsensitive) == 0)
            request.accept = value.toByteArray();
    }
    return request;
}

QByteArray response(int status, QByteArrayView contentType, const QByteArray& body, bool withBody,
                    QByteArrayView extraHeaders)
{
    QByteArray out;
    out.reserve(160 + (withBody ? body.size() : 0));
    out += "HTTP/1.1 " + QByteArray::number(status) + ' ' + reason(status).toByteArray() + "\r\n";
    out += "Content-Type: " + contentType.toByteArray() + "\r\n";
    out += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    out += extraHeaders.toByteArray();
    out += "Connection: close\r\n\r\n";
    if (withBody)
        out += body;
    return out;
}

QByteArray answer(const RequestHead& request, const std::optional<QByteArray>& requiredToken,
                  const std::function<QByteArray(MetricsFormat)>& exposition)
{
    static constexpr QByteArrayView text = "text/plain; charset=utf-8";
    const bool head = request.method == "HEAD";
    if (requiredToken) {
        const QByteArrayView scheme = "Bearer ";
        const QByteArrayView given = QByteArrayView(request.authorization).startsWith(scheme)
                                         ? QByteArrayView(request.authorization).sliced(scheme.size()).trimmed()
                                         : QByteArrayView();
        if (!sameSecret(given, *requiredToken))
            return response(401, text, plainText("A bearer token is required."), !head,
                            "WWW-Authenticate: Bearer realm=\"pulsebar\"\r\n");
    }
    if (request.path != "/metrics")
        return response(404, text, plainText("Not found. Metrics are at /metrics."), !head);
    if (request.method != "GET" && !head)
        return response(405, text, plainText("Only GET and HEAD are allowed."), true, "Allow: GET, HEAD\r\n");
    const MetricsFormat format = MetricsExposition::negotiate(request.accept);
    return response(200, MetricsExposition::contentType(format), exposition(format), !head);
}

} // namespace pulsebar::MetricsHttp
