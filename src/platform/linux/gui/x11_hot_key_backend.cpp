#include "platform/linux/gui/x11_hot_key_backend.h"

#include "menubar/hot_key_recorder.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <array>
#include <cstdlib>

namespace pulsebar {

namespace {

// Caps Lock and Num Lock change the state of a key press; a grab has to be made with every
// combination of them, or the shortcut stops working while one is on.
constexpr std::array<uint16_t, 4> lockVariants{0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                               XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};
constexpr uint16_t relevantModifiers =
    XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;

} // namespace

std::unique_ptr<X11HotKeyBackend> X11HotKeyBackend::create()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return nullptr;
    xcb_connection_t* connection = x11->connection();
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (!screen)
        return nullptr;
    return std::make_unique<X11HotKeyBackend>(connection, screen->root);
}

X11HotKeyBackend::X11HotKeyBackend(xcb_connection_t* connection, uint32_t root)
    : m_connection(connection), m_root(root)
{
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11HotKeyBackend::~X11HotKeyBackend()
{
    if (QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    for (const auto& [id, grab] : m_grabs)
        release(grab);
    xcb_flush(m_connection);
}

uint16_t X11HotKeyBackend::xModifiers(uint32_t mask)
{
    uint16_t out = 0;
    if (mask & HotKeyRecorder::controlKey)
        out |= XCB_MOD_MASK_CONTROL;
    if (mask & HotKeyRecorder::altKey)
        out |= XCB_MOD_MASK_1;
    if (mask & HotKeyRecorder::shiftKey)
        out |= XCB_MOD_MASK_SHIFT;
    if (mask & HotKeyRecorder::superKey)
        out |= XCB_MOD_MASK_4;
    return out;
}

uint8_t X11HotKeyBackend::keycodeFor(uint32_t keysym) const
{
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(m_connection);
    if (!symbols)
        return 0;
    uint8_t keycode = 0;
    if (xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, keysym)) {
        keycode = codes[0] == XCB_NO_SYMBOL ? 0 : codes[0];
        std::free(codes);
    }
    xcb_key_symbols_free(symbols);
    return keycode;
}

void X11HotKeyBackend::release(const Grab& grab)
{
    for (uint16_t lock : lockVariants)
        xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers | lock);
}

bool X11HotKeyBackend::grab(int id, const QString&, const HotKey& key)
{
    const Grab grab{keycodeFor(key.keyCode), xModifiers(key.modifiers)};
    if (grab.keycode == 0)
        return false; // the keyboard has no such key
    bool refused = false;
    for (uint16_t lock : lockVariants) {
        const xcb_void_cookie_t cookie = xcb_grab_key_checked(m_connection, 1, m_root, grab.modifiers | lock,
                                                              grab.keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        if (xcb_generic_error_t* error = xcb_request_check(m_connection, cookie)) {
            refused = true; // BadAccess: another client holds this combination
            std::free(error);
        }
    }
    if (refused) {
        release(grab);
        xcb_flush(m_connection);
        return false;
    }
    m_grabs[id] = grab;
    return true;
}

void X11HotKeyBackend::ungrab(int id)
{
    const auto it = m_grabs.find(id);
    if (it == m_grabs.end())
        return;
    release(it->second);
    xcb_flush(m_connection);
    m_grabs.erase(it);
}

bool X11HotKeyBackend::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*)
{
    if (eventType != "xcb_generic_event_t")
        return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & ~0x80) != XCB_KEY_PRESS)
        return false;
    const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event);
    const uint16_t state = press->state & relevantModifiers;
    for (const auto& [id, grab] : m_grabs) {
        if (grab.keycode == press->detail && grab.modifiers == state) {
            if (onPressed)
                onPressed(id);
            return true;
        }
    }
    return false;
}

} // namespace pulsebar
