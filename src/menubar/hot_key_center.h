#pragma once

#include "core/config.h"
#include "menubar/hot_key_action.h"

#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <set>

namespace pulsebar {

// The desktop's way of grabbing a key combination for the whole session. Ids are unique within the
// process. A backend may refuse at once (grab answers false) or later (it calls onRefused).
class HotKeyBackend {
public:
    virtual ~HotKeyBackend() = default;
    virtual bool grab(int id, const QString& identifier, const HotKey& key) = 0;
    virtual void ungrab(int id) = 0;

    std::function<void(int id)> onPressed;
    std::function<void(int id)> onRefused;
};

// Registers the configured global shortcuts and runs their actions. One shared instance; main thread.
class HotKeyCenter {
public:
    explicit HotKeyCenter(std::unique_ptr<HotKeyBackend> backend);
    ~HotKeyCenter();

    // Created on first use with the backend of the running desktop: key grabs on X11, the desktop
    // portal's GlobalShortcuts on Wayland; with neither, every registration fails.
    static HotKeyCenter& shared();
    static std::unique_ptr<HotKeyBackend> makeDesktopBackend();

    // Called on the main thread with the action of a pressed shortcut.
    std::function<void(const HotKeyAction&)> onTrigger;

    // Identifiers whose registration the desktop refused.
    std::set<QString> failed;
    // Identifier to the id of its grab.
    std::map<QString, int> registered;
    // The hot keys last handed in.
    std::map<QString, HotKey> current;
    // True while the settings record a new shortcut, so that pressing a registered one records it.
    bool suspended = false;

    void setHotKeys(const std::map<QString, HotKey>& hotKeys) { current = hotKeys; }
    // Ungrabs everything, then grabs every entry of `current` that names an action, in identifier order.
    void registerAll();
    void unregisterAll();
    // Releases every grab and the backend itself while the desktop connection still lives; later
    // registrations fail. The shared centre does this when the application is about to quit: as a
    // function-local static it is destroyed only after Qt has closed the display connection.
    void shutDown();

private:
    void pressed(int id);
    void refused(int id);
    std::optional<QString> identifierFor(int id) const;

    std::unique_ptr<HotKeyBackend> m_backend;
    std::shared_ptr<int> m_alive = std::make_shared<int>(0); // lets queued deliveries see the centre is gone
    static inline int s_nextId = 1; // unique within the process, never reused
};

} // namespace pulsebar
