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
        if (!module.enabled || (module.kind == ModuleKind::battery && !state.readings.batteryPresent))
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

// Every module (rows) in every style (columns); each cell shows the icon at 22 and 16 px beside a
// label, then at 22 and 16 px with the value in it.
QImage iconSheet(const SampleState& state, const Config& config)
{
    constexpr int cell = 4 * (22 + 4) + 8, row = 22 + 8;
    const auto kinds = allCases<ModuleKind>();
    const auto styles = allCases<DisplayStyle>();
    QImage out(int(cell * styles.size()), int(row * kinds.size()), QImage::Format_ARGB32_Premultiplied);
    out.fill(panelColor(state.dark));
    QPainter p(&out);
    for (std::size_t r = 0; r < kinds.size(); ++r)
        for (std::size_t c = 0; c < styles.size(); ++c) {
            const ModuleConfig module{kinds[r], true, styles[c]};
            int x = int(c * cell) + 4;
            const int y = int(r * row) + 4;
            for (bool valueInIcon : {false, true}) {
                const TrayFace face = TrayFaces::face(module, state.readings, config, valueInIcon);
                for (int size : {22, 16}) {
                    p.drawImage(x, y + (22 - size) / 2, TrayIconRenderer::image(face, size, state.dark, state.monochrome));
                    x += 22 + 4;
                }
            }
        }
    return out;
}

} // namespace

bool write(const QDir& folder, const SampleState& state)
{
    Config config;
    config.monochrome = state.monochrome;
    QString labels;
    for (ModuleKind kind : allCases<ModuleKind>())
        for (DisplayStyle style : allCases<DisplayStyle>()) {
            const TrayFace face = TrayFaces::face({kind, true, style}, state.readings, config, false);
            labels += QStringLiteral("%1 %2: \"%3\" guide \"%4\"\n")
                          .arg(enumName(kind), enumName(style), face.label, face.labelGuide);
        }
    QFile file(folder.filePath(state.name + QStringLiteral("/tray-labels.txt")));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(labels.toUtf8()) < 0)
        return false;
    file.close();
    return save(iconSheet(state, config), folder.filePath(state.name + QStringLiteral("/tray-icons.png"))) &&
           save(bar(state, config, true, true), folder.filePath(state.name + QStringLiteral("/tray-bar-dark.png"))) &&
           save(bar(state, config, false, false), folder.filePath(state.name + QStringLiteral("/tray-bar-light.png")));
}

QString html(const SampleState& state)
{
    return QStringLiteral("<h3>%1 in a tray</h3>\n<p>With labels, on a dark bar at 16 px: <img src=\"%1/tray-bar-dark.png\" "
                          "alt=\"%1 dark tray bar\"></p>\n<p>Without labels, value in the icon, on a light bar at 22 px: "
                          "<img src=\"%1/tray-bar-light.png\" alt=\"%1 light tray bar\"></p>\n<p>Every module (rows) in "
                          "every style (columns): the icon at 22 and 16 px, then with the value in it: <img "
                          "src=\"%1/tray-icons.png\" alt=\"%1 tray icons\"></p>\n<p>Label texts: <a "
                          "href=\"%1/tray-labels.txt\">%1/tray-labels.txt</a></p>\n")
        .arg(state.name);
}

} // namespace pulsebar::TrayDump
