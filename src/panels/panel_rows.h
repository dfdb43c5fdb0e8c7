#pragma once

#include "panels/panel_model.h"

#include <algorithm>

namespace pulsebar::PanelRows {

// The row makers the panel builders share.

inline PanelRow value(const QString& label, const QString& text, const QString& detail = {})
{
    PanelRow row;
    row.label = label;
    row.value = text;
    row.detail = detail;
    return row;
}

inline PanelRow bar(const QString& label, const QString& text, double fraction, PartColor color = PartColor::blue)
{
    PanelRow row;
    row.kind = PanelRow::Kind::bar;
    row.label = label;
    row.value = text;
    row.fraction = std::clamp(fraction, 0.0, 1.0);
    row.color = color;
    return row;
}

inline PanelRow trail(const QString& caption, std::vector<PanelSeries> series,
                      PanelRow::TrailStyle style = PanelRow::TrailStyle::line, double maximum = 0)
{
    PanelRow row;
    row.kind = PanelRow::Kind::trail;
    row.value = caption;
    row.series = std::move(series);
    row.trailStyle = style;
    row.trailMaximum = maximum;
    return row;
}

// A button beside its label; a click runs the command of that name.
inline PanelRow command(const QString& label, const QString& button, const QString& name)
{
    PanelRow row;
    row.kind = PanelRow::Kind::command;
    row.label = label;
    row.value = button;
    row.command = name;
    return row;
}

inline PanelRow note(const QString& text)
{
    PanelRow row;
    row.kind = PanelRow::Kind::note;
    row.value = text;
    return row;
}

// A line of text in a colour, opening the panel of `target` when it has one (the insight line).
inline PanelRow link(const QString& text, PartColor color, std::optional<ModuleKind> target = std::nullopt)
{
    PanelRow row;
    row.kind = PanelRow::Kind::link;
    row.value = text;
    row.color = color;
    row.target = target;
    return row;
}

// An overview tile; without a target it only shows (the keep-awake state, a panel's own summary).
inline PanelRow tile(const QString& symbol, const QString& label, const QString& text, const QString& detail,
                     std::optional<ModuleKind> target)
{
    PanelRow row;
    row.kind = PanelRow::Kind::tile;
    row.symbol = symbol;
    row.label = label;
    row.value = text;
    row.detail = detail;
    row.target = target;
    return row;
}

} // namespace pulsebar::PanelRows
