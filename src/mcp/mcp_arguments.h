#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

namespace pulsebar::McpArgument {

// Typed reads of tool arguments. A value of another JSON type reads as absent, so each tool applies its
// default; true is not 1 and 2.5 is not an integer.
std::optional<QString> string(const QJsonObject& arguments, QLatin1String key);
std::optional<int64_t> integer(const QJsonObject& arguments, QLatin1String key);
std::optional<bool> boolean(const QJsonObject& arguments, QLatin1String key);

} // namespace pulsebar::McpArgument
