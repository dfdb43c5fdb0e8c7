#pragma once

#include <QString>

#include <array>
#include <optional>
#include <string_view>

namespace pulsebar {

// Every persisted enumeration declares one name table by specialising EnumNames; the cases are listed
// in declaration order, which is also the order pickers and "all cases" use.
template <typename E>
struct EnumNames;

template <typename E>
constexpr auto allCases()
{
    constexpr auto& names = EnumNames<E>::names;
    std::array<E, names.size()> cases{};
    for (std::size_t i = 0; i < names.size(); ++i)
        cases[i] = static_cast<E>(i);
    return cases;
}

template <typename E>
QString enumName(E value)
{
    const auto& names = EnumNames<E>::names;
    const auto i = static_cast<std::size_t>(value);
    return i < names.size() ? QString::fromLatin1(names[i].data(), qsizetype(names[i].size())) : QString();
}

template <typename E>
std::optional<E> enumFromName(QStringView text)
{
    const auto& names = EnumNames<E>::names;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (text == QLatin1String(names[i].data(), qsizetype(names[i].size())))
            return static_cast<E>(i);
    return std::nullopt;
}

} // namespace pulsebar
