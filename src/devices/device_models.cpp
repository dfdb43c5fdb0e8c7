#include "devices/device_models.h"

#include <QFile>

// Resources in a static library are registered by name, and only from the global namespace.
static void registerDeviceModelResources()
{
    Q_INIT_RESOURCE(device_models);
}

namespace pulsebar::DeviceModels {

QHash<QString, QString> parse(const QString& text)
{
    QHash<QString, QString> names;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        line = line.trimmed();
        const qsizetype tab = line.indexOf(QLatin1Char('\t'));
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')) || tab <= 0)
            continue;
        names.insert(line.left(tab).trimmed().toString(), line.mid(tab + 1).trimmed().toString());
    }
    return names;
}

std::optional<QString> marketingName(const QString& modelCode)
{
    static const QHash<QString, QString> names = [] {
        registerDeviceModelResources();
        QFile file(QStringLiteral(":/devices/device_models.tsv"));
        return file.open(QIODevice::ReadOnly) ? parse(QString::fromUtf8(file.readAll())) : QHash<QString, QString>();
    }();
    const auto it = names.constFind(modelCode);
    if (it == names.constEnd())
        return std::nullopt;
    return *it;
}

} // namespace pulsebar::DeviceModels
