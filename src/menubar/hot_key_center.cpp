#include "menubar/hot_key_center.h"

#include "menubar/portal_hot_key_backend.h"
#include "menubar/x11_hot_key_backend.h"

#include <QCoreApplication>
#include <QGuiApplication>

namespace pulsebar {

namespace {

// For desktops with no way to grab keys: every registration is refused, so the settings can say so.
class NoHotKeyBackend : public HotKeyBackend {
public:
    bool grab(int, const QString&, const HotKey&) override { return false; }
    void ungrab(int) override {}
};

} // namespace

HotKeyCenter::HotKeyCenter(std::unique_ptr<HotKeyBackend> backend) : m_backend(std::move(backend))
{
    m_backend->onPressed = [this](int id) { pressed(id); };
    m_backend->onRefused = [this](int id) { refused(id); };
}

void HotKeyCenter::shutDown()
{
    unregisterAll();
    m_backend = std::make_unique<NoHotKeyBackend>();
}

HotKeyCenter::~HotKeyCenter()
{
    unregisterAll();
}

HotKeyCenter& HotKeyCenter::shared()
{
    static HotKeyCenter center(makeDesktopBackend());
    static const bool releasedAtQuit = [] {
        if (QCoreApplication* app = QCoreApplication::instance())
            QObject::connect(app, &QCoreApplication::aboutToQuit, app, [] { center.shutDown(); });
        return true;
    }();
    (void)releasedAtQuit;
    return center;
}

std::unique_ptr<HotKeyBackend> HotKeyCenter::makeDesktopBackend()
{
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("xcb"))
        if (auto x11 = X11HotKeyBackend::create())
            return x11;
    if (platform.startsWith(QLatin1String("wayland")) && PortalHotKeyBackend::isAvailable())
        return std::make_unique<PortalHotKeyBackend>();
    return std::make_unique<NoHotKeyBackend>();
}

void HotKeyCenter::unregisterAll()
{
    for (const auto& [identifier, id] : registered)
        m_backend->ungrab(id);
    registered.clear();
    failed.clear();
}

void HotKeyCenter::registerAll()
{
    unregisterAll();
    // std::map iterates in identifier order, so the order of grabs (and their ids) is stable.
    for (const auto& [identifier, key] : current) {
        if (!HotKeyAction::fromIdentifier(identifier))
            continue;
        const int id = s_nextId++;
        if (m_backend->grab(id, identifier, key))
            registered[identifier] = id;
        else
            failed.insert(identifier);
    }
}

std::optional<QString> HotKeyCenter::identifierFor(int id) const
{
    for (const auto& [identifier, registeredId] : registered)
        if (registeredId == id)
            return identifier;
    return std::nullopt;
}

void HotKeyCenter::pressed(int id)
{
    const std::optional<QString> identifier = identifierFor(id);
    if (!identifier || suspended)
        return;
    const std::optional<HotKeyAction> action = HotKeyAction::fromIdentifier(*identifier);
    if (!action)
        return;
    // Always delivered from the event loop, never from inside the event filter that saw the key.
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [this, alive = std::weak_ptr<int>(m_alive), action = *action] {
            if (!alive.expired() && onTrigger)
                onTrigger(action);
        },
        Qt::QueuedConnection);
}

void HotKeyCenter::refused(int id)
{
    if (const std::optional<QString> identifier = identifierFor(id)) {
        registered.erase(*identifier);
        failed.insert(*identifier);
    }
}

} // namespace pulsebar
