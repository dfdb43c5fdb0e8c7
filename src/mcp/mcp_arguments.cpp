#include "mcp/mcp_arguments.h"

#include <QJsonValue>

#include <cmath>

namespace pulsebar::McpArgument {

std::optional<QString> string(const QJsonObject& arguments, QLatin1String key)
{
    const QJsonValue value = arguments.value(key);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

std::optional<int64_t> integer(const QJsonObject& arguments, QLatin1String key)
{
    const QJsonValue value = arguments.value(key);
    if (!value.isDouble())
        return std::nullopt;
    // The parser keeps integers that fit 64 bits exactly; any other number must be whole and in range.
    const qint64 asInteger = value.toInteger(std::numeric_limits<qint64>::min());
    if (asInteger != std::numeric_limits<qint64>::min() || value.toDouble() == -0x1p63)
        return asInteger;
    return std::nullopt;
}

std::optional<bool> boolean(const QJsonObject& arguments, QLatin1String key)
{
    const QJsonValue value = arguments.value(key);
    if (!value.isBool())
        return std::nullopt;
    return value.toBool();
}

} // namespace pulsebar::McpArgument
