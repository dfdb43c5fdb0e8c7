#pragma once

#include "core/config.h"
#include "history/history_metric.h"
#include "menubar/menu_bar_part.h"
#include "monitors/process_monitor.h"

#include <QColor>
#include <QJsonObject>
#include <QStringList>
#include <QUrl>

#include <array>
#include <QString>

#include <optional>
#include <utility>
#include <vector>

namespace pulsebar {

// What a panel shows, as plain data: the content functions (panel_content.h) build it from a
// snapshot, PanelView lays it out, the dump writes it to panels.json. Every text here is final, already
// formatted in the configured units; the widgets never format a number themselves.

// A series of a live graph; values in any unit, drawn against the row's maximum.
struct PanelSeries {
    QString label;
    std::vector<double> values; // oldest first
    PartColor color = PartColor::blue;
};

// A part of a segmented bar, with its legend entry.
struct PanelSegment {
    QString label;
    QString value;
    double fraction = 0; // of the whole bar
    PartColor color = PartColor::blue;
};

// A month as the calendar row draws it, every text already made: weeks in rows, the locale's first
// day of the week at the left, the ISO week number before each week when asked for.
struct MonthGrid {
    struct Day {
        QString text;
        bool inMonth = true;    // days of the neighbouring months fill the first and last week
        bool isToday = false;
        bool hasEvents = false; // dotted
    };
    struct Week {
        QString number; // empty without week numbers
        std::array<Day, 7> days;
    };
    QStringList weekdays; // the column headings
    std::vector<Week> weeks;

    QJsonObject toJson() const;
};

struct PanelRow {
    enum class Kind {
        value,   // label … value, with an optional detail line under it
        bar,     // label … value, then a bar filled to `fraction`, or made of `segments` with a legend
        trail,   // a live graph of `series`, with `value` as its caption
        process, // a process and its ranked figure; Quit / Show in file manager / System Monitor
        link,    // a line that opens the panel of `target` (the insight line)
        tile,    // an overview tile: symbol, label, value, detail and a small live graph; opens `target`
        note,    // a line of secondary, wrapped text
        choice,  // label … value, with a menu of `choices` (the sensor shown in the tray)
        copy,    // label … value, copied to the clipboard on click (the public address)
        columns, // label … value, then one column per segment filled to its fraction (the cores)
        command, // label … value drawn as a button; a click runs `command` (Run Speed Test, Cancel)
        forecast, // a day of a forecast on one line: label, symbol, detail in the middle, value at the right
        month,    // a month calendar: `label` above the `month` grid
        event,    // a calendar event: a bar in `swatch`, title and time, detail, a Join button for `joinURL`
    };
    enum class TrailStyle { line, stacked, mirrored };

    Kind kind = Kind::value;
    QString label;
    QString value;
    QString detail;
    QString symbol;  // tile, forecast
    double fraction = 0; // bar
    PartColor color = PartColor::blue;
    std::vector<PanelSegment> segments;
    std::vector<PanelSeries> series;
    TrailStyle trailStyle = TrailStyle::line;
    double trailMaximum = 0; // the value at the top of a trail; 0 scales to the largest value shown
    std::optional<ModuleKind> target;
    std::optional<OverviewItem> tilePanel; // a tile opening a panel no module has (the devices)
    std::optional<ProcessSample> process;
    bool canQuit = false;
    std::vector<std::pair<QString, QString>> choices; // key, label
    QString chosen;                                   // key of the current choice, empty for automatic
    QString command;                                  // what a command row runs, by name
    std::optional<MonthGrid> month;                   // month
    QColor swatch;                                    // event: its calendar's colour
    QUrl openURL;                                     // event: where a click on the row goes
    QUrl joinURL;                                     // event, tile: what the Join button opens

    QJsonObject toJson() const;
};

struct PanelSection {
    QString title; // empty: no heading
    std::vector<PanelRow> rows;
};

// How the value axis of a history chart reads.
enum class GraphUnit { percent, bytesPerSecond, temperature, rpm, watts };

// One chart of the history graph: metrics of one unit, drawn filled; stacked adds them up.
struct HistoryChart {
    QString title;
    std::vector<HistoryMetric> metrics;
    GraphUnit unit = GraphUnit::percent;
    bool stacked = false;

    bool operator==(const HistoryChart&) const = default;
};

struct PanelModel {
    ModuleKind kind = ModuleKind::combined;
    QString title;
    QString subtitle;
    QString headline; // the panel's main figure, large, at the right of the title
    std::vector<PanelSection> sections;
    std::vector<HistoryChart> history;
    // Set on a panel that is opened from its overview tile only; `kind` is then the overview's.
    std::optional<OverviewItem> tilePanel;

    // Every metric the charts read, in chart order, each once.
    std::vector<HistoryMetric> historyMetrics() const;
    QJsonObject toJson() const;
};

} // namespace pulsebar
