#include "menubar/hot_key_recorder.h"

#include <QKeyEvent>
#include <QKeySequence>

#include <array>
#include <utility>

namespace pulsebar::HotKeyRecorder {

namespace {

constexpr int functionKeyCount = 15;
constexpr uint32_t keysymF1 = 0xffbe;

// Keys that are named rather than typed: Qt key and X11 keysym.
constexpr std::array<std::pair<int, uint32_t>, 12> specialKeys{{
    {Qt::Key_Return, 0xff0d},
    {Qt::Key_Space, 0x0020},
    {Qt::Key_Backspace, 0xff08},
    {Qt::Key_Delete, 0xffff},
    {Qt::Key_Home, 0xff50},
    {Qt::Key_End, 0xff57},
    {Qt::Key_PageUp, 0xff55},
    {Qt::Key_PageDown, 0xff56},
    {Qt::Key_Left, 0xff51},
    {Qt::Key_Up, 0xff52},
    {Qt::Key_Right, 0xff53},
    {Qt::Key_Down, 0xff54},
}};

bool isModifierKey(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_Shift: case Qt::Key_Control: case Qt::Key_Meta: case Qt::Key_Alt: case Qt::Key_AltGr:
    case Qt::Key_Super_L: case Qt::Key_Super_R: case Qt::Key_Hyper_L: case Qt::Key_Hyper_R:
    case Qt::Key_CapsLock: case Qt::Key_NumLock: case Qt::Key_ScrollLock:
        return true;
    default:
        return false;
    }
}

} // namespace

bool isFunctionKey(int qtKey)
{
    return qtKey >= Qt::Key_F1 && qtKey < Qt::Key_F1 + functionKeyCount;
}

uint32_t keysym(int qtKey)
{
    if (isFunctionKey(qtKey))
        return keysymF1 + uint32_t(qtKey - Qt::Key_F1);
    for (const auto& [key, sym] : specialKeys)
        if (key == qtKey)
            return sym;
    if (qtKey >= Qt::Key_A && qtKey <= Qt::Key_Z)
        return uint32_t(qtKey - Qt::Key_A + 'a'); // a grab is made on the key, whatever its case
    if (qtKey > 0x20 && qtKey < 0x7f)
        return uint32_t(qtKey);
    if (qtKey >= 0xc0 && qtKey <= 0xde && qtKey != 0xd7)
        return uint32_t(qtKey + 0x20); // Latin-1 letters, like A-Z, by their lower case
    if (qtKey >= 0xa0 && qtKey <= 0xff)
        return uint32_t(qtKey); // Latin-1 keysyms equal their code points
    return 0;
}

uint32_t modifierMask(Qt::KeyboardModifiers modifiers)
{
    uint32_t mask = 0;
    if (modifiers & Qt::ControlModifier)
        mask |= controlKey;
    if (modifiers & Qt::AltModifier)
        mask |= altKey;
    if (modifiers & Qt::ShiftModifier)
        mask |= shiftKey;
    if (modifiers & Qt::MetaModifier)
        mask |= superKey;
    return mask;
}

QString label(int qtKey, uint32_t mask)
{
    // The words the Linux desktops print in their own shortcut lists (Qt says Meta for Super).
    QString out;
    if (mask & controlKey)
        out += QStringLiteral("Ctrl+");
    if (mask & altKey)
        out += QStringLiteral("Alt+");
    if (mask & shiftKey)
        out += QStringLiteral("Shift+");
    if (mask & superKey)
        out += QStringLiteral("Super+");
    return out + QKeySequence(qtKey).toString(QKeySequence::NativeText);
}

std::optional<HotKey> record(int qtKey, Qt::KeyboardModifiers modifiers, uint32_t nativeKeysym)
{
    if (isModifierKey(qtKey))
        return std::nullopt; // still waiting for the key itself
    const bool hasModifier = modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    if (!hasModifier && !isFunctionKey(qtKey))
        return std::nullopt;
    uint32_t sym = keysym(qtKey);
    if (sym == 0)
        sym = nativeKeysym;
    if (sym == 0)
        return std::nullopt;
    const uint32_t mask = modifierMask(modifiers);
    return HotKey{sym, mask, label(qtKey, mask)};
}

std::optional<HotKey> record(const QKeyEvent& event)
{
    return record(event.key(), event.modifiers() & ~Qt::KeypadModifier, event.nativeVirtualKey());
}

} // namespace pulsebar::HotKeyRecorder
