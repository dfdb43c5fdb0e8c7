#pragma once

#include "metrics/metrics_exposition.h"

#include <QByteArray>
#include <QByteArrayView>

#include <functional>
#include <optional>

namespace pulsebar {

// The little HTTP the exporter speaks, as pure functions from request bytes to response bytes, so that
// every status can be checked on strings; MetricsServer only moves bytes between them and sockets.
namespace MetricsHttp {

// What the exporter needs from one request's head (request line and header lines).
struct RequestHead {
    QByteArray method;
    QByteArray path; // the target without its query
    QByteArray authorization;
    QByteArray accept;
};

// Parses "METHOD TARGET HTTP/1.x" and the header lines (ended by an empty line or the end of `head`).
// Absent when the request line is malformed.
std::optional<RequestHead> parseHead(QByteArrayView head);

// A complete response that closes the connection: status line, headers, the body unless `withBody`
// is false (HEAD). The body is sent as given.
QByteArray response(int status, QByteArrayView contentType, const QByteArray& body, bool withBody = true,
                    QByteArrayView extraHeaders = {});

// The answer to one request: 401 without the token when one is required, 404 for any path but
// /metrics, 405 for any method but GET and HEAD, else the exposition in the format Accept asks for.
QByteArray answer(const RequestHead& request, const std::optional<QByteArray>& requiredToken,
                  const std::function<QByteArray(MetricsFormat)>& exposition);

} // namespace MetricsHttp

} // namespace pulsebar
