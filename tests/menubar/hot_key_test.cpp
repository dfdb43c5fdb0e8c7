#include "menubar/hot_key_center.h"
#include "menubar/hot_key_recorder.h"
#include "../support/test_support.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QTimer>

#include <gtest/gtest.h>

using namespace pulsebar;
using namespace pulsebar::HotKeyRecorder;

TEST(HotKeyRecorder, NeedsCtrlAltOrSuperUnlessItIsAFunctionKey)
{
    EXPECT_FALSE(record(Qt::Key_A, Qt::ShiftModifier)); // Shift alone never suffices
    EXPECT_FALSE(record(Qt::Key_A, Qt::NoModifier));
    EXPECT_FALSE(record(Qt::Key_F16, Qt::NoModifier)); // the table has F1 to F15
    EXPECT_FALSE(record(Qt::Key_Control, Qt::ControlModifier, 0xffe3)); // a modifier on its own

    const struct {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        HotKey expected;
    } cases[] = {
        {Qt::Key_F5, Qt::NoModifier, {0xffc2, 0, "F5"}},
        {Qt::Key_K, Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, {'k', 0x1900, "Ctrl+Alt+Super+K"}},
        {Qt::Key_PageUp, Qt::ShiftModifier | Qt::ControlModifier, {0xff55, controlKey | shiftKey, "Ctrl+Shift+PgUp"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(record(c.key, c.modifiers), c.expected) << c.expected.label.toStdString();
    }

    // From a real key event, with the keysym the keyboard reported for an unnamed key.
    const QKeyEvent event(QEvent::KeyPress, Qt::Key_Eacute, Qt::AltModifier, 0, 0xe9, 0, QStringLiteral("é"));
    const std::optional<HotKey> accented = record(event);
    ASSERT_TRUE(accented);
    EXPECT_EQ(accented->keyCode, 0xe9u);
}

TEST(HotKeyAction, IdentifiersRoundTripAndUnknownOnesAreRefused)
{
    const std::vector<HotKeyAction> all = HotKeyAction::allCases();
    ASSERT_EQ(all.size(), 13u);
    EXPECT_EQ(all[1].identifier(), "dropdown.cpu");
    for (const HotKeyAction& action : all)
        EXPECT_EQ(HotKeyAction::fromIdentifier(action.identifier()), action);
    for (const char* unknown : {"dropdown.nothing", "dropdown.", "Settings"})
        EXPECT_FALSE(HotKeyAction::fromIdentifier(unknown)) << unknown;
}

namespace {

// Records what the centre asks of the desktop; refuses the key codes it is told to.
class FakeBackend : public HotKeyBackend {
public:
    struct Call {
        int id;
        QString identifier;
    };
    std::vector<Call> grabs;
    std::vector<int> ungrabs;
    std::set<uint32_t> taken;

    bool grab(int id, const QString& identifier, const HotKey& key) override
    {
        grabs.push_back({id, identifier});
        return !taken.count(key.keyCode);
    }
    void ungrab(int id) override { ungrabs.push_back(id); }
    ~FakeBackend() override
    {
        if (destroyed)
            *destroyed = true;
    }
    bool* destroyed = nullptr;
};

} // namespace

TEST(HotKeyCenter, RegistersInIdentifierOrderAndRecordsRefusals)
{
    auto owned = std::make_unique<FakeBackend>();
    FakeBackend& backend = *owned;
    backend.taken = {'t'};
    HotKeyCenter center(std::move(owned));
    center.setHotKeys({{"settings", {'s', controlKey, "Ctrl+S"}},
                       {"dropdown.cpu", {'c', controlKey, "Ctrl+C"}},
                       {"keepAwake", {'t', altKey, "Alt+T"}},
                       {"no.such.action", {'x', altKey, "Alt+X"}}});
    center.registerAll();
    ASSERT_EQ(backend.grabs.size(), 3u); // an identifier without an action is ignored
    EXPECT_EQ(backend.grabs[0].identifier, "dropdown.cpu");
    EXPECT_EQ(backend.grabs[1].identifier, "keepAwake");
    EXPECT_EQ(backend.grabs[2].identifier, "settings");
    EXPECT_LT(backend.grabs[0].id, backend.grabs[2].id);
    EXPECT_EQ(center.failed, (std::set<QString>{"keepAwake"}));
    EXPECT_EQ(center.registered.size(), 2u);

    // A press reaches the handler from the event loop, with its action.
    std::vector<HotKeyAction> fired;
    center.onTrigger = [&](const HotKeyAction& action) { fired.push_back(action); };
    backend.onPressed(center.registered.at("dropdown.cpu"));
    EXPECT_TRUE(fired.empty());
    ASSERT_TRUE(test::waitUntil([&] { return !fired.empty(); }));
    EXPECT_EQ(fired[0], (HotKeyAction{HotKeyAction::Kind::dropdown, ModuleKind::cpu}));

    // While suspended (the settings record a shortcut) nothing fires.
    center.suspended = true;
    backend.onPressed(center.registered.at("settings"));
    QCoreApplication::processEvents();
    EXPECT_EQ(fired.size(), 1u);
    center.suspended = false;

    // A refusal that arrives later moves the identifier to failed.
    backend.onRefused(center.registered.at("settings"));
    EXPECT_TRUE(center.failed.count("settings"));
    EXPECT_FALSE(center.registered.count("settings"));

    // Registering again releases every earlier grab first and forgets old failures.
    backend.taken.clear();
    const std::size_t before = backend.ungrabs.size();
    center.registerAll();
    EXPECT_EQ(backend.ungrabs.size(), before + 1); // dropdown.cpu was still registered
    EXPECT_TRUE(center.failed.empty());
    EXPECT_EQ(center.registered.size(), 3u);
}

TEST(HotKeyCenter, WithoutAKeyGrabbingDesktopEveryKeyFails)
{
    // The offscreen platform has neither X11 nor a portal.
    HotKeyCenter center(HotKeyCenter::makeDesktopBackend());
    center.setHotKeys({{"settings", {'s', controlKey, "Ctrl+S"}}});
    center.registerAll();
    EXPECT_EQ(center.failed, (std::set<QString>{"settings"}));
}

// The display connection closes with the application; grabs and the backend that holds the
// connection are let go before that, when the application is about to quit.
TEST(HotKeyCenter, ShutDownReleasesTheGrabsAndTheBackendBeforeQuitting)
{
    auto owned = std::make_unique<FakeBackend>();
    FakeBackend& backend = *owned;
    bool destroyed = false;
    backend.destroyed = &destroyed;
    HotKeyCenter center(std::move(owned));
    center.setHotKeys({{"settings", {'s', controlKey, "Ctrl+S"}}});
    center.registerAll();
    center.shutDown();
    ASSERT_TRUE(destroyed);
    center.registerAll(); // no backend left to grab with
    EXPECT_EQ(center.failed, (std::set<QString>{"settings"}));

    // The shared centre shuts down when the event loop quits.
    HotKeyCenter& shared = HotKeyCenter::shared();
    shared.setHotKeys({{"settings", {'s', controlKey, "Ctrl+S"}}});
    shared.registerAll();
    ASSERT_FALSE(shared.failed.empty()); // the offscreen platform grabs nothing
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
    QCoreApplication::exec();
    EXPECT_TRUE(shared.failed.empty());
}
