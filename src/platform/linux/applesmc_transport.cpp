#include "platform/linux/applesmc_transport.h"

namespace pulsebar {

AppleSMCTransport::AppleSMCTransport(RootedFileReader sysfs) : m_sysfs(std::move(sysfs)) {}

std::string AppleSMCTransport::file(std::string_view name) const
{
    std::string path(directory);
    path += '/';
    path += name;
    return path;
}

bool AppleSMCTransport::isOpen() const
{
    return m_sysfs.readUnsigned(file("key_count")).has_value() && m_sysfs.isWritable(file("key_at_index"));
}

std::optional<uint32_t> AppleSMCTransport::keyCount()
{
    const auto count = m_sysfs.readUnsigned(file("key_count"));
    if (!count || *count > UINT32_MAX)
        return std::nullopt;
    return uint32_t(*count);
}

bool AppleSMCTransport::select(uint32_t index)
{
    return m_sysfs.writeText(file("key_at_index"), std::to_string(index));
}

std::optional<uint32_t> AppleSMCTransport::keyAt(uint32_t index)
{
    if (!select(index))
        return std::nullopt;
    const auto name = m_sysfs.readLine(file("key_at_index_name"));
    const auto code = name ? SMCKey::pack(*name) : std::nullopt;
    if (code)
        m_indexOf[*code] = index;
    return code;
}

// The firmware keeps its keys sorted by code (the driver itself searches them this way), so a key
// that the walk has not met yet is found in about log2(count) selections.
std::optional<uint32_t> AppleSMCTransport::indexOf(uint32_t code)
{
    if (const auto it = m_indexOf.find(code); it != m_indexOf.end())
        return it->second;
    const auto count = keyCount();
    if (!count)
        return std::nullopt;
    uint32_t low = 0, high = *count;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        const auto found = keyAt(middle);
        if (!found)
            return std::nullopt;
        if (*found == code)
            return middle;
        if (*found < code)
            low = middle + 1;
        else
            high = middle;
    }
    return std::nullopt;
}

std::optional<SMCKeyInfo> AppleSMCTransport::keyInfo(uint32_t code)
{
    const auto index = indexOf(code);
    if (!index || !select(*index))
        return std::nullopt;
    // The type is four characters and may end in a blank ("flt ", "ui8 "): only the newline goes.
    auto type = m_sysfs.readText(file("key_at_index_type"), 16);
    const auto length = m_sysfs.readUnsigned(file("key_at_index_data_length"));
    if (!type || !length)
        return std::nullopt;
    while (!type->empty() && (type->back() == '\n' || type->back() == '\0'))
        type->pop_back();
    type->resize(4, ' ');
    const auto packedType = SMCKey::pack(*type);
    if (!packedType || *length > UINT32_MAX)
        return std::nullopt;
    return SMCKeyInfo{uint32_t(*length), *packedType};
}

std::optional<std::vector<uint8_t>> AppleSMCTransport::readKey(uint32_t code, uint32_t size)
{
    const auto index = indexOf(code);
    if (!index || !select(*index))
        return std::nullopt;
    char buffer[32];
    const long n = m_sysfs.readInto(file("key_at_index_data"), buffer, std::min<std::size_t>(size, sizeof buffer));
    if (n < 0)
        return std::nullopt;
    return std::vector<uint8_t>(buffer, buffer + n);
}

SMC& SMC::shared()
{
    static SMC controller(std::make_unique<AppleSMCTransport>(RootedFileReader::fromEnvironment()));
    return controller;
}

} // namespace pulsebar
