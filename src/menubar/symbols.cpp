#include "menubar/symbols.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QImage>
#include <QPainter>
#include <QSvgRenderer>

#include <cmath>

// Resources in a static library are registered by name, and only from the global namespace.
static void registerSymbolResources()
{
    Q_INIT_RESOURCE(symbols);
}

namespace pulsebar::Symbols {

namespace {

const QString resourceFolder = QStringLiteral(":/symbols/");

const QByteArray& source(const QString& name)
{
    static QHash<QString, QByteArray> cache;
    static const bool registered = (registerSymbolResources(), true);
    Q_UNUSED(registered);
    auto it = cache.find(name);
    if (it == cache.end()) {
        QFile file(resourceFolder + name + QStringLiteral(".svg"));
        it = cache.insert(name, file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray());
    }
    return *it;
}

// The multicolour icons carry no colours of their own: a style sheet is put in front of their shapes.
QByteArray withStyleSheet(const QByteArray& svg, const QByteArray& css)
{
    const qsizetype open = svg.indexOf('>');
    if (open < 0)
        return svg;
    QByteArray out = svg;
    out.insert(open + 1, "<style type=\"text/css\">" + css + "</style>");
    return out;
}

QByteArray css(const QColor& cloud, const QColor& sun, const QColor& rain, const QColor& snow)
{
    const auto rule = [](const char* cls, const QColor& c) {
        return QByteArray(".") + cls + "{fill:" + c.name(QColor::HexRgb).toLatin1() + ";fill-opacity:" +
               QByteArray::number(c.alphaF(), 'f', 3) + "}";
    };
    return rule("p", cloud) + rule("s", sun) + rule("r", rain) + rule("w", snow);
}

void drawTinted(QPainter& painter, QSvgRenderer& renderer, const QRectF& box, const QColor& color)
{
    // Drawn at device resolution into a scratch image, then every covered pixel takes the colour.
    const qreal dpr = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    QImage scratch(std::max(1, int(std::ceil(box.width() * dpr))), std::max(1, int(std::ceil(box.height() * dpr))),
                   QImage::Format_ARGB32_Premultiplied);
    scratch.fill(Qt::transparent);
    {
        QPainter p(&scratch);
        p.setRenderHint(QPainter::Antialiasing);
        renderer.render(&p, QRectF(0, 0, box.width() * dpr, box.height() * dpr));
        p.setCompositionMode(QPainter::CompositionMode_SourceIn);
        p.fillRect(scratch.rect(), color);
    }
    scratch.setDevicePixelRatio(dpr);
    painter.drawImage(box.topLeft(), scratch);
}

} // namespace

bool exists(const QString& name)
{
    return !name.isEmpty() && !source(name).isEmpty();
}

QStringList names()
{
    static const bool registered = (registerSymbolResources(), true);
    Q_UNUSED(registered);
    QStringList out;
    for (const QString& file : QDir(resourceFolder).entryList({QStringLiteral("*.svg")}, QDir::Files, QDir::Name))
        out << file.chopped(4);
    return out;
}

bool hasColors(const QString& name)
{
    return source(name).contains("class=\"");
}

void draw(QPainter& painter, const QString& name, const QRectF& box, const QColor& color, Style style)
{
    if (!exists(name) || box.isEmpty())
        return;
    const qreal side = std::min(box.width(), box.height());
    const QRectF square(box.center().x() - side / 2, box.center().y() - side / 2, side, side);
    const QByteArray& svg = source(name);
    if (style == Style::tinted || !hasColors(name)) {
        QSvgRenderer renderer(svg);
        drawTinted(painter, renderer, square, color);
        return;
    }
    static const QColor yellow(0xff, 0xd6, 0x0a);
    const QByteArray sheet = style == Style::multicolor
                                 ? css(QColor(0xf2, 0xf2, 0xf7), yellow, QColor(0x40, 0xc8, 0xff), Qt::white)
                                 : css(color, QColor(0xff, 0xcc, 0x00), color, color);
    QSvgRenderer renderer(withStyleSheet(svg, sheet));
    renderer.render(&painter, square);
}

} // namespace pulsebar::Symbols
