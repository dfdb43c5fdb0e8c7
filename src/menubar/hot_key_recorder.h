#pragma once

#include "core/config.h"

#include <Qt>

#include <cstdint>
#include <optional>

class QKeyEvent;

namespace pulsebar {

// Turns the key-down events of the settings' shortcut recorder into hot keys. The stored key code is
// the X11 keysym (letters in lower case); the modifier mask keeps the historical bits.
namespace HotKeyRecorder {

inline constexpr uint32_t superKey = 0x100;   // cmdKey
inline constexpr uint32_t shiftKey = 0x200;
inline constexpr uint32_t altKey = 0x800;     // optionKey
inline constexpr uint32_t controlKey = 0x1000;

// A key with Ctrl, Alt or Super held, or a function key F1-F15 alone; Shift alone never suffices.
// nullopt when the combination is refused or the key has no keysym.
std::optional<HotKey> record(const QKeyEvent& event);
std::optional<HotKey> record(int qtKey, Qt::KeyboardModifiers modifiers, uint32_t nativeKeysym = 0);

uint32_t modifierMask(Qt::KeyboardModifiers modifiers);
// The keysym of a Qt key, 0 when unknown.
uint32_t keysym(int qtKey);
bool isFunctionKey(int qtKey);
// "Ctrl+Alt+Shift+Super+K" in the desktop's own words.
QString label(int qtKey, uint32_t mask);

} // namespace HotKeyRecorder

} // namespace pulsebar
