#include "panels/panel_model.h"

#include <QJsonArray>

#include <algorithm>

namespace pulsebar {

namespace {

constexpr std::array<const char*, 14> rowKindNames{"value",   "bar",     "trail",    "process", "link",
                                                   "tile",    "note",    "choice",   "copy",    "columns",
                                                   "command", "forecast", "month",   "event"};

void putText(QJsonObject& object, const char* key, const QString& text)
{
    if (!text.isEmpty())
        object.insert(QLatin1String(key), text);
}

} // namespace

QJsonObject PanelRow::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("kind"), QLatin1String(rowKindNames[size_t(kind)]));
    putText(o, "label", label);
    putText(o, "value", value);
    putText(o, "detail", detail);
    putText(o, "symbol", symbol);
    if (kind == Kind::bar && segments.empty())
        o.insert(QStringLiteral("fraction"), fraction);
    if (!segments.empty()) {
        QJsonArray parts;
        for (const PanelSegment& segment : segments)
            parts.append(QJsonObject{{"label", segment.label}, {"value", segment.value}, {"fraction", segment.fraction}});
        o.insert(QStringLiteral("segments"), parts);
    }
    if (!series.empty()) {
        QJsonArray names;
        for (const PanelSeries& s : series)
            names.append(s.label);
        o.insert(QStringLiteral("series"), names);
    }
    if (target)
        o.insert(QStringLiteral("opens"), enumName(*target));
    else if (tilePanel)
        o.insert(QStringLiteral("opens"), enumName(*tilePanel));
    putText(o, "command", command);
    if (process) {
        o.insert(QStringLiteral("pid"), process->pid);
        QJsonArray actions;
        if (canQuit)
            actions.append(QStringLiteral("Quit"));
        actions.append(QStringLiteral("Show in File Manager"));
        actions.append(QStringLiteral("Open System Monitor"));
        o.insert(QStringLiteral("actions"), actions);
    }
    if (!choices.empty()) {
        QJsonArray list;
        for (const auto& [key, text] : choices)
            list.append(text);
        o.insert(QStringLiteral("choices"), list);
    }
    if (month)
        o.insert(QStringLiteral("month"), month->toJson());
    if (swatch.isValid())
        o.insert(QStringLiteral("color"), swatch.name());
    if (!openURL.isEmpty())
        o.insert(QStringLiteral("opensURL"), openURL.toString());
    if (!joinURL.isEmpty())
        o.insert(QStringLiteral("join"), joinURL.toString());
    return o;
}

QJsonObject MonthGrid::toJson() const
{
    QJsonArray rows;
    for (const Week& week : weeks) {
        QJsonArray days;
        for (const Day& day : week.days) {
            // Marks after the number: * today, • has events, ( ) another month.
            QString text = day.inMonth ? day.text : QLatin1Char('(') + day.text + QLatin1Char(')');
            if (day.isToday)
                text += QLatin1Char('*');
            if (day.hasEvents)
                text += QStringLiteral("•");
            days.append(text);
        }
        QJsonObject row{{"days", days}};
        if (!week.number.isEmpty())
            row.insert(QStringLiteral("week"), week.number);
        rows.append(row);
    }
    return {{"weekdays", QJsonArray::fromStringList(weekdays)}, {"weeks", rows}};
}

std::vector<HistoryMetric> PanelModel::historyMetrics() const
{
    std::vector<HistoryMetric> out;
    for (const HistoryChart& chart : history)
        for (HistoryMetric metric : chart.metrics)
            if (std::find(out.begin(), out.end(), metric) == out.end())
                out.push_back(metric);
    return out;
}

QJsonObject PanelModel::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("module"), enumName(kind));
    if (tilePanel)
        o.insert(QStringLiteral("panel"), enumName(*tilePanel));
    putText(o, "title", title);
    putText(o, "subtitle", subtitle);
    putText(o, "headline", headline);
    QJsonArray sectionList;
    for (const PanelSection& section : sections) {
        QJsonObject s;
        putText(s, "title", section.title);
        QJsonArray rows;
        for (const PanelRow& row : section.rows)
            rows.append(row.toJson());
        s.insert(QStringLiteral("rows"), rows);
        sectionList.append(s);
    }
    o.insert(QStringLiteral("sections"), sectionList);
    QJsonArray charts;
    for (const HistoryChart& chart : history) {
        QJsonArray metrics;
        for (HistoryMetric metric : chart.metrics)
            metrics.append(enumName(metric));
        charts.append(QJsonObject{{"title", chart.title}, {"metrics", metrics}});
    }
    if (!charts.isEmpty())
        o.insert(QStringLiteral("history"), charts);
    return o;
}

} // namespace pulsebar
