#include "platform/linux/status_notifier_item.h"

#include "platform/linux/dbus_menu.h"

#include <QMetaObject>

namespace pulsebar {

namespace {

constexpr const char* itemInterfaceName = "org.kde.StatusNotifierItem";

void writePixmaps(MessageWriter& writer, const std::vector<TrayPixmap>& pixmaps)
{
    writer.array("(iiay)", [&] {
        for (const TrayPixmap& pixmap : pixmaps)
            writer.structure([&] {
                writer << pixmap.width << pixmap.height;
                writer.bytes(pixmap.argb);
            });
    });
}

BusInterface::Property text(const char* name, std::function<QString()> value)
{
    return {name, "s", [value = std::move(value)](MessageWriter& w) { w << value(); }};
}

BusInterface::Property noPixmaps(const char* name)
{
    return {name, "a(iiay)", [](MessageWriter& w) { writePixmaps(w, {}); }};
}

} // namespace

StatusNotifierItem::StatusNotifierItem(uint orderingIndex, const TrayItemContent& content, TrayItemHandlers handlers)
    : m_orderingIndex(orderingIndex), m_content(content), m_handlers(std::move(handlers)),
      m_bus(BusConnection::openSession())
{
    m_menu = std::make_unique<DBusMenuExporter>(m_bus.get(), menuPath);
    if (!m_bus)
        return;
    m_onBus = m_bus->exportObject(itemPath, itemInterface()) && m_menu->isExported();
}

StatusNotifierItem::~StatusNotifierItem()
{
    // The watcher forgets the item when its connection closes.
    m_menu.reset();
    m_bus.reset();
    if (m_registrationDone && m_registrationContext)
        QMetaObject::invokeMethod(m_registrationContext, std::move(m_registrationDone), Qt::QueuedConnection);
}

BusInterface StatusNotifierItem::itemInterface()
{
    const auto none = [] { return QString(); };
    return {
        itemInterfaceName,
        {
            text("Category", [] { return QStringLiteral("Hardware"); }),
            text("Id", [this] { return m_content.id; }),
            text("Title", [this] { return m_content.title; }),
            text("Status", [] { return QStringLiteral("Active"); }),
            {"WindowId", "i", [](MessageWriter& w) { w << 0; }},
            text("IconThemePath", none),
            text("IconName", none),
            {"IconPixmap", "a(iiay)", [this](MessageWriter& w) { writePixmaps(w, m_content.pixmaps); }},
            text("OverlayIconName", none),
            noPixmaps("OverlayIconPixmap"),
            text("AttentionIconName", none),
            noPixmaps("AttentionIconPixmap"),
            text("AttentionMovieName", none),
            text("IconAccessibleDesc", [this] { return m_content.title; }),
            text("AttentionAccessibleDesc", none),
            {"ToolTip", "(sa(iiay)ss)",
             [this](MessageWriter& w) {
                 w.structure([&] {
                     w << QString();
                     writePixmaps(w, {});
                     w << m_content.toolTipTitle << m_content.toolTipText;
                 });
             }},
            {"ItemIsMenu", "b", [](MessageWriter& w) { w << false; }},
            {"Menu", "o", [](MessageWriter& w) { w.objectPath(menuPath); }},
            text("XAyatanaLabel", [this] { return m_content.label; }),
            text("XAyatanaLabelGuide", [this] { return m_content.labelGuide; }),
            {"XAyatanaOrderingIndex", "u", [this](MessageWriter& w) { w << m_orderingIndex; }},
        },
        {
            {"Activate", "ii", "",
             [this](MessageReader& r, MessageWriter&) {
                 const int x = r.nextInt();
                 later(m_handlers.activate, QPoint(x, r.nextInt()));
             }},
            {"SecondaryActivate", "ii", "",
             [this](MessageReader& r, MessageWriter&) {
                 const int x = r.nextInt();
                 later(m_handlers.secondaryActivate, QPoint(x, r.nextInt()));
             }},
            {"ContextMenu", "ii", "",
             [this](MessageReader& r, MessageWriter&) {
                 const int x = r.nextInt();
                 later(m_handlers.contextMenu, QPoint(x, r.nextInt()));
             }},
            {"Scroll", "is", "", [](MessageReader&, MessageWriter&) {}},
            {"ProvideXdgActivationToken", "s", "", [](MessageReader&, MessageWriter&) {}},
        },
        {{"NewTitle", ""},
         {"NewIcon", ""},
         {"NewAttentionIcon", ""},
         {"NewOverlayIcon", ""},
         {"NewToolTip", ""},
         {"NewStatus", "s"},
         {"XAyatanaNewLabel", "ss"}},
    };
}

void StatusNotifierItem::later(const std::function<void(QPoint)>& handler, QPoint at)
{
    if (handler)
        QMetaObject::invokeMethod(this, [handler, at] { handler(at); }, Qt::QueuedConnection);
}

void StatusNotifierItem::emitSignal(const char* name, const std::function<void(MessageWriter&)>& arguments)
{
    if (m_bus)
        m_bus->emitSignal(itemPath, itemInterfaceName, name, arguments);
}

void StatusNotifierItem::setContent(const TrayItemContent& content)
{
    if (content == m_content)
        return;
    const TrayItemContent old = std::exchange(m_content, content);
    if (content.title != old.title)
        emitSignal("NewTitle");
    if (content.pixmaps != old.pixmaps)
        emitSignal("NewIcon");
    if (content.toolTipTitle != old.toolTipTitle || content.toolTipText != old.toolTipText)
        emitSignal("NewToolTip");
    if (content.label != old.label || content.labelGuide != old.labelGuide)
        emitSignal("XAyatanaNewLabel", [&](MessageWriter& w) { w << content.label << content.labelGuide; });
}

void StatusNotifierItem::registerWithWatcher(QObject* context, std::function<void()> done)
{
    m_registrationContext = context;
    m_registrationDone = std::move(done);
    const auto finished = [this](bool) {
        if (m_registrationDone && m_registrationContext)
            QMetaObject::invokeMethod(m_registrationContext, std::exchange(m_registrationDone, {}),
                                      Qt::QueuedConnection);
    };
    if (!m_bus)
        return finished(false);
    // By object path, as libappindicator's items register: the watcher takes the sender's unique name.
    // (GNOME's AppIndicator extension drops an item registered by a well-known name when the item's
    // properties reach it before its own lookup of that name does, which a prompt item makes likely.)
    m_bus->callMethod(QStringLiteral("org.kde.StatusNotifierWatcher"), QStringLiteral("/StatusNotifierWatcher"),
                      "org.kde.StatusNotifierWatcher", "RegisterStatusNotifierItem",
                      [](MessageWriter& w) { w << itemPath; }, finished);
}

} // namespace pulsebar
