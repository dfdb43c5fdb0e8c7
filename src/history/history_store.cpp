#include "history/history_store.h"

#include "core/clock.h"
#include "core/paths.h"
#include "core/private_files.h"
#include "core/serial_queue.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMetaObject>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <string>

namespace pulsebar {

namespace {

struct Tier {
    const char* table;
    std::int64_t bucket;   // whole seconds
    double retention;      // seconds
};

constexpr std::array<Tier, 3> tiers{{
    {"raw", 1, 3900},       // 65 minutes
    {"m1", 60, 90000},      // 25 hours
    {"m15", 900, 2678400},  // 31 days
}};

constexpr double prunePeriod = 3600;
constexpr double defaultFlushSeconds = 30;
constexpr std::size_t maxPendingRows = 3900;
constexpr int walCheckpointPages = 50;
// SQLite keeps up to 2 MB of pages per connection by default, and the check of every page at open
// fills it with the whole file, kept for as long as the program runs. A flush touches a few dozen
// pages and a graph reads each of its pages once, so 256 KB (64 pages) serves both.
constexpr int pageCacheKiB = 256;

const auto metrics = allCases<HistoryMetric>();

std::string column(HistoryMetric metric)
{
    return std::string(EnumNames<HistoryMetric>::names[std::size_t(metric)]);
}

// "a, b, c" built from each metric by `part`.
template <typename Range, typename Part>
std::string joined(const Range& items, Part part)
{
    std::string out;
    for (const auto& item : items) {
        if (!out.empty())
            out += ", ";
        out += part(item);
    }
    return out;
}

std::string allColumns()
{
    return joined(metrics, column);
}

// The mean of a column over a group, leaving out what is not a finite number (a damaged or hostile
// row may hold an infinity, which would swamp every mean it joins).
std::string finiteAverage(HistoryMetric metric)
{
    const std::string name = column(metric);
    return "AVG(CASE WHEN " + name + " BETWEEN -1.7976931348623157e308 AND 1.7976931348623157e308 THEN " + name +
           " END)";
}

int exec(sqlite3* db, const std::string& sql)
{
    return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
}

// Prepared statements are finalised however the scope is left.
struct Statement {
    sqlite3_stmt* handle = nullptr;
    Statement(sqlite3* db, const std::string& sql) { sqlite3_prepare_v2(db, sql.c_str(), -1, &handle, nullptr); }
    ~Statement() { sqlite3_finalize(handle); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    explicit operator bool() const { return handle != nullptr; }
};

bool createAndMigrate(sqlite3* db, const Tier& tier)
{
    const std::string table = tier.table;
    const std::string columns = joined(metrics, [](HistoryMetric m) { return column(m) + " REAL"; });
    if (exec(db, "CREATE TABLE IF NOT EXISTS " + table + " (ts INTEGER PRIMARY KEY, " + columns + ")") != SQLITE_OK)
        return false;

    // A metric added in a later version gains its column in older files; their rows read NULL there.
    std::set<std::string> existing;
    Statement info(db, "PRAGMA table_info(" + table + ")");
    if (!info)
        return false;
    while (sqlite3_step(info.handle) == SQLITE_ROW)
        if (const auto* name = sqlite3_column_text(info.handle, 1))
            existing.insert(reinterpret_cast<const char*>(name));
    for (HistoryMetric metric : metrics)
        if (!existing.count(column(metric)))
            exec(db, "ALTER TABLE " + table + " ADD COLUMN " + column(metric) + " REAL");
    return true;
}

// Re-averages every bucket of `into` from `since` on. Buckets are replaced whole, so a bucket that was
// partly filled at the previous flush gets the average of all its samples now.
bool rollUp(sqlite3* db, const Tier& from, const Tier& into, std::int64_t since)
{
    const std::int64_t start = since / into.bucket * into.bucket;
    const std::string width = std::to_string(into.bucket);
    return exec(db, "INSERT OR REPLACE INTO " + std::string(into.table) + " (ts, " + allColumns() + ")\n"
                    + "SELECT (ts / " + width + ") * " + width + " AS bucket, " + joined(metrics, finiteAverage)
                    + "\nFROM " + from.table + " WHERE ts >= " + std::to_string(start) + " GROUP BY bucket")
           == SQLITE_OK;
}

// Rejects a file that opened but is no usable database: not SQLite, damaged, or, for a writable
// store, one that SQLite could only open read-only. The writer also checks every page once (a few
// milliseconds for a month of history) before it changes anything, rather than write into a
// damaged file.
bool isUsable(sqlite3* db, HistoryStore::Access access)
{
    Statement check(db, "SELECT count(*) FROM sqlite_master");
    if (!check || sqlite3_step(check.handle) != SQLITE_ROW)
        return false;
    if (access == HistoryStore::Access::readOnly)
        return true;
    Statement quickCheck(db, "PRAGMA quick_check");
    if (!quickCheck || sqlite3_step(quickCheck.handle) != SQLITE_ROW)
        return false;
    const auto* verdict = reinterpret_cast<const char*>(sqlite3_column_text(quickCheck.handle, 0));
    return verdict && std::string(verdict) == "ok" && sqlite3_db_readonly(db, "main") == 0;
}

std::vector<std::string> names(sqlite3* db, const std::string& sql)
{
    std::vector<std::string> out;
    Statement select(db, sql);
    while (select && sqlite3_step(select.handle) == SQLITE_ROW)
        if (const auto* name = sqlite3_column_text(select.handle, 0))
            out.emplace_back(reinterpret_cast<const char*>(name));
    return out;
}

// Pulsebar writes only into a file of its own: a new, empty one, one it has stamped with its
// application id, or an unstamped one that holds exactly its three tiers (written before files were
// stamped). Any other database is someone else's and stays as it is.
bool isPulsebars(sqlite3* db)
{
    Statement id(db, "PRAGMA application_id");
    if (!id || sqlite3_step(id.handle) != SQLITE_ROW)
        return false;
    const std::int32_t stamp = sqlite3_column_int(id.handle, 0);
    if (stamp != 0)
        return stamp == HistoryStore::applicationId;
    std::vector<std::string> objects = names(db, "SELECT name FROM sqlite_master");
    if (objects.empty())
        return true;
    std::sort(objects.begin(), objects.end());
    if (objects != std::vector<std::string>{"m1", "m15", "raw"})
        return false;
    std::set<std::string> known{"ts"};
    for (HistoryMetric metric : metrics)
        known.insert(column(metric));
    for (const Tier& tier : tiers) {
        const std::vector<std::string> columns = names(db, "SELECT name FROM pragma_table_info('" + std::string(tier.table) + "')");
        if (columns.empty() || columns.front() != "ts" ||
            !std::all_of(columns.begin(), columns.end(), [&](const std::string& c) { return known.count(c) > 0; }))
            return false;
    }
    return true;
}

// Readies a file of Pulsebar's own for writing: write-ahead log, the tiers, the stamp.
bool prepareForWriting(sqlite3* db)
{
    exec(db, "PRAGMA journal_mode=WAL");
    exec(db, "PRAGMA synchronous=NORMAL");
    // A flush adds a handful of pages to the log; folding it back every 50 pages instead of
    // SQLite's 1000 keeps the log, which never shrinks on its own, near 200 KB instead of 4 MB.
    sqlite3_wal_autocheckpoint(db, walCheckpointPages);
    bool ok = true;
    for (const Tier& tier : tiers)
        ok = createAndMigrate(db, tier) && ok;
    return ok && exec(db, "PRAGMA application_id = " + std::to_string(HistoryStore::applicationId)) == SQLITE_OK;
}

// A receiver watched from the calling thread: the completion is dropped once it has been destroyed.
// Without a receiver the completion always runs.
struct Receiver {
    explicit Receiver(QObject* object) : guard(object), expected(object != nullptr) {}
    bool alive() const { return !expected || guard; }
    QPointer<QObject> guard;
    bool expected;
};

// Runs `work` on the main thread (the application object's), unless the receiver is gone by then.
void onMainThread(const Receiver& receiver, std::function<void()> work)
{
    auto* app = QCoreApplication::instance();
    if (!app)
        return;
    QMetaObject::invokeMethod(
        app, [receiver, work = std::move(work)] {
            if (receiver.alive())
                work();
        },
        Qt::QueuedConnection);
}

} // namespace

QString HistoryStore::defaultPath()
{
    return Paths::historyFile();
}

std::chrono::milliseconds HistoryStore::flushPeriod()
{
    bool ok = false;
    const double seconds = Paths::env("PULSEBAR_HISTORY_FLUSH_SECONDS").toDouble(&ok);
    const double chosen = ok && std::isfinite(seconds) && seconds > 0 ? seconds : defaultFlushSeconds;
    return std::chrono::milliseconds(std::max<std::int64_t>(1, std::llround(chosen * 1000)));
}

HistoryStore::HistoryStore(QString path, Access access, Clock clock)
    : m_path(std::move(path)), m_access(access), m_clock(clock ? std::move(clock) : Clock(systemNow)),
      m_queue(std::make_unique<SerialQueue>("Pulsebar.history"))
{
}

std::unique_ptr<HistoryStore> HistoryStore::open(const QString& path, Access access, Clock clock)
{
    std::unique_ptr<HistoryStore> store(new HistoryStore(path, access, std::move(clock)));
    bool opened = false;
    store->m_queue->sync([&] { opened = store->openOnQueue(); });
    if (!opened)
        return nullptr;
    if (access == Access::writable) {
        HistoryStore* self = store.get();
        // The timer belongs to the queue, which the store owns and stops before anything else goes.
        store->m_queue->startTimer(flushPeriod(), [self] { self->flushOnQueue(); });
        store->m_queue->async([self] { self->pruneOnQueue(); });
    }
    return store;
}

HistoryStore::~HistoryStore()
{
    m_queue.reset();
    sqlite3_close(m_db);
}

bool HistoryStore::openOnQueue()
{
    const bool writable = m_access == Access::writable;
    // The history is the user's alone: folder and file are private whatever the umask, and the
    // log and shared-memory files SQLite adds take the database's mode.
    if (writable && (!PrivateFiles::makeFolders(QFileInfo(m_path).absolutePath()) ||
                     !PrivateFiles::createIfMissing(m_path)))
        return false;
    const int flags = (writable ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOMUTEX;
    const QByteArray file = QFile::encodeName(m_path);
    if (sqlite3_open_v2(file.constData(), &m_db, flags, nullptr) != SQLITE_OK) {
        sqlite3_close(m_db);
        m_db = nullptr;
        return false;
    }
    // Covers the reader in the other process meeting the writer (and a second writer).
    sqlite3_busy_timeout(m_db, 2000);
    exec(m_db, "PRAGMA cache_size = -" + std::to_string(pageCacheKiB));
    // Every check reads only; nothing is written until the file is known to be Pulsebar's and sound.
    const bool usable = isUsable(m_db, m_access) && (!writable || (isPulsebars(m_db) && prepareForWriting(m_db)));
    if (!usable) {
        sqlite3_close(m_db);
        m_db = nullptr;
        return false;
    }
    return true;
}

void HistoryStore::record(const HistoryValues& values, double time)
{
    PendingRow row{std::int64_t(time), values};
    m_queue->async([this, row = std::move(row)]() mutable { m_pending.push_back(std::move(row)); });
}

void HistoryStore::flush()
{
    m_queue->sync([this] { flushOnQueue(); });
}

void HistoryStore::flushOnQueue()
{
    if (m_pending.empty() || m_access != Access::writable)
        return;
    std::vector<PendingRow> rows;
    rows.swap(m_pending);

    // The write lock is taken up front, so a flush either writes every row and its roll-ups or,
    // when another process still holds the file after the busy time-out, nothing at all; its rows
    // then wait for the next flush instead of being lost.
    if (!writeRows(rows)) {
        m_pending = std::move(rows);
        // A file that stays locked must not grow memory without end: keep the newest hour or so,
        // which is all the raw tier would keep anyway.
        if (m_pending.size() > maxPendingRows)
            m_pending.erase(m_pending.begin(), m_pending.end() - maxPendingRows);
    }

    if (m_clock() - m_lastPrune > prunePeriod)
        pruneOnQueue();
}

bool HistoryStore::writeRows(const std::vector<PendingRow>& rows)
{
    if (exec(m_db, "BEGIN IMMEDIATE") != SQLITE_OK)
        return false;
    bool ok = true;
    {
        std::string placeholders = "?";
        for (std::size_t i = 0; i < metrics.size(); ++i)
            placeholders += ", ?";
        Statement insert(m_db, "INSERT OR REPLACE INTO raw (ts, " + allColumns() + ") VALUES (" + placeholders + ")");
        for (const PendingRow& row : rows) {
            sqlite3_bind_int64(insert.handle, 1, row.ts);
            for (std::size_t i = 0; i < metrics.size(); ++i) {
                const auto found = row.values.find(metrics[i]);
                if (found != row.values.end() && std::isfinite(found->second))
                    sqlite3_bind_double(insert.handle, int(i) + 2, found->second);
                else
                    sqlite3_bind_null(insert.handle, int(i) + 2);
            }
            ok = sqlite3_step(insert.handle) == SQLITE_DONE && ok;
            sqlite3_reset(insert.handle);
        }
    }
    const std::int64_t since =
        std::min_element(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.ts < b.ts; })->ts;
    ok = rollUp(m_db, tiers[0], tiers[1], since) && ok;
    ok = rollUp(m_db, tiers[1], tiers[2], since) && ok;
    if (ok && exec(m_db, "COMMIT") == SQLITE_OK)
        return true;
    exec(m_db, "ROLLBACK");
    return false;
}

void HistoryStore::pruneOnQueue()
{
    const double now = m_clock();
    m_lastPrune = now;
    for (const Tier& tier : tiers)
        exec(m_db, "DELETE FROM " + std::string(tier.table) + " WHERE ts < "
                       + std::to_string(std::int64_t(now - tier.retention)));
    // Once an hour the log is also cut back to nothing (when no reader holds an old snapshot).
    sqlite3_wal_checkpoint_v2(m_db, nullptr, SQLITE_CHECKPOINT_TRUNCATE, nullptr, nullptr);
}

HistorySeries HistoryStore::query(const std::vector<HistoryMetric>& wanted, HistoryRange range)
{
    const HistoryRangeShape shape = historyRangeShape(range);
    HistorySeries series;
    series.bucket = double(shape.width);
    if (wanted.empty())
        return series;
    for (HistoryMetric metric : wanted)
        series.values[metric];

    // Rows dated in the future (a clock that was set wrong, a hostile file) are not part of any range.
    const std::int64_t now = std::int64_t(m_clock());
    const std::string width = std::to_string(shape.width);
    Statement select(m_db, "SELECT (ts / " + width + ") * " + width + " AS bucket, " + joined(wanted, finiteAverage)
                               + "\nFROM " + shape.table + " WHERE ts BETWEEN " + std::to_string(now - shape.span)
                               + " AND " + std::to_string(now) + " GROUP BY bucket ORDER BY bucket");
    if (!select)
        return series;
    while (sqlite3_step(select.handle) == SQLITE_ROW) {
        series.times.push_back(double(sqlite3_column_int64(select.handle, 0)));
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            const int col = int(i) + 1;
            auto& values = series.values[wanted[i]];
            // The mean of finite values can still overflow to infinity.
            const double value = sqlite3_column_double(select.handle, col);
            if (sqlite3_column_type(select.handle, col) == SQLITE_NULL || !std::isfinite(value))
                values.push_back(std::nullopt);
            else
                values.push_back(value);
        }
    }
    return series;
}

void HistoryStore::load(std::vector<HistoryMetric> wanted, HistoryRange range, QObject* receiver,
                        std::function<void(HistorySeries)> completion)
{
    m_queue->async([this, wanted = std::move(wanted), range, receiver = Receiver(receiver),
                    completion = std::move(completion)] {
        onMainThread(receiver, [series = query(wanted, range), completion]() mutable { completion(std::move(series)); });
    });
}

HistorySeries HistoryStore::loadNow(const std::vector<HistoryMetric>& wanted, HistoryRange range)
{
    HistorySeries series;
    m_queue->sync([&] { series = query(wanted, range); });
    return series;
}

void HistoryStore::clear(QObject* receiver, std::function<void()> completion)
{
    m_queue->async([this, receiver = Receiver(receiver), completion = std::move(completion)] {
        if (m_access == Access::writable) {
            for (const Tier& tier : tiers)
                exec(m_db, "DELETE FROM " + std::string(tier.table));
            exec(m_db, "VACUUM");
            // VACUUM writes the compacted copy through the log; fold it back and cut the log to
            // nothing, or the files on disk would not shrink at all.
            exec(m_db, "PRAGMA wal_checkpoint(TRUNCATE)");
        }
        if (completion)
            onMainThread(receiver, completion);
    });
}

std::int64_t HistoryStore::fileSize() const
{
    std::int64_t total = 0;
    for (const QString& file : {m_path, m_path + "-wal"}) {
        const QFileInfo info(file);
        if (info.exists())
            total += info.size();
    }
    return total;
}

} // namespace pulsebar
