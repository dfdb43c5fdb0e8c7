#include "monitors/smc.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace pulsebar {

namespace SMCKey {

std::optional<uint32_t> pack(std::string_view key)
{
    if (key.size() != 4)
        return std::nullopt;
    uint32_t code = 0;
    for (const char c : key)
        code = (code << 8) | uint8_t(c);
    return code;
}

std::string unpack(uint32_t code)
{
    std::string key(4, ' ');
    for (int i = 0; i < 4; ++i)
        key[std::size_t(i)] = char((code >> (24 - 8 * i)) & 0xFF);
    return key;
}

} // namespace SMCKey

namespace {

std::optional<int> hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return std::nullopt;
}

uint16_t bigEndian16(const std::vector<uint8_t>& bytes)
{
    return uint16_t((bytes[0] << 8) | bytes[1]);
}

// sp78, fpe2 and their kin: 16 bits with as many fraction bits as the type's last hex digit says.
std::optional<double> fixedPoint(const std::string& type, const std::vector<uint8_t>& bytes, bool isSigned)
{
    if (bytes.size() < 2 || type.size() != 4)
        return std::nullopt;
    const auto fraction = hexDigit(type[3]);
    if (!fraction)
        return std::nullopt;
    const uint16_t raw = bigEndian16(bytes);
    const double whole = isSigned ? double(int16_t(raw)) : double(raw);
    return whole / double(1 << *fraction);
}

} // namespace

std::optional<double> SMCValue::doubleValue() const
{
    if (type == "flt ") {
        if (bytes.size() < 4)
            return std::nullopt;
        // The controller stores floats in the machine's own (little-endian) order.
        const uint32_t bits = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 |
                              uint32_t(bytes[3]) << 24;
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return double(value);
    }
    if (type == "ui8 " || type == "ui16" || type == "ui32" || type == "ui64") {
        double value = 0;
        for (const uint8_t b : bytes)
            value = value * 256.0 + b;
        return value;
    }
    if (type == "si8 ")
        return bytes.empty() ? std::nullopt : std::optional<double>(double(int8_t(bytes[0])));
    if (type == "si16")
        return bytes.size() < 2 ? std::nullopt : std::optional<double>(double(int16_t(bigEndian16(bytes))));
    if (type == "flag")
        return bytes.empty() ? std::nullopt : std::optional<double>(double(bytes[0]));
    if (type.rfind("sp", 0) == 0)
        return fixedPoint(type, bytes, true);
    if (type.rfind("fp", 0) == 0)
        return fixedPoint(type, bytes, false);
    return std::nullopt;
}

SMC::SMC(std::unique_ptr<SMCTransport> transport)
    : m_transport(std::move(transport)), m_isOpen(m_transport && m_transport->isOpen())
{
}

std::optional<SMCKeyInfo> SMC::keyInfoLocked(uint32_t code)
{
    if (const auto it = m_infoCache.find(code); it != m_infoCache.end())
        return it->second;
    const auto info = m_transport->keyInfo(code);
    if (info)
        m_infoCache.emplace(code, *info);
    return info;
}

std::optional<SMCKeyInfo> SMC::keyInfo(uint32_t code)
{
    std::lock_guard guard(m_lock);
    if (!m_isOpen)
        return std::nullopt;
    return keyInfoLocked(code);
}

std::optional<SMCValue> SMC::read(std::string_view key)
{
    const auto code = SMCKey::pack(key);
    if (!code)
        return std::nullopt;
    std::lock_guard guard(m_lock);
    if (!m_isOpen)
        return std::nullopt;
    const auto info = keyInfoLocked(*code);
    if (!info)
        return std::nullopt;
    auto bytes = m_transport->readKey(*code, info->size);
    if (!bytes)
        return std::nullopt;
    bytes->resize(std::min<std::size_t>({bytes->size(), info->size, 32}));
    return SMCValue{std::string(key), SMCKey::unpack(info->type), std::move(*bytes)};
}

int SMC::keyCount()
{
    std::lock_guard guard(m_lock);
    if (!m_isOpen)
        return 0;
    const auto count = m_transport->keyCount();
    return count ? int(std::min<uint32_t>(*count, INT32_MAX)) : 0;
}

std::optional<std::string> SMC::key(int index)
{
    if (index < 0)
        return std::nullopt;
    std::lock_guard guard(m_lock);
    if (!m_isOpen)
        return std::nullopt;
    const auto code = m_transport->keyAt(uint32_t(index));
    return code ? std::optional<std::string>(SMCKey::unpack(*code)) : std::nullopt;
}

} // namespace pulsebar
