#pragma once

#include "panels/panel_model.h"

#include <QWidget>

#include <functional>
#include <vector>

namespace pulsebar {

// The rows of a panel, painted in one widget: a redraw per tick is one layout pass over plain data and
// one paint, with no child widgets created or destroyed. Rows that do something (links, tiles, process
// rows, choices, the copyable address) follow the pointer and the keyboard: Up and Down move between
// them, Return or Space activates, the Menu key opens a process row's actions.
class PanelBody : public QWidget {
    Q_OBJECT
public:
    explicit PanelBody(QWidget* parent = nullptr);

    void setModel(const PanelModel& model);
    const PanelModel& model() const { return m_model; }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

    // A left click or Return on an active row; `at` is where a menu for it should open (global).
    std::function<void(const PanelRow& row, QPoint at)> onActivate;
    // A right click or the Menu key on a process row.
    std::function<void(const PanelRow& row, QPoint at)> onContextMenu;
    // A click on an event (its openURL) or on a Join button (its joinURL).
    std::function<void(const QUrl& url)> onOpenURL;

protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void changeEvent(QEvent* event) override;
    bool event(QEvent* event) override;

private:
    struct Item {
        enum class Kind { heading, separator, row } kind;
        QRect rect;
        QString title;                  // heading
        const PanelRow* row = nullptr;  // row
    };

    void relayout();
    int rowHeight(const PanelRow& row) const;
    int itemAt(QPoint point) const;
    bool isActive(int index) const;
    void moveFocus(int step);
    QPoint menuPoint(int index) const;
    // The fonts and line heights every row painter starts from.
    struct RowFonts {
        QFont base;
        QFont small;
        int line;
        int smallLine;
    };
    RowFonts rowFonts() const;
    void paintRow(QPainter& p, const PanelRow& row, const QRect& r, bool highlighted) const;
    void paintMonth(QPainter& p, const PanelRow& row, const QRect& box) const;
    void paintCalendarEvent(QPainter& p, const PanelRow& row, const QRect& r) const;
    void paintJoin(QPainter& p, const QRect& button) const;
    // Where a row's Join button is drawn (an empty rect without one).
    QRect joinRect(const PanelRow& row, const QRect& r) const;
    void paintTrail(QPainter& p, const PanelRow& row, const QRectF& box) const;
    void paintBar(QPainter& p, const PanelRow& row, const QRectF& box) const;
    void paintColumns(QPainter& p, const PanelRow& row, const QRectF& box) const;
    void paintLegend(QPainter& p, const PanelRow& row, const QRect& box) const;
    int legendHeight(const PanelRow& row) const;
    int wrappedHeight(const QString& text, const QFont& font, int width) const;

    PanelModel m_model;
    std::vector<Item> m_items;
    int m_height = 0;
    int m_hover = -1;
    int m_focus = -1;
};

} // namespace pulsebar
