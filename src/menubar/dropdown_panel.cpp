#include "menubar/dropdown_panel.h"

#include <QCursor>
#include <QGuiApplication>
#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>

namespace pulsebar {

DropdownPanel::DropdownPanel(QWidget* parent)
    : QWidget(parent, Qt::Popup | Qt::FramelessWindowHint), m_title(new QLabel(this)), m_body(new QLabel(this))
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(6);
    QFont bold = m_title->font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_body->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_title);
    layout->addWidget(m_body);
}

void DropdownPanel::setLines(const QString& title, const QStringList& lines)
{
    m_title->setText(title);
    m_body->setText(lines.join(QLatin1Char('\n')));
    adjustSize();
}

void DropdownPanel::open(ModuleKind kind, const QRect& anchor, const QString& title, const QStringList& lines)
{
    m_kind = kind;
    setLines(title, lines);
    const QPoint at = anchor.isEmpty() ? QCursor::pos() : anchor.bottomLeft() + QPoint(0, 5);
    QRect frame(at, sizeHint());
    if (const QScreen* screen = QGuiApplication::screenAt(at)) {
        const QRect area = screen->availableGeometry();
        if (frame.bottom() > area.bottom() && !anchor.isEmpty())
            frame.moveBottom(anchor.top() - 5);
        frame.moveLeft(std::clamp(frame.left(), area.left(), std::max(area.left(), area.right() - frame.width())));
    }
    move(frame.topLeft());
    show();
}

} // namespace pulsebar
