#include "core/app_settings.h"
#include "hub/hub.h"
#include "menubar/status_item_controller.h"
#include "panels/panel_host.h"
#include "../support/test_support.h"

#include <QGuiApplication>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QWidget>

#include <gtest/gtest.h>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <cstdlib>

using namespace pulsebar;

// Runs under run_with_tray_host.sh (Xvfb and trayer at the top edge, 24 px high); elsewhere it skips.

namespace {

// A second X client that clicks and presses keys as a user would and reads where windows are mapped.
class XUser {
public:
    XUser() : c(xcb_connect(nullptr, nullptr)), root(xcb_setup_roots_iterator(xcb_get_setup(c)).data->root) {}
    ~XUser() { xcb_disconnect(c); }

    void click(QPoint at)
    {
        xcb_test_fake_input(c, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, root, int16_t(at.x()), int16_t(at.y()), 0);
        xcb_test_fake_input(c, XCB_BUTTON_PRESS, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_test_fake_input(c, XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_flush(c);
    }

    void pressEscape()
    {
        constexpr uint8_t escape = 9; // the evdev keymap of Xvfb
        xcb_test_fake_input(c, XCB_KEY_PRESS, escape, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_test_fake_input(c, XCB_KEY_RELEASE, escape, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_flush(c);
    }

    // Where the server has the window on screen; empty while it is not viewable.
    QRect mappedGeometry(xcb_window_t w)
    {
        QRect out;
        auto* attributes = xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, w), nullptr);
        auto* geometry = xcb_get_geometry_reply(c, xcb_get_geometry(c, w), nullptr);
        auto* position = xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, w, root, 0, 0), nullptr);
        if (attributes && geometry && position && attributes->map_state == XCB_MAP_STATE_VIEWABLE)
            out = QRect(position->dst_x, position->dst_y, geometry->width, geometry->height);
        std::free(attributes);
        std::free(geometry);
        std::free(position);
        return out;
    }

private:
    xcb_connection_t* c;
    xcb_window_t root;
};

} // namespace

TEST(TrayPanel, AClickOnTheItemOpensItsPanelUnderItAndEscOrASecondClickClosesIt)
{
    if (QGuiApplication::platformName() != QLatin1String("xcb") || !qEnvironmentVariableIsSet("PULSEBAR_TRAY_TEST"))
        GTEST_SKIP() << "needs Xvfb and a tray host (run_with_tray_host.sh)";
    ASSERT_TRUE(test::waitUntil([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 15000));
    test::IsolatedSettings isolated;
    Config config;
    config.modules = {{ModuleKind::cpu, true, DisplayStyle::text}};
    isolated.settings.setConfig(config);
    Hub hub(isolated.settings, systemReaders());
    StatusItemController items(hub, isolated.settings);
    items.rebuild();
    ASSERT_EQ(items.entries().size(), 1u);
    const TrayItem* item = items.entries()[0].item.get();
    // The host lays its icons out again as they arrive: wait until the item stays where it is.
    QRect icon;
    ASSERT_TRUE(test::waitUntil([&] {
        const QRect now = item->geometry();
        const bool settled = !now.isEmpty() && now == icon;
        icon = now;
        test::waitUntil([] { return false; }, 300);
        return settled;
    }, 10000));

    XUser user;
    user.click(icon.center());
    ASSERT_TRUE(test::waitUntil([&] { return items.openDropdown() == ModuleKind::cpu; }, 10000))
        << "icon at " << icon.x() << "," << icon.y() << " " << icon.width() << "x" << icon.height();
    QWidget* panel = items.panels().window();
    QRect mapped;
    ASSERT_TRUE(test::waitUntil([&] { return !(mapped = user.mappedGeometry(xcb_window_t(panel->winId()))).isEmpty(); }, 10000));
    // Just under the bar, beside the item, wholly on the screen.
    EXPECT_EQ(mapped.top(), icon.bottom() + 1 + 5) << icon.bottom();
    EXPECT_GE(mapped.top(), 24);
    EXPECT_LE(mapped.left(), icon.center().x());
    EXPECT_TRUE(QRect(0, 0, 1280, 800).contains(mapped));
    EXPECT_EQ(mapped.width(), 340);

    user.pressEscape();
    ASSERT_TRUE(test::waitUntil([&] { return !items.openDropdown(); }, 5000));

    // Open again, then a second click on the item closes it and it stays closed.
    user.click(icon.center());
    ASSERT_TRUE(test::waitUntil([&] { return items.openDropdown() == ModuleKind::cpu; }, 10000));
    user.click(icon.center());
    ASSERT_TRUE(test::waitUntil([&] { return !items.openDropdown(); }, 5000));
    test::waitUntil([] { return false; }, 600);
    EXPECT_FALSE(items.openDropdown());
}
