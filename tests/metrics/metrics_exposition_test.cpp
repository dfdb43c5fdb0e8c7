#include "metrics/metrics_exposition.h"
#include "metrics/metrics_http.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace pulsebar;

TEST(MetricsWriter, NumbersLabelsAndFamiliesInBothFormats)
{
    struct Number {
        double value;
        const char* text;
    } numbers[] = {{0, "0"}, {-3, "-3"}, {0.25, "0.25"}, {1e21, "1e+21"}, {12345678901234.0, "12345678901234"},
                   {0.1 + 0.2, "0.30000000000000004"}, {std::nan(""), "NaN"},
                   {std::numeric_limits<double>::infinity(), "+Inf"}, {-std::numeric_limits<double>::infinity(), "-Inf"}};
    for (const Number& n : numbers) {
        QByteArray out;
        MetricsWriter::appendNumber(out, n.value);
        EXPECT_EQ(out, n.text) << n.value;
    }

    QByteArray escaped;
    MetricsWriter::appendEscapedLabelValue(escaped, QString::fromUtf8("a\\b \"c\"\nd °C"));
    EXPECT_EQ(escaped, QByteArray("a\\\\b \\\"c\\\"\\nd ") + QString::fromUtf8("°C").toUtf8());

    for (const MetricsFormat format : {MetricsFormat::prometheusText, MetricsFormat::openMetrics}) {
        MetricsWriter w(format);
        w.family("x_bytes", MetricsWriter::Type::counter, "Bytes.");
        w.sample(5, {{"interface", "eth0"}});
        w.sample(6, {{"interface", "eth0"}}); // one sample per series: the repeat is dropped
        w.family("x_build", MetricsWriter::Type::info, "Build.");
        w.sample(1, {{"version", "1.0"}});
        const QByteArray text = w.finish();
        if (format == MetricsFormat::openMetrics)
            EXPECT_EQ(text, "# HELP x_bytes Bytes.\n# TYPE x_bytes counter\nx_bytes_total{interface=\"eth0\"} 5\n"
                            "# HELP x_build Build.\n# TYPE x_build info\nx_build_info{version=\"1.0\"} 1\n# EOF\n");
        else
            EXPECT_EQ(text, "# HELP x_bytes_total Bytes.\n# TYPE x_bytes_total counter\nx_bytes_total{interface=\"eth0\"} 5\n"
                            "# HELP x_build_info Build.\n# TYPE x_build_info gauge\nx_build_info{version=\"1.0\"} 1\n");
    }
}

TEST(MetricsExposition, AcceptPicksTheFormat)
{
    struct Case {
        const char* accept;
        MetricsFormat format;
    } cases[] = {
        // What Prometheus 2.x sends.
        {"application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
         "text/plain;version=0.0.4;q=0.5,*/*;q=0.1",
         MetricsFormat::openMetrics},
        {"", MetricsFormat::prometheusText},
        {"*/*", MetricsFormat::prometheusText},
        {"text/plain;version=0.0.4", MetricsFormat::prometheusText},
        {"application/openmetrics-text", MetricsFormat::openMetrics},
        {"application/openmetrics-text; version=0.0.1", MetricsFormat::prometheusText}, // a version we do not write
        {"application/openmetrics-text;q=0, text/plain", MetricsFormat::prometheusText},
        {"text/plain;q=0.9, application/openmetrics-text;q=0.4", MetricsFormat::prometheusText},
    };
    for (const Case& c : cases)
        EXPECT_EQ(MetricsExposition::negotiate(c.accept), c.format) << c.accept;
}

TEST(MetricsHttp, StatusesFollowPathMethodAndToken)
{
    const auto exposition = [](MetricsFormat format) {
        return format == MetricsFormat::openMetrics ? QByteArray("om\n") : QByteArray("text\n");
    };
    struct Case {
        const char* head;
        std::optional<QByteArray> token;
        const char* statusLine;
        const char* body; // the end of the response
    } cases[] = {
        {"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n", std::nullopt, "HTTP/1.1 200 OK", "\r\n\r\ntext\n"},
        {"GET /metrics?x=1 HTTP/1.0\n\n", std::nullopt, "HTTP/1.1 200 OK", "\r\n\r\ntext\n"},
        {"GET /metrics HTTP/1.1\r\naccept: application/openmetrics-text\r\n\r\n", std::nullopt, "HTTP/1.1 200 OK", "\r\n\r\nom\n"},
        {"HEAD /metrics HTTP/1.1\r\n\r\n", std::nullopt, "HTTP/1.1 200 OK", "Connection: close\r\n\r\n"},
        {"GET / HTTP/1.1\r\n\r\n", std::nullopt, "HTTP/1.1 404 Not Found", "/metrics.\n"},
        {"GET /metrics/ HTTP/1.1\r\n\r\n", std::nullopt, "HTTP/1.1 404 Not Found", "/metrics.\n"},
        {"POST /metrics HTTP/1.1\r\n\r\n", std::nullopt, "HTTP/1.1 405 Method Not Allowed", "allowed.\n"},
        {"GET /metrics HTTP/1.1\r\n\r\n", QByteArray("s3cret"), "HTTP/1.1 401 Unauthorized", "required.\n"},
        {"GET /metrics HTTP/1.1\r\nAuthorization: Bearer s3cre\r\n\r\n", QByteArray("s3cret"), "HTTP/1.1 401 Unauthorized", "required.\n"},
        {"GET /metrics HTTP/1.1\r\nAuthorization: Basic s3cret\r\n\r\n", QByteArray("s3cret"), "HTTP/1.1 401 Unauthorized", "required.\n"},
        {"GET /metrics HTTP/1.1\r\nAuthorization: Bearer s3cret\r\n\r\n", QByteArray("s3cret"), "HTTP/1.1 200 OK", "\r\n\r\ntext\n"},
    };
    for (const Case& c : cases) {
        const auto request = MetricsHttp::parseHead(c.head);
        ASSERT_TRUE(request) << c.head;
        const QByteArray response = MetricsHttp::answer(*request, c.token, exposition);
        EXPECT_TRUE(response.startsWith(QByteArray(c.statusLine) + "\r\n")) << c.head << "\n" << response.constData();
        EXPECT_TRUE(response.endsWith(c.body)) << c.head << "\n" << response.constData();
    }
    for (const char* malformed : {"", "\r\n\r\n", "GET\r\n\r\n", "GET /metrics\r\n\r\n", "GET /metrics SPDY/3\r\n\r\n"})
        EXPECT_FALSE(MetricsHttp::parseHead(malformed)) << malformed;
}
