#pragma once

#include "panels/history_graph.h"
#include "panels/panel_model.h"
#include "panels/panel_snapshot.h"

#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;
class QScrollArea;
class QToolButton;

namespace pulsebar {

class PanelBody;

// One panel as the user sees it: the header (a way back to the overview, title, subtitle, main figure),
// the rows, the history graph and the footer ("Settings…", "Quit Pulsebar", the keep-awake state).
// It lays out a PanelModel and never computes a figure itself.
class PanelView : public QWidget {
    Q_OBJECT
public:
    struct Actions {
        std::function<void(ModuleKind)> openPanel;
        std::function<void(OverviewItem)> openTilePanel;
        std::function<void(const QString& key)> chooseMenubarSensor; // empty key: automatic
        std::function<void()> close;
        std::function<void()> openSettings;
        std::function<void()> quit;
        std::function<void(const QString& command)> run; // a command row was clicked
        // An event or its Join button was clicked; empty opens the address with the desktop's handler.
        std::function<void(const QUrl& url)> openURL;
    };

    PanelView(HistoryGraph::Loader loader, Preferences* preferences, QWidget* parent = nullptr);

    void setContent(const PanelModel& model, const PanelSnapshot& snapshot, const Config& config);
    // The rows and graph scroll when the panel would be taller than this.
    void setMaximumContentHeight(int height);

    ModuleKind kind() const { return m_kind; }
    // The overview item whose own panel is shown, when it is one of the tile panels.
    std::optional<OverviewItem> tilePanel() const { return m_tilePanel; }
    PanelBody* body() const { return m_body; }
    HistoryGraph* graph() const { return m_graph; }

    Actions actions;

private:
    void activate(const PanelRow& row, QPoint at);
    void showProcessMenu(const PanelRow& row, QPoint at);
    void fitHeight();

    ModuleKind m_kind = ModuleKind::combined;
    std::optional<OverviewItem> m_tilePanel;
    QToolButton* m_back;
    QLabel* m_title;
    QLabel* m_subtitle;
    QLabel* m_headline;
    QScrollArea* m_scroll;
    PanelBody* m_body;
    HistoryGraph* m_graph;
    QLabel* m_keepAwake;
    QPushButton* m_settings;
    QPushButton* m_quit;
    int m_maximumContentHeight = 100000;
};

} // namespace pulsebar
