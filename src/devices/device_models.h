#pragma once

#include <QHash>
#include <QString>

#include <optional>

namespace pulsebar::DeviceModels {

// The names devices are sold under, by model code, from the table shipped with Pulsebar
// (device_models.tsv). Read once, on first use.
std::optional<QString> marketingName(const QString& modelCode);

// The table in its text form: "code<TAB>name" lines; blank lines and lines starting with '#' are skipped.
QHash<QString, QString> parse(const QString& text);

} // namespace pulsebar::DeviceModels
