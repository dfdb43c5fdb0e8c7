#include "dump/debug_dump.h"

#include "dump/panel_dump.h"
#include "dump/sample_panels.h"
#include "dump/sample_states.h"
#include "dump/settings_pictures.h"
#include "dump/tray_dump.h"
#include "menubar/menu_bar_renderer.h"
#include "menubar/symbols.h"

#include "core/app_settings.h"
#include "core/preferences.h"
#include "panels/panel_content.h"

#include <QDateTime>
#include <QDir>
#include <QPainter>
#include <QFile>

#include <cstdio>
#include <stdexcept>

namespace pulsebar {

namespace {

constexpr int stripPadding = 8; // points around and between the items of a strip

struct DumpError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

QString createFolder(const std::optional<QString>& requested)
{
    QString path = requested.value_or(QString());
    if (path.isEmpty()) {
        const QString base = QStringLiteral("pulsebar-dump-") +
                             QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
        path = base;
        for (int n = 2; QFileInfo::exists(path); ++n)
            path = base + QLatin1Char('-') + QString::number(n);
    }
    if (!QDir().mkpath(path))
        throw DumpError("Cannot create the folder " + path.toStdString() + ".");
    return QFileInfo(path).absoluteFilePath();
}

// Plain writes: a dump is hundreds of small files in a folder of its own, and syncing each one to disk
// would make it take seconds instead of a fraction of one.
void save(const QImage& image, const QString& path)
{
    if (!image.save(path, "PNG"))
        throw DumpError("Cannot write " + path.toStdString() + ".");
}

QColor barBackground(bool dark)
{
    return dark ? QColor(0x1f, 0x1f, 0x24) : QColor(0xec, 0xec, 0xef);
}

// The image on the background of a panel, as it would look in the tray.
QImage onPanel(const QImage& item, bool dark)
{
    QImage out(item.size(), QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(item.devicePixelRatio());
    out.fill(barBackground(dark));
    QPainter p(&out);
    p.drawImage(QPointF(0, 0), item);
    return out;
}

// The default row of items, as the tray shows them: enabled modules in order, no battery without one.
QImage strip(const SampleState& state, const Config& config, const MenuBarRenderer::Context& context)
{
    std::vector<QImage> items;
    for (const ModuleConfig& module : config.modules) {
        if (!module.enabled || (module.kind == ModuleKind::battery && !state.readings.batteryPresent))
            continue;
        items.push_back(MenuBarRenderer::image(MenuBarContent::parts(module, state.readings, config), state.monochrome,
                                               context));
    }
    qreal width = stripPadding;
    for (const QImage& item : items)
        width += item.deviceIndependentSize().width() + stripPadding;
    const qreal dpr = context.devicePixelRatio;
    QImage out(int(std::ceil(width * dpr)), int(std::ceil(MenuBarRenderer::height * dpr)),
               QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(dpr);
    out.fill(barBackground(state.dark));
    QPainter p(&out);
    qreal x = stripPadding;
    for (const QImage& item : items) {
        p.drawImage(QPointF(x, 0), item);
        x += item.deviceIndependentSize().width() + stripPadding;
    }
    return out;
}

// Every symbol in its three styles, one row each, on light and dark backgrounds.
QImage symbolSheet(const QStringList& names, const MenuBarRenderer::Context& context)
{
    constexpr int cell = 24;
    const qreal dpr = context.devicePixelRatio;
    QImage out(int(cell * names.size() * dpr), int(cell * 4 * dpr), QImage::Format_ARGB32_Premultiplied);
    out.setDevicePixelRatio(dpr);
    out.fill(Qt::white);
    QPainter p(&out);
    p.setRenderHint(QPainter::Antialiasing);
    p.fillRect(QRectF(0, cell * 2, cell * names.size(), cell * 2), barBackground(true));
    const struct {
        Symbols::Style style;
        bool dark;
    } rows[] = {{Symbols::Style::tinted, false}, {Symbols::Style::palette, false},
                {Symbols::Style::tinted, true}, {Symbols::Style::multicolor, true}};
    for (int row = 0; row < 4; ++row)
        for (int i = 0; i < names.size(); ++i)
            Symbols::draw(p, names[i], QRectF(i * cell + 4, row * cell + 4, 16, 16),
                          MenuBarRenderer::foreground(false, rows[row].dark), rows[row].style);
    return out;
}

QString html(const std::vector<SampleState>& states, const QStringList& symbols, const QStringList& settingsFiles)
{
    QString out = QStringLiteral(
        "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Pulsebar dump</title>\n"
        "<style>body{font-family:sans-serif;margin:24px}td,th{padding:4px 10px;text-align:left}"
        "img{image-rendering:auto}.dark{background:#1f1f24;color:#eee}</style></head><body>\n"
        "<h1>Pulsebar tray items</h1>\n");
    for (const SampleState& state : states) {
        out += QStringLiteral("<h2>%1</h2>\n<p><img src=\"%1/strip.png\" alt=\"%1 strip\"> <code>%1/strip.png</code></p>\n")
                   .arg(state.name);
        out += QStringLiteral("<table class=\"%1\"><tr><th>module</th>").arg(state.dark ? "dark" : "light");
        for (DisplayStyle style : allCases<DisplayStyle>())
            out += QStringLiteral("<th>%1</th>").arg(enumName(style));
        out += QStringLiteral("</tr>\n");
        for (ModuleKind kind : allCases<ModuleKind>()) {
            out += QStringLiteral("<tr><td>%1</td>").arg(enumName(kind));
            for (DisplayStyle style : allCases<DisplayStyle>()) {
                const QString file = QStringLiteral("%1/%2-%3.png").arg(state.name, enumName(kind), enumName(style));
                out += QStringLiteral("<td><img src=\"%1\" alt=\"%1\" title=\"%1\"></td>").arg(file);
            }
            out += QStringLiteral("</tr>\n");
        }
        out += QStringLiteral("</table>\n");
        out += TrayDump::html(state);
        out += QStringLiteral("<h3>%1 panels</h3>\n<p>").arg(state.name);
        QStringList panels;
        for (const PanelContent::Entry& panel : PanelContent::registry())
            panels << enumName(panel.kind);
        for (const PanelContent::TilePanel& panel : PanelContent::tilePanels())
            panels << enumName(panel.item);
        for (const QString& panel : panels)
            out += QStringLiteral("<img src=\"%1/panel-%2.png\" alt=\"%2 panel\" title=\"%1/panel-%2.png\" "
                                  "style=\"width:340px;vertical-align:top;margin:0 8px 8px 0\"> ")
                       .arg(state.name, panel);
        out += QStringLiteral("</p>\n<p>Texts: <a href=\"%1/panels.json\">%1/panels.json</a></p>\n").arg(state.name);
    }
    out += QStringLiteral("<h2>symbols</h2>\n<p>Rows: tinted and palette on light, tinted and multicolour on "
                          "dark. Columns: %1</p>\n<p><img src=\"symbols.png\" alt=\"symbols\"></p>\n")
               .arg(symbols.join(QStringLiteral(", ")).toHtmlEscaped());
    out += QStringLiteral("<h2>settings window</h2>\n");
    for (const QString& file : settingsFiles)
        out += QStringLiteral("<p><code>%1</code><br><img src=\"%1\" alt=\"%1\"></p>\n").arg(file);
    out += QStringLiteral("</body></html>\n");
    return out;
}

void writeText(const QString& path, const QString& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text.toUtf8()) < 0 || !file.flush())
        throw DumpError("Cannot write " + path.toStdString() + ".");
}

} // namespace

int DebugDump::run(const std::optional<QString>& outputDirectory)
{
    try {
        const QString folder = createFolder(outputDirectory);
        const QDir dir(folder);
        std::vector<SampleState> states = sampleStates();
        PanelDump::Live live = PanelDump::live();
        states.push_back(live.state);
        for (const SampleState& state : states) {
            Config config;
            config.monochrome = state.monochrome;
            const MenuBarRenderer::Context context{devicePixelRatio, state.dark};
            if (!dir.mkpath(state.name))
                throw DumpError("Cannot create the folder " + dir.filePath(state.name).toStdString() + ".");
            for (ModuleKind kind : allCases<ModuleKind>()) {
                for (DisplayStyle style : allCases<DisplayStyle>()) {
                    const MenuBarParts parts = MenuBarContent::parts({kind, true, style}, state.readings, config);
                    const QImage image = MenuBarRenderer::image(parts, state.monochrome, context);
                    save(onPanel(image, state.dark),
                         dir.filePath(QStringLiteral("%1/%2-%3.png").arg(state.name, enumName(kind), enumName(style))));
                }
            }
            save(strip(state, config, context), dir.filePath(state.name + QStringLiteral("/strip.png")));
            if (!TrayDump::write(dir, state))
                throw DumpError("Cannot write the tray icons into " + dir.filePath(state.name).toStdString() + ".");
            const bool isLive = state.name == live.state.name;
            const HistoryGraph::Loader samples = [&state](std::vector<HistoryMetric> metrics, HistoryRange range,
                                                          QObject*, std::function<void(HistorySeries)> done) {
                done(sampleHistory(state, metrics, range));
            };
            PanelDump::write(QDir(dir.filePath(state.name)), isLive ? live.snapshot : samplePanelSnapshot(state),
                             isLive ? AppSettings::load(Preferences::standard()) : config, state.dark,
                             isLive ? live.loader : samples, devicePixelRatio);
        }
        const QStringList symbols = Symbols::names();
        save(symbolSheet(symbols, {devicePixelRatio, false}), dir.filePath(QStringLiteral("symbols.png")));
        QStringList settingsFiles;
        for (const auto& [name, image] : settingsPictures()) {
            save(image, dir.filePath(name + QStringLiteral(".png")));
            settingsFiles << name + QStringLiteral(".png");
        }
        writeText(dir.filePath(QStringLiteral("index.html")), html(states, symbols, settingsFiles));
        std::printf("%s\n", qPrintable(folder));
        return 0;
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "pulsebar --dump: %s\n", error.what());
        return 1;
    }
}

} // namespace pulsebar
