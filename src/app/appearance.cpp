#include "app/appearance.h"

#include <QApplication>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace pulsebar {

namespace {

QPalette darkPalette()
{
    QPalette p;
    const QColor window(0x2b, 0x2b, 0x2e), base(0x1e, 0x1e, 0x20), text(0xf2, 0xf2, 0xf2);
    const QColor disabled(0x80, 0x80, 0x80), accent(0x3d, 0x8b, 0xfd);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::ToolTipBase, base);
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, window);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, Qt::red);
    p.setColor(QPalette::Link, accent);
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::PlaceholderText, disabled);
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, disabled);
    return p;
}

} // namespace

void applyAppearance(AppearanceMode mode)
{
    static const QString systemStyle = QApplication::style() ? QApplication::style()->name() : QString();
    switch (mode) {
    case AppearanceMode::system:
        if (!systemStyle.isEmpty())
            QApplication::setStyle(QStyleFactory::create(systemStyle));
        QApplication::setPalette(QApplication::style()->standardPalette());
        break;
    case AppearanceMode::light:
        QApplication::setStyle(QStyleFactory::create("Fusion"));
        QApplication::setPalette(QApplication::style()->standardPalette());
        break;
    case AppearanceMode::dark:
        QApplication::setStyle(QStyleFactory::create("Fusion"));
        QApplication::setPalette(darkPalette());
        break;
    }
}

} // namespace pulsebar
