#include "monitors/battery_monitor.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace pulsebar {

namespace {

// A remaining time beyond this comes from a near-zero rate and tells the user nothing.
constexpr double maximumMinutes = 100 * 60;

bool hasStatus(const BatteryReading& b, const char* status)
{
    return b.status && *b.status == QLatin1String(status);
}

std::optional<int64_t> positive(std::optional<int64_t> v)
{
    return v && *v > 0 ? v : std::nullopt;
}

std::optional<int64_t> sum(const std::vector<BatteryReading>& list, std::optional<int64_t> BatteryReading::*field)
{
    int64_t total = 0;
    for (const BatteryReading& b : list) {
        if (!(b.*field))
            return std::nullopt;
        total += std::abs(*(b.*field));
    }
    return total;
}

std::optional<int64_t> maximum(const std::vector<BatteryReading>& list, std::optional<int64_t> BatteryReading::*field)
{
    std::optional<int64_t> best;
    for (const BatteryReading& b : list)
        if ((b.*field) && (!best || *(b.*field) > *best))
            best = b.*field;
    return best;
}

// Machines with two packs (a fixed one and a swappable one) show them as one battery: amounts and
// rates add up, the charge is the share of the summed contents, and the busiest state wins.
BatteryReading combined(const std::vector<BatteryReading>& list)
{
    if (list.size() == 1)
        return list.front();
    BatteryReading out = list.front();
    for (auto field : {&BatteryReading::energyNow, &BatteryReading::energyFull, &BatteryReading::energyFullDesign,
                       &BatteryReading::chargeNow, &BatteryReading::chargeFull, &BatteryReading::chargeFullDesign,
                       &BatteryReading::powerNow, &BatteryReading::currentNow})
        out.*field = sum(list, field);
    for (auto field : {&BatteryReading::cycleCount, &BatteryReading::temp, &BatteryReading::voltageNow,
                       &BatteryReading::voltageMinDesign})
        out.*field = maximum(list, field);
    out.timeToEmpty = out.timeToFull = std::nullopt;
    const auto anyStatus = [&](const char* s) {
        return std::any_of(list.begin(), list.end(), [&](const BatteryReading& b) { return hasStatus(b, s); });
    };
    const auto allStatus = [&](const char* s) {
        return std::all_of(list.begin(), list.end(), [&](const BatteryReading& b) { return hasStatus(b, s); });
    };
    if (anyStatus("Charging"))
        out.status = QStringLiteral("Charging");
    else if (anyStatus("Discharging"))
        out.status = QStringLiteral("Discharging");
    else if (allStatus("Full"))
        out.status = QStringLiteral("Full");
    else if (anyStatus("Not charging"))
        out.status = QStringLiteral("Not charging");

    const auto nowTotal = out.energyNow ? out.energyNow : out.chargeNow;
    const auto fullTotal = out.energyNow ? out.energyFull : out.chargeFull;
    if (nowTotal && fullTotal && *fullTotal > 0) {
        out.capacity = double(*nowTotal) / double(*fullTotal) * 100.0;
    } else {
        double total = 0;
        int count = 0;
        for (const BatteryReading& b : list)
            if (b.capacity) {
                total += *b.capacity;
                ++count;
            }
        out.capacity = count ? std::optional<double>(total / count) : std::nullopt;
    }
    return out;
}

std::optional<double> chargePercent(const BatteryReading& b)
{
    if (b.capacity && std::isfinite(*b.capacity))
        return std::clamp(*b.capacity, 0.0, 100.0);
    const auto now = b.energyNow ? b.energyNow : b.chargeNow;
    const auto full = b.energyNow ? b.energyFull : b.chargeFull;
    if (now && full && *full > 0)
        return std::clamp(double(*now) / double(*full) * 100.0, 0.0, 100.0);
    return std::nullopt;
}

// Energy and power go together (µWh, µW), as do charge and current (µAh, µA); a driver that mixes them
// is bridged through the present voltage. Returns (amount left or missing, rate) in one pair of units.
struct Flow {
    double now = 0, full = 0, rate = 0;
};

std::optional<Flow> flow(const BatteryReading& b)
{
    const auto volts = positive(b.voltageNow);
    if (b.energyNow && b.energyFull) {
        std::optional<double> rate;
        if (b.powerNow)
            rate = std::abs(double(*b.powerNow));
        else if (b.currentNow && volts)
            rate = std::abs(double(*b.currentNow)) * double(*volts) / 1e6;
        if (rate)
            return Flow{double(*b.energyNow), double(*b.energyFull), *rate};
    }
    if (b.chargeNow && b.chargeFull) {
        std::optional<double> rate;
        if (b.currentNow)
            rate = std::abs(double(*b.currentNow));
        else if (b.powerNow && volts)
            rate = std::abs(double(*b.powerNow)) / double(*volts) * 1e6;
        if (rate)
            return Flow{double(*b.chargeNow), double(*b.chargeFull), *rate};
    }
    return std::nullopt;
}

std::optional<double> minutesToFull(const BatteryReading& b)
{
    if (const auto f = flow(b); f && f->rate > 0)
        return std::max(0.0, f->full - f->now) / f->rate * 60.0;
    if (b.timeToFull)
        return double(*b.timeToFull) / 60.0;
    return std::nullopt;
}

std::optional<double> minutesToEmpty(const BatteryReading& b)
{
    if (const auto f = flow(b); f && f->rate > 0)
        return f->now / f->rate * 60.0;
    if (b.timeToEmpty)
        return double(*b.timeToEmpty) / 60.0;
    return std::nullopt;
}

std::optional<int> wholeMinutes(std::optional<double> minutes)
{
    if (!minutes || !std::isfinite(*minutes) || *minutes < 1 || *minutes > maximumMinutes)
        return std::nullopt;
    return int(std::lround(*minutes));
}

// Capacities in mAh: charge figures directly (µAh), energy figures (µWh) through the design voltage.
std::optional<int> milliampHours(std::optional<int64_t> charge, std::optional<int64_t> energy,
                                 std::optional<int64_t> designVoltage)
{
    double mAh;
    if (charge)
        mAh = double(*charge) / 1000.0;
    else if (energy && designVoltage && *designVoltage > 0)
        mAh = double(*energy) / double(*designVoltage) * 1000.0;
    else
        return std::nullopt;
    if (mAh <= 0 || mAh > 1e6)
        return std::nullopt;
    return int(std::lround(mAh));
}

} // namespace

BatteryMonitor::BatteryMonitor(std::unique_ptr<BatteryReader> reader) : m_reader(std::move(reader)) {}

BatteryMonitor::~BatteryMonitor() = default;

void BatteryMonitor::sample()
{
    ++m_tick;
    lowPowerMode = m_reader->lowPowerMode();
    const PowerReading power = m_reader->readPower();
    readPowerSources(power);
    if (present)
        readSmartBattery(power);
    if (m_tick % 15 == 1)
        readBluetooth();
    if (present && m_tick % 5 == 1)
        history.add(percent);
}

void BatteryMonitor::readPowerSources(const PowerReading& power)
{
    present = !power.batteries.empty();
    if (!present) {
        // A removed battery leaves nothing of its last reading behind.
        percent = 0;
        isCharging = isCharged = false;
        onAC = std::any_of(power.adapters.begin(), power.adapters.end(), [](const auto& a) { return a.online; });
        minutesRemaining = cycleCount = designCapacity = maxCapacity = currentCapacity = std::nullopt;
        temperature = voltage = amperage = std::nullopt;
        adapterWatts = std::nullopt;
        adapterName = condition = std::nullopt;
        cellVoltages.clear();
        return;
    }
    const BatteryReading b = combined(power.batteries);
    if (const auto p = chargePercent(b))
        percent = *p;
    isCharging = hasStatus(b, "Charging");
    isCharged = hasStatus(b, "Full");
    if (power.adapters.empty())
        onAC = b.status && !hasStatus(b, "Discharging") && !hasStatus(b, "Unknown");
    else
        onAC = std::any_of(power.adapters.begin(), power.adapters.end(), [](const auto& a) { return a.online; });

    if (isCharging)
        minutesRemaining = wholeMinutes(minutesToFull(b));
    else if (onAC)
        minutesRemaining = std::nullopt;
    else
        minutesRemaining = wholeMinutes(minutesToEmpty(b));

    condition = b.health && !b.health->isEmpty() && *b.health != QLatin1String("Unknown") ? b.health : std::nullopt;
}

void BatteryMonitor::readSmartBattery(const PowerReading& power)
{
    if (power.batteries.empty())
        return;
    const BatteryReading b = combined(power.batteries);
    const bool discharging = hasStatus(b, "Discharging");

    cycleCount = b.cycleCount && *b.cycleCount >= 0 && *b.cycleCount < 100000 ? std::optional<int>(int(*b.cycleCount))
                                                                               : std::nullopt;
    designCapacity = milliampHours(b.chargeFullDesign, b.energyFullDesign, b.voltageMinDesign);
    maxCapacity = milliampHours(b.chargeFull, b.energyFull, b.voltageMinDesign);
    currentCapacity = milliampHours(b.chargeNow, b.energyNow, b.voltageMinDesign);

    temperature = std::nullopt;
    if (b.temp && *b.temp > -400 && *b.temp < 1500)
        temperature = double(*b.temp) / 10.0;

    voltage = std::nullopt;
    if (b.voltageNow && *b.voltageNow > 0 && *b.voltageNow < 100'000'000)
        voltage = double(*b.voltageNow) / 1e6;

    std::optional<double> amps;
    if (b.currentNow)
        amps = double(*b.currentNow) / 1e6;
    else if (b.powerNow && voltage)
        amps = double(*b.powerNow) / 1e6 / *voltage;
    // Most drivers report the current unsigned; the state gives the direction.
    if (amps && discharging && *amps > 0)
        amps = -*amps;
    amperage = amps && std::abs(*amps) < 100 ? amps : std::nullopt;

    // The kernel has no per-cell voltages in power_supply.
    cellVoltages.clear();

    adapterWatts = std::nullopt;
    adapterName = std::nullopt;
    if (!onAC)
        return;
    // A machine may list a plain "Mains" entry beside the USB-C source that knows the rating: the
    // first online supply that gives a figure wins, for the watts and the name alike.
    for (const AdapterReading& a : power.adapters) {
        if (!a.online)
            continue;
        if (!adapterWatts && a.voltageMax && a.currentMax && *a.voltageMax > 0 && *a.currentMax > 0) {
            const double watts = double(*a.voltageMax) / 1e6 * double(*a.currentMax) / 1e6;
            if (watts >= 1 && watts < 1000)
                adapterWatts = int(std::lround(watts));
        }
        if (!adapterName && a.name && !a.name->isEmpty())
            adapterName = a.name;
    }
}

void BatteryMonitor::readBluetooth()
{
    std::vector<BluetoothBattery> list;
    std::set<QString> names;
    for (BluetoothBattery accessory : m_reader->accessories()) {
        if (accessory.name.isEmpty() || !names.insert(accessory.name).second)
            continue; // the first report of a name wins
        accessory.percent = std::clamp(accessory.percent, 0, 100);
        list.push_back(std::move(accessory));
    }
    std::stable_sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    bluetooth = std::move(list);
}

QString BatteryMonitor::stateDescription() const
{
    if (!present)
        return QStringLiteral("No battery");
    if (isCharged || (onAC && percent >= 99.5))
        return QStringLiteral("Charged");
    if (isCharging)
        return QStringLiteral("Charging");
    if (onAC)
        return QStringLiteral("Not charging");
    return QStringLiteral("On battery");
}

std::optional<double> BatteryMonitor::healthPercent() const
{
    if (!maxCapacity || !designCapacity || *designCapacity < 1)
        return std::nullopt;
    return double(*maxCapacity) / double(*designCapacity) * 100.0;
}

std::optional<QString> BatteryMonitor::displayedCondition() const
{
    if (condition)
        return condition;
    const auto health = healthPercent();
    if (!health)
        return std::nullopt;
    return *health >= 80 ? QStringLiteral("Good") : QStringLiteral("Service Recommended");
}

QString BatteryMonitor::healthLabel() const
{
    const auto health = healthPercent();
    if (!health)
        return QStringLiteral("Battery health isn't available for this device.");
    return *health >= 80 ? QStringLiteral("Normal") : QStringLiteral("Service Recommended");
}

std::optional<double> batteryPowerDraw(std::optional<double> volts, std::optional<double> amperes)
{
    if (!volts || !amperes)
        return std::nullopt;
    return *volts * *amperes;
}

std::optional<double> BatteryMonitor::powerDraw() const
{
    return batteryPowerDraw(voltage, amperage);
}

} // namespace pulsebar
