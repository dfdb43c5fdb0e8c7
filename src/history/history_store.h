#pragma once

#include "history/history_metric.h"
#include "history/history_range.h"
#include "history/history_series.h"

#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

struct sqlite3;

namespace pulsebar {

class SerialQueue;

// Up to 30 days of samples on disk, in three tiers of decreasing resolution:
//   raw  1 s buckets,   kept 65 minutes (read by the hour ranges)
//   m1   1 min buckets, kept 25 hours   (the day range)
//   m15  15 min buckets, kept 31 days   (the week and month ranges)
// Each retention is a little longer than the longest range read from that tier, so a range's left edge
// is never pruned away. The coarser tiers hold bucket averages, never maxima.
//
// The tray process owns the one writable store; the MCP server opens the same file read-only. All
// database work runs on one serial worker thread; rows reach the disk in batches, one transaction
// every flush period (30 s, or PULSEBAR_HISTORY_FLUSH_SECONDS).
class HistoryStore {
public:
    enum class Access { writable, readOnly };
    // Seconds since 1970. Prune and queries take "now" from it; tests pass a fake one.
    using Clock = std::function<double()>;

    // Stamped into the file's header (PRAGMA application_id): "Puls".
    static constexpr std::int32_t applicationId = 0x50756C73;

    // Paths::historyFile()
    static QString defaultPath();

    // Opens the database, or returns nothing when the file cannot be opened (or is not a database),
    // in which case the caller runs without history. A writable open takes only a new file or one of
    // Pulsebar's own that passes SQLite's quick check, and leaves any other file byte for byte as it
    // was; it creates the folder (0700) and the file (0600), the tables, migrates older files, starts
    // the flush timer and prunes once at once. A read-only open does nothing but open. The clock is
    // called on the store's worker thread.
    static std::unique_ptr<HistoryStore> open(const QString& path, Access access, Clock clock = {});
    static std::unique_ptr<HistoryStore> openDefault(Access access) { return open(defaultPath(), access); }

    // Cancels the timer, finishes the queued work and closes the database. Pending rows that were
    // never flushed are dropped: call flush() first to keep them.
    ~HistoryStore();
    HistoryStore(const HistoryStore&) = delete;
    HistoryStore& operator=(const HistoryStore&) = delete;

    const QString& path() const { return m_path; }
    Access access() const { return m_access; }

    // Queues one row (time truncated to whole seconds); no disk work happens here.
    void record(const HistoryValues& values, double time);
    // Writes the pending rows now and waits for it (used on quit).
    void flush();

    // Reads a range on the worker thread and calls the completion on the main thread, unless the
    // receiver has been destroyed by then.
    void load(std::vector<HistoryMetric> metrics, HistoryRange range, QObject* receiver,
              std::function<void(HistorySeries)> completion);
    // The same, waiting for the result (the MCP server's use).
    HistorySeries loadNow(const std::vector<HistoryMetric>& metrics, HistoryRange range);

    // Empties every tier and compacts the file, then calls the completion on the main thread.
    void clear(QObject* receiver, std::function<void()> completion);

    // Bytes of the database file plus its write-ahead log, each counted when it exists.
    std::int64_t fileSize() const;

    // How often pending rows are written; 30 s unless PULSEBAR_HISTORY_FLUSH_SECONDS says otherwise.
    static std::chrono::milliseconds flushPeriod();

private:
    struct PendingRow {
        std::int64_t ts;
        HistoryValues values;
    };

    HistoryStore(QString path, Access access, Clock clock);
    bool openOnQueue();
    void flushOnQueue();
    bool writeRows(const std::vector<PendingRow>& rows);
    void pruneOnQueue();
    HistorySeries query(const std::vector<HistoryMetric>& metrics, HistoryRange range);

    QString m_path;
    Access m_access;
    Clock m_clock;
    sqlite3* m_db = nullptr;          // used only on the queue
    std::vector<PendingRow> m_pending; // used only on the queue
    double m_lastPrune = 0;            // used only on the queue
    std::unique_ptr<SerialQueue> m_queue; // last: destroyed first, so no job outlives the fields above
};

} // namespace pulsebar
