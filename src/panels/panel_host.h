#pragma once

#include "core/config.h"
#include "panels/history_graph.h"
#include "panels/panel_model.h"
#include "panels/panel_snapshot.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QRect>

#include <functional>
#include <memory>
#include <optional>

class QWidget;

namespace pulsebar {

class AppSettings;
class Hub;
class PanelView;

// The one entry point to the dropdown panels. The tray calls toggle() with where its item is: the
// item's geometry (XEmbed), or a point (the StatusNotifierItem Activate position) as a 1×1 rectangle;
// an empty rectangle means "at the pointer". One panel is open at a time; Esc or a click outside
// closes it. While open, refresh() (called after every hub tick) redraws it from a fresh snapshot.
class PanelHost : public QObject {
    Q_OBJECT
public:
    PanelHost(Hub& hub, AppSettings& settings, QObject* parent = nullptr);
    ~PanelHost() override;

    void toggle(ModuleKind kind, const QRect& anchor);
    void toggle(ModuleKind kind, QPoint point) { toggle(kind, QRect(point, QSize(1, 1))); }
    // Shows the module's panel (replacing any other) without toggling.
    void open(ModuleKind kind, const QRect& anchor);
    void close();

    std::optional<ModuleKind> openPanel() const;
    void refresh();

    // The top-level window of the panel; null until the first open.
    QWidget* window() const;
    PanelView* view() const { return m_view; }

    // Where the figures come from; tests replace it.
    std::function<PanelSnapshot()> snapshot;
    // Reads the history store; tests replace it.
    HistoryGraph::Loader loader;

private:
    void ensureWindow();
    void place();
    void showContent(ModuleKind kind);
    void showTilePanel(OverviewItem item);
    void show(const std::function<std::optional<PanelModel>(const PanelSnapshot&, const Config&)>& build);

    Hub& m_hub;
    AppSettings& m_settings;
    std::unique_ptr<QWidget> m_window;
    PanelView* m_view = nullptr;
    QRect m_anchor;
    // A click on the item of the open panel first closes it as a click outside; the tray's activation
    // that follows must not open it again.
    std::optional<ModuleKind> m_lastClosed;
    QElapsedTimer m_sinceClosed;
};

// Whether a window may place itself and grab the pointer on this display. Where it may, a panel is a
// popup that the toolkit closes on a click outside and on Esc; where not, an ordinary frameless window
// that closes when it loses focus.
bool panelWindowsPlaceThemselves();

} // namespace pulsebar
