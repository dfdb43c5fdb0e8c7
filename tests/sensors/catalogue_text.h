#pragma once

#include "monitors/sensor_monitor.h"

#include <QStringList>

// A catalogue as "key=name=group=value" lines, so a whole discovery compares in one expectation.
inline QStringList catalogueText(const std::vector<pulsebar::Sensor>& sensors)
{
    QStringList out;
    for (const pulsebar::Sensor& s : sensors)
        out << QStringLiteral("%1=%2=%3=%4").arg(s.key, s.name, pulsebar::enumName(s.group)).arg(s.value);
    return out;
}
