#pragma once

#include <QString>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pulsebar {

// Four-character controller keys travel as unsigned 32-bit codes packed big-endian ("TC0P" = 0x54433050).
namespace SMCKey {
// nullopt unless the key is exactly four bytes of UTF-8.
std::optional<uint32_t> pack(std::string_view key);
std::string unpack(uint32_t code);
} // namespace SMCKey

// One typed value of the controller: the key, its four-character type ("sp78", "flt ", "ui8 ") and up
// to 32 raw bytes in the controller's order.
struct SMCValue {
    std::string key;
    std::string type;
    std::vector<uint8_t> bytes;

    // The value as a number, by type; nullopt for an unknown type or too few bytes.
    std::optional<double> doubleValue() const;
};

// Data size and type of one key, as the controller describes it.
struct SMCKeyInfo {
    uint32_t size = 0;
    uint32_t type = 0; // four characters packed big-endian
};

// The raw channel to the controller. On Linux it is the applesmc driver's key-index files; tests hand
// the SMC an in-memory table. Calls are never made concurrently: the SMC holds its lock around each.
class SMCTransport {
public:
    virtual ~SMCTransport() = default;
    virtual bool isOpen() const = 0;
    // The number of keys ("#KEY").
    virtual std::optional<uint32_t> keyCount() = 0;
    // The key stored at an index, packed.
    virtual std::optional<uint32_t> keyAt(uint32_t index) = 0;
    virtual std::optional<SMCKeyInfo> keyInfo(uint32_t code) = 0;
    // The first `size` data bytes of a key.
    virtual std::optional<std::vector<uint8_t>> readKey(uint32_t code, uint32_t size) = 0;
};

// A thread-safe reader of the system management controller. Discovery (a background thread) and
// sampling (the main thread) may overlap, so every controller call runs under one lock.
class SMC {
public:
    explicit SMC(std::unique_ptr<SMCTransport> transport);

    // The process's controller, over the applesmc interface below the sysroot; closed elsewhere.
    static SMC& shared();

    bool isOpen() const { return m_isOpen; }

    std::optional<SMCKeyInfo> keyInfo(uint32_t code);
    std::optional<SMCValue> read(std::string_view key);
    // The value of "#KEY"; 0 when unreadable.
    int keyCount();
    std::optional<std::string> key(int index);

private:
    std::optional<SMCKeyInfo> keyInfoLocked(uint32_t code);

    std::unique_ptr<SMCTransport> m_transport;
    bool m_isOpen = false;
    std::mutex m_lock;
    std::map<uint32_t, SMCKeyInfo> m_infoCache;
};

} // namespace pulsebar
