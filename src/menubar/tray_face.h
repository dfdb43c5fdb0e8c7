#pragma once

#include "menubar/menu_bar_content.h"

#include <QString>

#include <optional>

namespace pulsebar {

// The value a square icon carries on trays that show no label: large digits without their unit, over
// a level bar when the value is a share of something.
struct TrayIconValue {
    QString digits;    // "42", "78°", "38M"; a second line for clocks ("09" over "41")
    QString secondLine;
    std::optional<double> fraction; // 0…1, the level bar under the digits
    PartColor color = PartColor::foreground;

    bool isEmpty() const { return digits.isEmpty(); }
    bool operator==(const TrayIconValue&) const = default;
};

// What one tray item shows: a square icon (a symbol, the item's graphic, or its value) and, for trays
// that show labels, the item's texts on one line. A pure function of the readings, so a tick that
// changes nothing gives an equal face and costs no drawing.
struct TrayFace {
    enum class Icon { symbol, graphic, value };

    Icon icon = Icon::symbol;
    MenuBarParts iconParts; // symbol: the one symbol or glyph; graphic: the graphic parts
    TrayIconValue value;
    QString label;
    QString labelGuide;

    bool operator==(const TrayFace&) const = default;
};

namespace TrayFaces {

inline constexpr QChar figureSpace = QChar(0x2007);

// The face of one module in its display style. With `valueInIcon` a style that shows text puts its
// value into the icon instead and has no label.
TrayFace face(const ModuleConfig& module, const HubSnapshot& readings, const Config& config, bool valueInIcon);

// The text parts on one line (a two-line part's lines side by side), each padded with figure spaces to
// its template, so trays that ignore the label guide keep the label's width as digits change.
QString label(const MenuBarParts& parts, bool pad = true);
// The line the label normally takes at its widest: the parts' templates.
QString labelGuide(const MenuBarParts& parts);
// `text` with figure spaces in front of its number for each digit it has fewer than the template's.
QString padded(const QString& text, const QString& widthTemplate);

TrayIconValue value(ModuleKind kind, const HubSnapshot& readings, const Config& config);

// "38M", "512K", "900": a rate in at most four characters, the unit dropped to its prefix letter.
QString compactRate(double bytesPerSecond, bool bits);

} // namespace TrayFaces

} // namespace pulsebar
