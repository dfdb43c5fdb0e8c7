#include "app/app_delegate.h"
#include "core/app_settings.h"
#include "hub/hub.h"
#include "menubar/hot_key_center.h"
#include "menubar/hot_key_recorder.h"
#include "menubar/status_item_controller.h"
#include "../support/test_support.h"

#include <QGuiApplication>
#include <QMenu>
#include <QTest>
#include <QSystemTrayIcon>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

using namespace pulsebar;

// These cases need an X server with a tray host; run_with_tray_host.sh provides both and runs them.
// Under the offscreen platform of the ordinary test run they skip.

namespace {

bool onX11()
{
    return QGuiApplication::platformName() == QLatin1String("xcb") && qEnvironmentVariableIsSet("PULSEBAR_TRAY_TEST");
}

// A second client of the X server, to look at the window tree and to press keys as a user would.
class XClient {
public:
    XClient() : c(xcb_connect(nullptr, nullptr)), root(xcb_setup_roots_iterator(xcb_get_setup(c)).data->root) {}
    ~XClient() { xcb_disconnect(c); }

    xcb_atom_t atom(const char* name)
    {
        auto* reply = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(strlen(name)), name), nullptr);
        const xcb_atom_t a = reply ? reply->atom : XCB_NONE;
        std::free(reply);
        return a;
    }

    std::optional<uint32_t> pid(xcb_window_t w)
    {
        auto* reply = xcb_get_property_reply(
            c, xcb_get_property(c, 0, w, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 0, 1), nullptr);
        std::optional<uint32_t> out;
        if (reply && xcb_get_property_value_length(reply) == 4)
            out = *static_cast<uint32_t*>(xcb_get_property_value(reply));
        std::free(reply);
        return out;
    }

    // Windows of this process that a tray host has taken in: they have our pid and a parent that is
    // not the root window (there is no window manager on this server to reparent anything else).
    int embeddedWindowsOfThisProcess() { return int(embedded().size()); }

    // Those windows in the order they were made (X hands out window ids in increasing order), each
    // with its left edge on the screen.
    std::vector<int> embeddedLeftEdgesInWindowOrder()
    {
        std::vector<int> out;
        for (xcb_window_t w : embedded()) {
            auto* at = xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, w, root, 0, 0), nullptr);
            out.push_back(at ? at->dst_x : -1);
            std::free(at);
        }
        return out;
    }

    uint8_t keycode(uint32_t keysym)
    {
        xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(c);
        xcb_keycode_t* codes = xcb_key_symbols_get_keycode(symbols, keysym);
        const uint8_t code = codes ? codes[0] : 0;
        std::free(codes);
        xcb_key_symbols_free(symbols);
        return code;
    }

    void press(const std::vector<uint32_t>& keysyms)
    {
        for (uint32_t sym : keysyms)
            xcb_test_fake_input(c, XCB_KEY_PRESS, keycode(sym), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        for (auto it = keysyms.rbegin(); it != keysyms.rend(); ++it)
            xcb_test_fake_input(c, XCB_KEY_RELEASE, keycode(*it), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
        xcb_flush(c);
    }

    bool grab(uint32_t keysym, uint16_t modifiers)
    {
        xcb_generic_error_t* error = xcb_request_check(
            c, xcb_grab_key_checked(c, 1, root, modifiers, keycode(keysym), XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        std::free(error);
        return !error;
    }

    xcb_connection_t* c;
    xcb_window_t root;

private:
    std::vector<xcb_window_t> embedded()
    {
        std::vector<xcb_window_t> out;
        collect(root, false, out);
        std::sort(out.begin(), out.end());
        return out;
    }

    void collect(xcb_window_t w, bool belowAnotherClient, std::vector<xcb_window_t>& out)
    {
        auto* tree = xcb_query_tree_reply(c, xcb_query_tree(c, w), nullptr);
        if (!tree)
            return;
        const xcb_window_t* children = xcb_query_tree_children(tree);
        for (int i = 0; i < xcb_query_tree_children_length(tree); ++i) {
            const bool ours = pid(children[i]) == uint32_t(::getpid());
            if (ours && belowAnotherClient)
                out.push_back(children[i]);
            collect(children[i], belowAnotherClient || !ours, out);
        }
        std::free(tree);
    }
};

ModuleConfig on(ModuleKind kind, DisplayStyle style = DisplayStyle::text)
{
    return {kind, true, style};
}

class TrayHostXEmbed : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!onX11())
            GTEST_SKIP() << "needs Xvfb and a tray host (run_with_tray_host.sh)";
        ASSERT_TRUE(test::waitUntil([] { return QSystemTrayIcon::isSystemTrayAvailable(); }, 15000))
            << "the tray host did not appear";
    }
    QTemporaryDir dir;
    Preferences preferences{dir.path() + "/preferences.json"};
    AppSettings settings{preferences};
};

} // namespace

TEST_F(TrayHostXEmbed, ItemsAppearInTheTrayAndAConfigurationChangeRebuildsThem)
{
    XClient x;
    Config config;
    config.modules = {on(ModuleKind::cpu, DisplayStyle::graphAndText), on(ModuleKind::memory),
                      {ModuleKind::gpu, false, DisplayStyle::text}, on(ModuleKind::disks, DisplayStyle::iconAndText)};
    settings.setConfig(config);

    AppDelegate delegate(settings);
    delegate.applicationDidFinishLaunching();
    StatusItemController& items = *delegate.statusItems();
    ASSERT_EQ(items.entries().size(), 3u);
    EXPECT_EQ(items.entries()[0].kind, ModuleKind::cpu);
    EXPECT_EQ(items.entries()[2].kind, ModuleKind::disks);
    ASSERT_NE(items.host(), nullptr);
    EXPECT_FALSE(items.host()->exportsMenu()); // no watcher on this desktop: the XEmbed tray
    EXPECT_EQ(items.entries()[0].content.id, "pulsebar-cpu");
    EXPECT_TRUE(items.entries()[0].content.toolTipText.endsWith("%"));
    EXPECT_EQ(items.entries()[0].face.icon, TrayFace::Icon::value); // no labels here: the value is in the icon
    EXPECT_TRUE(test::waitUntil([&] { return x.embeddedWindowsOfThisProcess() == 3; }, 10000))
        << x.embeddedWindowsOfThisProcess();
    // trayer puts each icon it takes in at the start of its row, so the items are shown last one first:
    // in the order their windows were made, they sit right to left, and the row reads in module order.
    EXPECT_TRUE(test::waitUntil([&] {
        const std::vector<int> left = x.embeddedLeftEdgesInWindowOrder();
        return std::is_sorted(left.rbegin(), left.rend()) && std::adjacent_find(left.begin(), left.end()) == left.end();
    }, 10000));

    // A change that keeps the module list redraws the same items.
    const TrayItem* first = items.entries()[0].item.get();
    config.monochrome = true;
    settings.setConfig(config);
    EXPECT_EQ(items.entries()[0].item.get(), first);

    // A new module list replaces them: in the new order, and the tray follows.
    config.modules = {on(ModuleKind::network), on(ModuleKind::cpu)};
    settings.setConfig(config);
    ASSERT_EQ(items.entries().size(), 2u);
    EXPECT_EQ(items.entries()[0].kind, ModuleKind::network);
    EXPECT_TRUE(test::waitUntil([&] { return x.embeddedWindowsOfThisProcess() == 2; }, 10000))
        << x.embeddedWindowsOfThisProcess();

    // With every module disabled there is no item at all.
    for (ModuleConfig& module : config.modules)
        module.enabled = false;
    settings.setConfig(config);
    EXPECT_TRUE(items.entries().empty());
    EXPECT_TRUE(test::waitUntil([&] { return x.embeddedWindowsOfThisProcess() == 0; }, 10000));
    delegate.applicationWillTerminate();
}

TEST_F(TrayHostXEmbed, NoBatteryItemWithoutABatteryAndADropdownThatToggles)
{
    Config config;
    config.modules = {on(ModuleKind::battery), on(ModuleKind::cpu)};
    settings.setConfig(config);
    Hub hub(settings, systemReaders());
    StatusItemController items(hub, settings);
    HubSnapshot readings;
    readings.cpuUser = 12;
    items.readings = [&] { return readings; };
    items.rebuild();
    ASSERT_EQ(items.entries().size(), 1u);
    EXPECT_EQ(items.entries()[0].kind, ModuleKind::cpu);

    readings.batteryPresent = true;
    readings.batteryPercent = 55;
    items.rebuild();
    ASSERT_EQ(items.entries().size(), 2u);
    EXPECT_EQ(items.entries()[0].content.toolTipText, "55%");
    EXPECT_EQ(items.entries()[0].content.title, "Pulsebar Battery");

    items.toggleDropdown(ModuleKind::cpu);
    EXPECT_EQ(items.openDropdown(), ModuleKind::cpu);
    items.toggleDropdown(ModuleKind::battery); // another module's panel replaces it
    EXPECT_EQ(items.openDropdown(), ModuleKind::battery);
    items.toggleDropdown(ModuleKind::battery);
    EXPECT_FALSE(items.openDropdown());
    items.toggleDropdown(ModuleKind::cpu);
    items.rebuild(); // rebuilding closes it
    EXPECT_FALSE(items.openDropdown());

    // The context menu: keep-awake with its durations, settings, quit.
    QMenu menu;
    items.fillContextMenu(menu);
    QStringList titles;
    for (QAction* action : menu.actions())
        titles << (action->isSeparator() ? "-" : action->text());
    EXPECT_EQ(titles, (QStringList{"Keep Awake", "-", "Pulsebar Settings…", "-", "Quit Pulsebar"}));
    QStringList durations;
    for (QAction* action : menu.actions().first()->menu()->actions())
        durations << (action->isSeparator() ? "-" : action->text());
    EXPECT_EQ(durations, (QStringList{"30 minutes", "1 hour", "2 hours", "Until turned off", "-", "Turn Off"}));
    EXPECT_FALSE(menu.actions().first()->menu()->actions().last()->isEnabled()); // nothing to turn off
}

TEST(TrayX11HotKeys, AGrabbedCombinationFiresItsActionAndATakenOneFails)
{
    if (!onX11())
        GTEST_SKIP() << "needs an X server (run_with_tray_host.sh)";
    using namespace HotKeyRecorder;
    XClient x;
    // Another client already holds Ctrl+Alt+J.
    ASSERT_TRUE(x.grab('j', XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1));

    HotKeyCenter center(HotKeyCenter::makeDesktopBackend());
    std::vector<HotKeyAction> fired;
    center.onTrigger = [&](const HotKeyAction& action) { fired.push_back(action); };
    center.setHotKeys({{"keepAwake", {'k', controlKey | altKey, "Ctrl+Alt+K"}},
                       {"settings", {'j', controlKey | altKey, "Ctrl+Alt+J"}},
                       {"dropdown.cpu", {0xffc2, 0, "F5"}}});
    center.registerAll();
    EXPECT_EQ(center.failed, (std::set<QString>{"settings"}));
    EXPECT_EQ(center.registered.size(), 2u);

    constexpr uint32_t controlL = 0xffe3, altL = 0xffe9;
    x.press({controlL, altL, 'k'});
    ASSERT_TRUE(test::waitUntil([&] { return !fired.empty(); }, 5000));
    EXPECT_EQ(fired[0].kind, HotKeyAction::Kind::keepAwake);

    x.press({0xffc2});
    ASSERT_TRUE(test::waitUntil([&] { return fired.size() == 2; }, 5000));
    EXPECT_EQ(fired[1], (HotKeyAction{HotKeyAction::Kind::dropdown, ModuleKind::cpu}));

    // Once unregistered the key is free again and nothing fires.
    center.unregisterAll();
    x.press({controlL, altL, 'k'});
    QTest::qWait(200);
    EXPECT_EQ(fired.size(), 2u);
    EXPECT_TRUE(x.grab('k', XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1));
}
