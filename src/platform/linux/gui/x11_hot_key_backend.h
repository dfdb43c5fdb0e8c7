#pragma once

#include "menubar/hot_key_center.h"

#include <QAbstractNativeEventFilter>

#include <cstdint>
#include <map>
#include <memory>

struct xcb_connection_t;

namespace pulsebar {

// Global shortcuts on X11: a passive grab of the key on the root window (XGrabKey), and a native
// event filter that turns the grabbed key presses into onPressed. Another client's grab of the same
// combination makes the X server refuse ours, which is how "already used" is detected.
class X11HotKeyBackend : public HotKeyBackend, public QAbstractNativeEventFilter {
public:
    // nullopt-like: an empty pointer when the application is not connected to an X server.
    static std::unique_ptr<X11HotKeyBackend> create();
    X11HotKeyBackend(xcb_connection_t* connection, uint32_t root);
    ~X11HotKeyBackend() override;

    bool grab(int id, const QString& identifier, const HotKey& key) override;
    void ungrab(int id) override;

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

    // X modifier bits of a hot key's mask.
    static uint16_t xModifiers(uint32_t mask);

private:
    struct Grab {
        uint8_t keycode = 0;
        uint16_t modifiers = 0;
    };
    uint8_t keycodeFor(uint32_t keysym) const;
    void release(const Grab& grab);

    xcb_connection_t* m_connection;
    uint32_t m_root;
    std::map<int, Grab> m_grabs;
};

} // namespace pulsebar
