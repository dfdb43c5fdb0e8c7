#pragma once

#include "core/config.h"
#include "history/history_range.h"
#include "history/history_series.h"
#include "panels/panel_model.h"

#include <QTimeZone>
#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

class QButtonGroup;
class QLabel;

namespace pulsebar {

class Preferences;

// The history graph of a panel: the range switch ("1H", "24H", "7D", "30D", remembered under
// "panel.historyRange") over one filled chart per HistoryChart, drawn with QPainter. Data comes from a
// loader that answers later on the main thread (the history store's queue); while it is out, the
// previous figures stay on screen. Absent buckets are gaps; hovering shows the bucket's time and values.
class HistoryGraph : public QWidget {
    Q_OBJECT
public:
    // Reads `metrics` over `range` and calls `done` on the main thread unless `receiver` is gone by then.
    using Loader = std::function<void(std::vector<HistoryMetric> metrics, HistoryRange range, QObject* receiver,
                                      std::function<void(HistorySeries)> done)>;

    HistoryGraph(Loader loader, Preferences* preferences, QWidget* parent = nullptr);

    // New charts reload at once; the same charts reload when the last load is older than the store's
    // flush period, so an open panel follows the history as it is written.
    void setCharts(const std::vector<HistoryChart>& charts, double now, const Config& config);
    void setRange(HistoryRange range);
    HistoryRange range() const { return m_range; }
    void setTimeZone(const QTimeZone& zone) { m_zone = zone; }

    const HistorySeries& series() const { return m_series; }
    bool isLoading() const { return m_loading; }
    // The hover text at a point of the chart area, for tests and the accessible description.
    std::optional<QStringList> hoverTextAt(QPoint point) const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    void reload();
    QRect chartRect(size_t index) const;
    double timeAt(int x, const QRect& chart) const;
    int chartsTop() const;

    Loader m_loader;
    Preferences* m_preferences;
    QButtonGroup* m_switch;
    std::vector<HistoryChart> m_charts;
    Config m_config;
    HistoryRange m_range = HistoryRange::hour;
    HistorySeries m_series;
    double m_now = 0;
    double m_loadedAt = -1e18;
    bool m_loading = false;
    int m_generation = 0; // answers to older requests are dropped
    std::optional<QPoint> m_pointer;
    QTimeZone m_zone = QTimeZone::systemTimeZone();
};

} // namespace pulsebar
