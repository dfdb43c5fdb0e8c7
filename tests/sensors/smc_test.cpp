#include "monitors/smc.h"
#include "monitors/smc_sensor_source.h"
#include "platform/linux/applesmc_transport.h"

#include "../support/test_support.h"
#include "catalogue_text.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <set>
#include <sstream>

using namespace pulsebar;

namespace {

// A controller made of a key dump (tests/fixtures/sensors/applesmc/keys.txt): the keys of a real
// Intel MacBook Pro with their types and bytes, kept sorted as the firmware keeps them.
class DumpTransport : public SMCTransport {
public:
    struct Entry {
        uint32_t code;
        uint32_t type;
        std::vector<uint8_t> bytes;
    };

    explicit DumpTransport(const QString& path)
    {
        std::istringstream in(test::readFile(path).toStdString());
        std::string line;
        while (std::getline(in, line)) {
            if (line.empty() || line.rfind("# ", 0) == 0)
                continue;
            // The type may end in a blank ("ui8 "), so the columns are fixed: key, blank, type, blank, hex.
            const std::string key = line.substr(0, 4), type = line.substr(5, 4), hex = line.substr(10);
            Entry e{*SMCKey::pack(key), *SMCKey::pack(type), {}};
            for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
                e.bytes.push_back(uint8_t(std::stoi(hex.substr(i, 2), nullptr, 16)));
            entries.push_back(e);
        }
    }

    bool isOpen() const override { return open; }
    std::optional<uint32_t> keyCount() override { return uint32_t(entries.size()); }
    std::optional<uint32_t> keyAt(uint32_t index) override
    {
        ++calls;
        return index < entries.size() ? std::optional<uint32_t>(entries[index].code) : std::nullopt;
    }
    std::optional<SMCKeyInfo> keyInfo(uint32_t code) override
    {
        ++calls;
        ++infoCalls;
        const Entry* e = find(code);
        return e ? std::optional<SMCKeyInfo>(SMCKeyInfo{uint32_t(e->bytes.size()), e->type}) : std::nullopt;
    }
    std::optional<std::vector<uint8_t>> readKey(uint32_t code, uint32_t size) override
    {
        ++calls;
        const Entry* e = find(code);
        if (!e || failing.count(code))
            return std::nullopt;
        return std::vector<uint8_t>(e->bytes.begin(), e->bytes.begin() + std::min<std::size_t>(size, e->bytes.size()));
    }

    Entry* find(uint32_t code)
    {
        for (Entry& e : entries)
            if (e.code == code)
                return &e;
        return nullptr;
    }
    void set(const char* key, std::vector<uint8_t> bytes) { find(*SMCKey::pack(key))->bytes = std::move(bytes); }

    std::vector<Entry> entries;
    std::set<uint32_t> failing;
    bool open = true;
    int calls = 0;
    int infoCalls = 0;
};

std::unique_ptr<DumpTransport> macBookPro()
{
    return std::make_unique<DumpTransport>(test::fixture("sensors/applesmc/keys.txt"));
}

std::optional<double> decode(const char* type, std::vector<uint8_t> bytes)
{
    return SMCValue{"TEST", type, std::move(bytes)}.doubleValue();
}

} // namespace

TEST(SMCValue, DecodesEveryTypeAndRefusesShortData)
{
    EXPECT_EQ(decode("sp78", {0x1E, 0x80}), 30.5);
    EXPECT_EQ(decode("sp78", {0xFF, 0x00}), -1.0); // signed
    EXPECT_EQ(decode("sp96", {0x0A, 0x80}), 42.0);
    EXPECT_EQ(decode("spa5", {0x00, 0x40}), 2.0); // 2^5 for the hex digit 5
    EXPECT_EQ(decode("fpe2", {0x1F, 0x40}), 2000.0);
    EXPECT_EQ(decode("fpe2", {0xFF, 0xFC}), 16383.0); // unsigned
    EXPECT_EQ(decode("sp7z", {0x1E, 0x80}), std::nullopt);
    EXPECT_EQ(decode("sp78", {0x1E}), std::nullopt);

    EXPECT_EQ(decode("ui8 ", {0xFE}), 254.0);
    EXPECT_EQ(decode("ui16", {0x01, 0x02}), 258.0);
    EXPECT_EQ(decode("ui32", {0x00, 0x00, 0x01, 0x00}), 256.0);
    EXPECT_EQ(decode("ui64", {0, 0, 0, 1, 0, 0, 0, 0}), 4294967296.0);
    EXPECT_EQ(decode("ui32", {}), 0.0);
    EXPECT_EQ(decode("si8 ", {0xFE}), -2.0);
    EXPECT_EQ(decode("si16", {0xFF, 0xFE}), -2.0);
    EXPECT_EQ(decode("si16", {0xFF}), std::nullopt);
    EXPECT_EQ(decode("flag", {0x01}), 1.0);
    EXPECT_EQ(decode("flag", {}), std::nullopt);

    // 30.5f in little-endian order.
    EXPECT_EQ(decode("flt ", {0x00, 0x00, 0xF4, 0x41}), 30.5);
    EXPECT_EQ(decode("flt ", {0x00, 0x00, 0xF4}), std::nullopt);
    EXPECT_EQ(decode("ch8*", {0x41}), std::nullopt);
}

TEST(SMC, PacksKeysBigEndianAndSendsOnlyFourByteKeys)
{
    EXPECT_EQ(SMCKey::pack("TC0P"), 0x54433050u);
    EXPECT_EQ(SMCKey::unpack(0x54433050u), "TC0P");
    EXPECT_EQ(SMCKey::pack("TC0"), std::nullopt);

    auto transport = macBookPro();
    DumpTransport* raw = transport.get();
    SMC smc(std::move(transport));
    ASSERT_TRUE(smc.isOpen());
    EXPECT_EQ(smc.read("TC0"), std::nullopt);
    EXPECT_EQ(smc.read("TC0PX"), std::nullopt);
    EXPECT_EQ(smc.read(""), std::nullopt);
    EXPECT_EQ(raw->calls, 0);

    const auto value = smc.read("TB0T");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->type, "sp78");
    EXPECT_EQ(value->doubleValue(), 30.5);
    // The key's size and type are asked once and then cached.
    smc.read("TB0T");
    EXPECT_EQ(raw->infoCalls, 1);
    EXPECT_EQ(smc.read("ZZZZ"), std::nullopt);
    EXPECT_EQ(smc.keyCount(), 27);
    EXPECT_EQ(smc.key(0), "#KEY");
    EXPECT_EQ(smc.key(-1), std::nullopt);
}

TEST(SMC, ClosedControllerReadsNothing)
{
    auto transport = macBookPro();
    transport->open = false;
    DumpTransport* raw = transport.get();
    SMC smc(std::move(transport));
    EXPECT_FALSE(smc.isOpen());
    EXPECT_EQ(smc.read("TB0T"), std::nullopt);
    EXPECT_EQ(smc.keyCount(), 0);
    EXPECT_EQ(raw->calls, 0);
    SMCSensorSource source(smc);
    EXPECT_TRUE(source.discover().empty());
    EXPECT_EQ(source.fanCount(), 0);
}

TEST(SMCSensorSource, DiscoversNamesFiltersAndNumbersTheCatalogue)
{
    SMC smc(macBookPro());
    auto source = std::make_shared<SMCSensorSource>(smc);
    SensorMonitor monitor(source);
    monitor.discoverNow();
    ASSERT_TRUE(monitor.isReady);

    // Sorted by key; 0 (TH0A), 5.0 (Ts0P), 125.0 (Tx0X) and 130.75 (TG0P) are not sensors; MSAc is not a
    // temperature and not in the power table.
    EXPECT_EQ(catalogueText(monitor.sensors), QStringList({
                                                  "ID0R=DC In 1=power=3.125",
                                                  "PCPC=CPU Package=power=42",
                                                  "PSTR=System Total=power=80",
                                                  "TA0P=Ambient=system=27",
                                                  "TB0T=Battery=battery=30.5",
                                                  "TC0C=CPU Core 1=cpu=58",
                                                  "TC0D=CPU Die 1=cpu=60.25",
                                                  "TC0E=CPU Die 2=cpu=61",
                                                  "TC0P=CPU Proximity=cpu=50.5",
                                                  "TC1C=CPU Core 2=cpu=59",
                                                  "TM0P=Memory=memory=47",
                                                  "Tp01=CPU Performance Core 1=cpu=65",
                                                  "Tp05=CPU Performance Core 2=cpu=67.5",
                                                  "VD0R=DC In 2=power=12",
                                              }));
    EXPECT_EQ(monitor.sensor("ID0R")->kind, SensorKind::current);
    EXPECT_EQ(monitor.sensor("VD0R")->kind, SensorKind::voltage);
    EXPECT_EQ(monitor.fanCount, 2);
    EXPECT_EQ(monitor.cpuTemperature(), 67.5);
}

TEST(SMCSensorSource, SamplingReadsValuesPeaksAndFans)
{
    auto transport = macBookPro();
    DumpTransport* raw = transport.get();
    SMC smc(std::move(transport));
    SensorMonitor monitor(std::make_shared<SMCSensorSource>(smc));
    monitor.discoverNow();

    monitor.sample();
    ASSERT_EQ(monitor.fans.size(), 2u);
    EXPECT_EQ(monitor.fans[0], (Fan{0, 2000, 2000, 6000}));
    EXPECT_EQ(monitor.fans[1], (Fan{1, 1875, 2000, 6000}));
    EXPECT_EQ(monitor.fanHistory.last(), 2000);

    raw->set("TC0P", {0x3C, 0x00}); // 60 °C
    monitor.sample();
    raw->set("TC0P", {0x37, 0x00}); // 55 °C
    raw->failing.insert(*SMCKey::pack("TA0P"));
    monitor.sample();
    EXPECT_EQ(monitor.sensor("TC0P")->value, 55);
    EXPECT_EQ(monitor.sensor("TC0P")->peak, 60);
    EXPECT_EQ(monitor.sensor("TA0P")->value, 27); // the failed read keeps the previous value
    EXPECT_EQ(monitor.histories["TC0P"].values(), (std::deque<double>{50.5, 60, 55}));
    EXPECT_EQ(monitor.histories["TA0P"].size(), 2);
}

// The applesmc driver's key-index files: the transport writes the index, then reads the selected key.
TEST(AppleSMCTransport, SelectsByIndexAndKeepsTheTypeBlank)
{
    QTemporaryDir root;
    const QString dir = root.path() + "/sys/devices/platform/applesmc.768/";
    test::writeFile(dir + "key_count", "27\n");
    test::writeFile(dir + "key_at_index", "0\n");
    test::writeFile(dir + "key_at_index_name", "FNum\n");
    test::writeFile(dir + "key_at_index_type", "ui8 \n");
    test::writeFile(dir + "key_at_index_data_length", "1\n");
    test::writeFile(dir + "key_at_index_data", QByteArray("\x02", 1));

    SMC smc(std::make_unique<AppleSMCTransport>(RootedFileReader(root.path().toStdString())));
    ASSERT_TRUE(smc.isOpen());
    EXPECT_EQ(smc.keyCount(), 27);
    EXPECT_EQ(smc.key(7), "FNum");
    EXPECT_EQ(test::readFile(dir + "key_at_index"), "7");
    const auto fans = smc.read("FNum");
    ASSERT_TRUE(fans);
    EXPECT_EQ(fans->type, "ui8 ");
    EXPECT_EQ(fans->doubleValue(), 2.0);

    // A key the walk has not met is searched for among the sorted keys; here every index shows FNum,
    // so a smaller key is never found, and the search ends.
    EXPECT_EQ(smc.read("F0Ac"), std::nullopt);

    QTemporaryDir elsewhere;
    SMC absent(std::make_unique<AppleSMCTransport>(RootedFileReader(elsewhere.path().toStdString())));
    EXPECT_FALSE(absent.isOpen());
}
