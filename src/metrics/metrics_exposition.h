#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <initializer_list>
#include <string_view>
#include <QSet>

namespace pulsebar {

class Hub;

// The two text formats a scraper may ask for. Prometheus's own text format (version 0.0.4) is also
// what node_exporter's textfile collector reads; OpenMetrics 1.0.0 is given only to a scraper that
// asks for it in Accept.
enum class MetricsFormat { prometheusText, openMetrics };

namespace MetricsExposition {

// The format an Accept header asks for: OpenMetrics when it names application/openmetrics-text
// (version 1.0.0 or none) with a higher weight than plain text; plain text otherwise.
MetricsFormat negotiate(QByteArrayView accept);
QByteArray contentType(MetricsFormat format);

// Every series of the hub's last tick, in the given format. A pure reading of the hub's state: it never
// samples the system, so any number of scrapes between two ticks answer the same text.
QByteArray render(const Hub& hub, MetricsFormat format);

} // namespace MetricsExposition

// Writes metric families in either format: HELP and TYPE lines, escaped label values, `_total` and
// `_info` sample names, and `# EOF` for OpenMetrics. A family answers at most one sample per label set.
class MetricsWriter {
public:
    enum class Type { gauge, counter, info };
    struct Label {
        std::string_view name;
        QString value;
    };

    explicit MetricsWriter(MetricsFormat format);

    // Starts a family. `name` is the family's name without `_total` (counters) or `_info` (info).
    void family(std::string_view name, Type type, std::string_view help);
    // One sample of the current family; a repeated label set is dropped.
    void sample(double value, std::initializer_list<Label> labels = {});

    QByteArray finish();

    static void appendNumber(QByteArray& out, double value);
    static void appendEscapedLabelValue(QByteArray& out, const QString& value);

private:
    MetricsFormat m_format;
    QByteArray m_out;
    QByteArray m_sampleName;
    QSet<QByteArray> m_labelSets; // of the current family
};

} // namespace pulsebar
