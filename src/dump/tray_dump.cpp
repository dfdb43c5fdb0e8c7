#include "dump/tray_dump.h"

#include "menubar/tray_face.h"
#include "menubar/tray_icon_renderer.h"

#include <QFile>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>

namespace pulsebar::TrayDump {

namespace {

constexpr int barHeight = 32;
constexpr int barIconSize = 16;
constexpr int noLabelIconSize = 22;

QColor panelColor(bool dark)
{
    return dark ? QColor(0, 0, 0) : QColor(0xf0, 0xf0, 0xf2);
}

QImage onPanel(const QImage& icon, bool dark)
{
    QImage out(icon.size(), QImage::Format_ARGB32_Premultiplied);
    out.fill(panelColor(dark));
    QPainter(&out).drawImage(0, 0, icon);
    return out;
}

QFont labelFont()
{
    QFont f = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    f.setPixelSize(14);
    return f;
}

// The default items in a bar the way a tray lays them out: icon, then label, then the next item.
QImage bar(const SampleState& state, const Config& config, bool dark, bool labels)
{
    struct Item {
        QImage icon;
        QString label;
    };
    std::vector<Item> items;
    const int iconSize = labels ? barIconSize : noLabelIconSize;
    for (const ModuleConfig& module : config.modules) {
        if (!module.enabled || (module.kind == ModuleKind::battery && !state.readings.hasBattery))
            continue;
        const TrayFace face = TrayFaces::face(module, state.readings, config, !labels);
        items.push_back({TrayIconRenderer::image(face, iconSize, dark, state.monochrome), face.label});
    }
    const QFontMetricsF metrics(labelFont());
    constexpr qreal spacing = 12, labelGap = 4;
    qreal width = spacing;
    for (const Item& item : items)
        width += iconSize + (item.label.isEmpty() ? 0 : labelGap + metrics.horizontalAdvance(item.label)) + spacing;
    QImage out(int(std::ceil(width)), barHeight, QImage::Format_ARGB32_Premultiplied);
    out.fill(panelColor(dark));
    QPainter p(&out);
    p.setRenderHint(QPainter::TextAntialiasing);
    p.setFont(labelFont());
    p.setPen(TrayIconRenderer::foreground(dark));
    qreal x = spacing;
    for (const Item& item : items) {
        p.drawImage(QPointF(x, (barHeight - iconSize) / 2), item.icon);
        x += iconSize;
        if (!item.label.isEmpty()) {
            x += labelGap;
            p.drawText(QRectF(x, 0, metrics.horizontalAdvance(item.label) + 1, barHeight), Qt::AlignVCenter | Qt::AlignLeft,
                       item.label);
            x += metrics.horizontalAdvance(item.label);
        }
        x += spacing;
    }
    return out;
}

bool save(const QImage& image, const QString& path)
{
    return image.save(path, "PNG");
}

} // namespace

bool write(const QDir& folder, const SampleState& state)
{
    Config config;
    config.monochrome = state.monochrome;
    const QString trayFolder = state.name + QStringLiteral("/tray");
    if (!folder.mkpath(trayFolder))
        return false;
    QString labels;
    for (ModuleKind kind : allCases<ModuleKind>()) {
        for (DisplayStyle style : allCases<DisplayStyle>()) {
            const ModuleConfig module{kind, true, style};
            const QString base = folder.filePath(QStringLiteral("%1/%2-%3").arg(trayFolder, enumName(kind), enumName(style)));
            const TrayFace withLabel = TrayFaces::face(module, state.readings, config, false);
            const TrayFace withValue = TrayFaces::face(module, state.readings, config, true);
            for (int size : {22, 16}) {
                if (!save(onPanel(TrayIconRenderer::image(withLabel, size, state.dark, state.monochrome), state.dark),
                          base + QStringLiteral("-%1.png").arg(size)) ||
                    !save(onPanel(TrayIconRenderer::image(withValue, size, state.dark, state.monochrome), state.dark),
                          base + QStringLiteral("-value-%1.png").arg(size)))
                    return false;
            }
            labels += QStringLiteral("%1 %2: \"%3\" guide \"%4\"\n")
                          .arg(enumName(kind), enumName(style), withLabel.label, withLabel.labelGuide);
        }
    }
    QFile file(folder.filePath(state.name + QStringLiteral("/tray-labels.txt")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(labels.toUtf8()) < 0)
        return false;
    file.close();
    return save(bar(state, config, true, true), folder.filePath(state.name + QStringLiteral("/tray-bar-dark.png"))) &&
           save(bar(state, config, false, false), folder.filePath(state.name + QStringLiteral("/tray-bar-light.png")));
}

QString html(const SampleState& state)
{
    QString out = QStringLiteral("<h3>%1 in a tray</h3>\n<p>With labels, on a dark bar at 16 px: <img src=\"%1/tray-bar-dark.png\" "
                                 "alt=\"%1 dark tray bar\"></p>\n<p>Without labels, value in the icon, on a light bar at "
                                 "22 px: <img src=\"%1/tray-bar-light.png\" alt=\"%1 light tray bar\"></p>\n"
                                 "<p>Label texts: <a href=\"%1/tray-labels.txt\">%1/tray-labels.txt</a></p>\n")
                      .arg(state.name);
    out += QStringLiteral("<table class=\"%1\"><tr><th>module</th>").arg(state.dark ? "dark" : "light");
    for (DisplayStyle style : allCases<DisplayStyle>())
        out += QStringLiteral("<th>%1</th>").arg(enumName(style));
    out += QStringLiteral("</tr>\n");
    for (ModuleKind kind : allCases<ModuleKind>()) {
        out += QStringLiteral("<tr><td>%1</td>").arg(enumName(kind));
        for (DisplayStyle style : allCases<DisplayStyle>()) {
            const QString base = QStringLiteral("%1/tray/%2-%3").arg(state.name, enumName(kind), enumName(style));
            out += QStringLiteral("<td><img src=\"%1-22.png\" alt=\"\"> <img src=\"%1-16.png\" alt=\"\"> "
                                  "<img src=\"%1-value-22.png\" alt=\"\"> <img src=\"%1-value-16.png\" alt=\"\"></td>")
                       .arg(base);
        }
        out += QStringLiteral("</tr>\n");
    }
    return out + QStringLiteral("</table>\n");
}

} // namespace pulsebar::TrayDump
