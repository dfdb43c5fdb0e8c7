// Two processes on one history file: a reader holding it while this process flushes, another writer
// holding the write lock, a writer in another process while this one reads, and a writer killed in the
// middle of its flushes.
#include "history/history_store.h"

#include "../support/test_support.h"
#include "history_test_support.h"

#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>

using namespace pulsebar;
using namespace pulsebar::test;

namespace {

class HistoryProcesses : public ::testing::Test {
protected:
    // The sqlite3 command-line tool on the file, reading its commands from our pipe.
    void startShell(QProcess& shell)
    {
        shell.setProcessChannelMode(QProcess::MergedChannels);
        shell.start("sqlite3", {path});
        ASSERT_TRUE(shell.waitForStarted());
    }

    static bool waitForOutput(QProcess& process, const QByteArray& text, QByteArray& seen, int timeoutMs = 10000)
    {
        return waitUntil(
            [&] {
                process.waitForReadyRead(20);
                seen += process.readAll();
                return seen.contains(text);
            },
            timeoutMs);
    }

    // Another writer: the sqlite3 tool takes the write lock and keeps it for `seconds`.
    void holdWriteLock(QProcess& shell, const char* seconds)
    {
        startShell(shell);
        QByteArray seen;
        shell.write(QByteArray("BEGIN IMMEDIATE;\nSELECT 'locked';\n.shell sleep ") + seconds + "\nCOMMIT;\n.quit\n");
        EXPECT_TRUE(waitForOutput(shell, "locked", seen));
    }

    void recordRows(HistoryStore& store, std::int64_t from, int count)
    {
        for (int i = 0; i < count; ++i)
            store.record({{HistoryMetric::cpuUser, 1}}, double(from + i));
    }

    QTemporaryDir dir;
    QString path = dir.path() + "/Pulsebar/history.sqlite";
    FakeClock clock;
};

} // namespace

TEST_F(HistoryProcesses, FlushGoesThroughWhileAReaderHoldsTheFile)
{
    auto store = HistoryStore::open(path, HistoryStore::Access::writable, clock.clock());
    ASSERT_TRUE(store);
    recordRows(*store, 1'700'000'000, 5);
    store->flush();

    QProcess reader;
    startShell(reader);
    QByteArray seen;
    reader.write("BEGIN;\nSELECT 'before ' || count(*) FROM raw;\n");
    ASSERT_TRUE(waitForOutput(reader, "before 5", seen));

    recordRows(*store, 1'700'000'100, 10);
    store->flush();
    clock.seconds = 1'700'000'200; // reads leave out rows dated after now
    auto second = HistoryStore::open(path, HistoryStore::Access::readOnly, clock.clock());
    ASSERT_TRUE(second);
    EXPECT_EQ(second->loadNow({HistoryMetric::cpuUser}, HistoryRange::hour).times.size(), 2u);

    // The reader still sees its own snapshot until it ends its transaction.
    reader.write("SELECT 'inside ' || count(*) FROM raw;\nCOMMIT;\nSELECT 'after ' || count(*) FROM raw;\n.quit\n");
    ASSERT_TRUE(waitForOutput(reader, "after 15", seen)) << seen.constData();
    EXPECT_TRUE(seen.contains("inside 5"));
    reader.waitForFinished();
}

TEST_F(HistoryProcesses, FlushWaitsForAnotherWriterAndKeepsItsRowsWhenTheLockOutlastsTheTimeout)
{
    auto store = HistoryStore::open(path, HistoryStore::Access::writable, clock.clock());
    ASSERT_TRUE(store);
    SqlFile file(path, SQLITE_OPEN_READONLY);

    // Ten rows flushed while another writer holds the lock; the rows on disk right after the flush.
    auto flushWhileLocked = [&](const char* seconds, std::int64_t from) -> long long {
        QProcess holder;
        holdWriteLock(holder, seconds);
        recordRows(*store, from, 10);
        store->flush();
        const long long rows = file.count("raw");
        holder.waitForFinished();
        return rows;
    };

    // A lock released within the busy time-out: the flush waits and succeeds.
    EXPECT_EQ(flushWhileLocked("0.5", 1'700'000'000), 10);
    // A lock held past the time-out: the flush gives up, and the rows go out with the next one.
    EXPECT_EQ(flushWhileLocked("3", 1'700'000'100), 10);
    store->flush();
    EXPECT_EQ(file.count("raw"), 20);
    EXPECT_EQ(file.count("m1"), 2);
}

TEST_F(HistoryProcesses, AReadOnlyStoreReadsWhileAnotherProcessWrites)
{
    QProcess writer;
    writer.start(HISTORY_WRITER, {path, "50", "40", "1700000000"});
    ASSERT_TRUE(writer.waitForStarted());
    QByteArray seen;
    ASSERT_TRUE(waitForOutput(writer, "flushed 1\n", seen));

    clock.seconds = 1'700'003'000;
    auto reader = HistoryStore::open(path, HistoryStore::Access::readOnly, clock.clock());
    ASSERT_TRUE(reader);
    std::size_t last = 0;
    int reads = 0;
    while (writer.state() != QProcess::NotRunning || reads == 0) {
        const HistorySeries series = reader->loadNow({HistoryMetric::cpuUser}, HistoryRange::hour);
        ASSERT_GE(series.times.size(), last); // never a failed or torn read
        last = series.times.size();
        ++reads;
        writer.waitForFinished(5);
    }
    EXPECT_EQ(writer.exitCode(), 0);
    EXPECT_EQ(reader->loadNow({HistoryMetric::cpuUser}, HistoryRange::hour).times.size(), 200u); // 2000 s in 10 s buckets
    // The reader never wrote: recording and flushing on it do nothing.
    reader->record({{HistoryMetric::cpuUser, 1}}, 1'700'002'500);
    reader->flush();
    EXPECT_EQ(SqlFile(path, SQLITE_OPEN_READONLY).count("raw"), 2000);
}

TEST_F(HistoryProcesses, AWriterKilledMidFlushLeavesAnIntactFileWithWholeBatches)
{
    constexpr int batch = 3000;
    QProcess writer;
    writer.start(HISTORY_WRITER, {path, QString::number(batch), "0", "1700000000"});
    ASSERT_TRUE(writer.waitForStarted());
    QByteArray seen;
    ASSERT_TRUE(waitForOutput(writer, "flushed 3\n", seen));
    QThread::msleep(7); // somewhere inside a later flush
    ::kill(pid_t(writer.processId()), SIGKILL);
    ASSERT_TRUE(writer.waitForFinished());
    EXPECT_EQ(writer.exitStatus(), QProcess::CrashExit);

    auto store = HistoryStore::open(path, HistoryStore::Access::writable, clock.clock());
    ASSERT_TRUE(store);
    SqlFile file(path);
    EXPECT_EQ(file.text("PRAGMA integrity_check"), "ok");
    const long long rows = file.count("raw");
    EXPECT_GE(rows, 3 * batch);
    EXPECT_EQ(rows % batch, 0) << "a flush was half written";
    // The roll-ups are part of the same transaction: the minutes cover exactly the rows that landed.
    EXPECT_EQ(file.value("SELECT max(ts) FROM m1"), double((1'700'000'000 + rows - 1) / 60 * 60));
}
