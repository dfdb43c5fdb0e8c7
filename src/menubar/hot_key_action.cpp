#include "menubar/hot_key_action.h"

namespace pulsebar {

namespace {
const QString dropdownPrefix = QStringLiteral("dropdown.");
const QString keepAwakeIdentifier = QStringLiteral("keepAwake");
const QString settingsIdentifier = QStringLiteral("settings");
} // namespace

QString HotKeyAction::identifier() const
{
    switch (kind) {
    case Kind::dropdown: return dropdownPrefix + enumName(module);
    case Kind::keepAwake: return keepAwakeIdentifier;
    case Kind::settings: return settingsIdentifier;
    }
    return {};
}

std::optional<HotKeyAction> HotKeyAction::fromIdentifier(const QString& identifier)
{
    if (identifier == keepAwakeIdentifier)
        return HotKeyAction{Kind::keepAwake};
    if (identifier == settingsIdentifier)
        return HotKeyAction{Kind::settings};
    if (identifier.startsWith(dropdownPrefix))
        if (auto module = enumFromName<ModuleKind>(QStringView(identifier).mid(dropdownPrefix.size())))
            return HotKeyAction{Kind::dropdown, *module};
    return std::nullopt;
}

std::vector<HotKeyAction> HotKeyAction::allCases()
{
    std::vector<HotKeyAction> out;
    for (ModuleKind module : pulsebar::allCases<ModuleKind>())
        out.push_back({Kind::dropdown, module});
    out.push_back({Kind::keepAwake});
    out.push_back({Kind::settings});
    return out;
}

} // namespace pulsebar
