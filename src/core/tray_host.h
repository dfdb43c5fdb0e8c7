#pragma once

#include <QByteArray>
#include <QPoint>
#include <QRect>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace pulsebar {

// One square picture of an item: 32-bit ARGB, big-endian (A, R, G, B bytes), rows top to bottom.
struct TrayPixmap {
    int width = 0;
    int height = 0;
    QByteArray argb;
    bool operator==(const TrayPixmap&) const = default;
};

// One entry of the items' context menu. A separator has only an id; an entry with children opens them
// as a submenu. Ids are unique in the menu and stable while it is shown.
struct TrayMenuEntry {
    enum class Toggle { none, radio };

    int id = 0;
    QString label;
    bool separator = false;
    bool enabled = true;
    Toggle toggle = Toggle::none;
    bool checked = false;
    std::vector<TrayMenuEntry> children;

    static TrayMenuEntry action(int id, const QString& label)
    {
        TrayMenuEntry e;
        e.id = id;
        e.label = label;
        return e;
    }
    static TrayMenuEntry separatorEntry(int id)
    {
        TrayMenuEntry e;
        e.id = id;
        e.separator = true;
        return e;
    }

    bool operator==(const TrayMenuEntry&) const = default;
};
using TrayMenu = std::vector<TrayMenuEntry>;

// Everything one tray item shows. An implementation tells the desktop only about what changed.
struct TrayItemContent {
    QString id;    // "pulsebar-cpu"
    QString title; // "Pulsebar CPU"
    std::vector<TrayPixmap> pixmaps; // the same icon at several sizes
    QString toolTipTitle;
    QString toolTipText;
    QString label;      // the item's text on one line, for trays that show one beside the icon
    QString labelGuide; // the widest text the label normally takes

    bool operator==(const TrayItemContent&) const = default;
};

// What a person did to an item. Points are in screen coordinates; (0, 0) when the tray gave none.
struct TrayItemHandlers {
    std::function<void(QPoint)> activate;          // primary click
    std::function<void(QPoint)> secondaryActivate; // middle click
    std::function<void(QPoint)> contextMenu;       // the tray asks the application to show the menu
};

class TrayItem {
public:
    virtual ~TrayItem() = default;
    virtual void setContent(const TrayItemContent& content) = 0;
    // Where the item is on screen, when the tray tells; empty otherwise.
    virtual QRect geometry() const { return {}; }
};

// The desktop's system tray. Items are shown in the order they are created.
class TrayHost {
public:
    virtual ~TrayHost() = default;

    // True while a tray is there to show items; items created before keep waiting and appear with it.
    virtual bool isAvailable() const = 0;
    // True when the tray shows each item's text label beside its icon.
    virtual bool showsLabels() const = 0;
    // True when the tray draws its own menu from the one given to setMenu (otherwise the handlers'
    // contextMenu asks the application to show one).
    virtual bool exportsMenu() const = 0;

    virtual std::unique_ptr<TrayItem> createItem(const TrayItemContent& content, TrayItemHandlers handlers) = 0;

    // The menu every item offers; `activated` receives the id of the chosen entry.
    virtual void setMenu(const TrayMenu& menu) = 0;
    std::function<void(int id)> onMenuActivated;
    // Called when a tray appears or goes away.
    std::function<void()> onAvailabilityChanged;
};

} // namespace pulsebar
