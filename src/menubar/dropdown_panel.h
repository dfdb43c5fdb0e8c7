#pragma once

#include "core/config.h"

#include <QRect>
#include <QStringList>
#include <QWidget>

class QLabel;

namespace pulsebar {

// The panel that opens under an item. Until the full panels exist it lists the module's live values
// as lines of text.
class DropdownPanel : public QWidget {
    Q_OBJECT
public:
    explicit DropdownPanel(QWidget* parent = nullptr);

    ModuleKind kind() const { return m_kind; }
    // Shows the panel for the module, 5 pt under the anchor (or above it when the anchor is at the
    // bottom of the screen); an empty anchor places it at the pointer.
    void open(ModuleKind kind, const QRect& anchor, const QString& title, const QStringList& lines);
    void setLines(const QString& title, const QStringList& lines);

private:
    ModuleKind m_kind = ModuleKind::combined;
    QLabel* m_title;
    QLabel* m_body;
};

} // namespace pulsebar
