#include "history/history_store.h"

#include "../support/test_support.h"
#include "history_test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <gtest/gtest.h>

#include <limits>

#include <sys/stat.h>

using namespace pulsebar;
using namespace pulsebar::test;

namespace {

constexpr std::int64_t floorTo(std::int64_t t, std::int64_t width)
{
    return t / width * width;
}

class HistoryStoreTest : public ::testing::Test {
protected:
    std::unique_ptr<HistoryStore> openStore(HistoryStore::Access access = HistoryStore::Access::writable)
    {
        return HistoryStore::open(path, access, clock.clock());
    }
    std::int64_t now() const { return std::int64_t(clock.seconds.load()); }

    QTemporaryDir dir;
    QString path = dir.path() + "/data/Pulsebar/history.sqlite";
    FakeClock clock;
};

constexpr auto metricCases = allCases<HistoryMetric>();
const std::vector<HistoryMetric> allMetrics(metricCases.begin(), metricCases.end());

} // namespace

TEST_F(HistoryStoreTest, WritableOpenCreatesTheFolderAndThreeTiersInWalMode)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    EXPECT_TRUE(QFileInfo::exists(path));
    SqlFile file(path);
    EXPECT_EQ(file.text("PRAGMA journal_mode"), "wal");
    for (const char* table : {"raw", "m1", "m15"})
        EXPECT_EQ(file.text(QString("SELECT group_concat(name) FROM pragma_table_info('%1')").arg(table)),
                  "ts,cpu_user,cpu_system,gpu,mem_pressure,mem_used,disk_read,disk_write,"
                  "net_down,net_up,temperature,fan,battery,power")
            << table;
}

TEST_F(HistoryStoreTest, OlderFileLackingAColumnGainsItAndItsOldRowsReadAbsent)
{
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        SqlFile old(path);
        old.exec(QString("PRAGMA application_id = %1").arg(HistoryStore::applicationId));
        old.exec("CREATE TABLE raw (ts INTEGER PRIMARY KEY, cpu_user REAL, cpu_system REAL, gpu REAL, "
                 "mem_pressure REAL, mem_used REAL, disk_read REAL, disk_write REAL, net_down REAL, net_up REAL, "
                 "temperature REAL, fan REAL, battery REAL)");
        old.exec(QString("INSERT INTO raw (ts, cpu_user, battery) VALUES (%1, 40, 80)").arg(now() - 30));
    }
    auto store = openStore();
    ASSERT_TRUE(store);
    SqlFile file(path);
    for (const char* table : {"raw", "m1", "m15"})
        EXPECT_EQ(file.value(QString("SELECT count(*) FROM pragma_table_info('%1') WHERE name = 'power'").arg(table)), 1.0)
            << table;

    const HistorySeries series = store->loadNow({HistoryMetric::cpuUser, HistoryMetric::power}, HistoryRange::hour);
    ASSERT_EQ(series.times.size(), 1u);
    EXPECT_EQ(series.values.at(HistoryMetric::cpuUser)[0], 40.0);
    EXPECT_EQ(series.values.at(HistoryMetric::power)[0], std::nullopt);
}

TEST_F(HistoryStoreTest, RowsReachTheDiskOnlyOnFlushAndTheLaterSampleOfASecondWins)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    const double t = double(now());
    store->record({{HistoryMetric::cpuUser, 10}, {HistoryMetric::gpu, 5}}, t + 0.2);
    store->record({{HistoryMetric::cpuUser, 30}}, t + 0.9);
    SqlFile file(path, SQLITE_OPEN_READONLY);
    store->loadNow({}, HistoryRange::hour); // waits until both rows are queued
    EXPECT_EQ(file.count("raw"), 0);

    store->flush();
    EXPECT_EQ(file.count("raw"), 1);
    EXPECT_EQ(file.value("SELECT ts FROM raw"), t);
    EXPECT_EQ(file.value("SELECT cpu_user FROM raw"), 30.0);
    EXPECT_EQ(file.value("SELECT gpu FROM raw"), std::nullopt); // the whole row is replaced
    store->flush(); // nothing pending: nothing changes
    EXPECT_EQ(file.count("raw"), 1);
}

TEST_F(HistoryStoreTest, FlushAcrossBucketBoundariesReaveragesTheMinuteAndQuarterHourBuckets)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    const std::int64_t b = floorTo(now(), 900) - 900; // start of a quarter hour, and of a minute
    auto rows = [&](std::int64_t from, std::int64_t to, HistoryValues values) {
        for (std::int64_t ts = from; ts <= to; ++ts)
            store->record(values, double(ts));
    };

    rows(b + 50, b + 59, {{HistoryMetric::cpuUser, 10}, {HistoryMetric::memoryUsed, 20}});
    store->flush();
    SqlFile file(path, SQLITE_OPEN_READONLY);
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m1 WHERE ts = %1").arg(b)), 10.0);
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m15 WHERE ts = %1").arg(b)), 10.0);

    // The second batch fills the rest of that minute, the next minute, and the minute before the
    // quarter hour; its earliest row decides where the roll-up starts.
    rows(b + 40, b + 49, {{HistoryMetric::cpuUser, 40}});
    rows(b + 60, b + 79, {{HistoryMetric::cpuUser, 70}});
    rows(b - 10, b - 1, {{HistoryMetric::cpuUser, 100}});
    store->flush();

    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m1 WHERE ts = %1").arg(b)), 25.0);
    EXPECT_EQ(file.value(QString("SELECT mem_used FROM m1 WHERE ts = %1").arg(b)), 20.0); // NULLs are skipped
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m1 WHERE ts = %1").arg(b + 60)), 70.0);
    EXPECT_EQ(file.value(QString("SELECT mem_used FROM m1 WHERE ts = %1").arg(b + 60)), std::nullopt);
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m1 WHERE ts = %1").arg(b - 60)), 100.0);
    // Quarter hours average the minute averages, not the seconds.
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m15 WHERE ts = %1").arg(b)), 47.5);
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m15 WHERE ts = %1").arg(b - 900)), 100.0);
    EXPECT_EQ(file.count("m1"), 3);
    EXPECT_EQ(file.count("m15"), 2);
}

TEST_F(HistoryStoreTest, PruneKeepsEachTierForItsRetentionAndRunsAtMostHourly)
{
    const std::int64_t t = now();
    clock.seconds = double(t - 3601);
    auto store = openStore(); // prunes once at once, an hour and a second before t
    ASSERT_TRUE(store);
    store->flush();
    clock.seconds = double(t);

    const std::int64_t rawCut = t - 3900, m1Cut = t - 90000, m15Cut = t - 2678400;
    for (std::int64_t ts : {rawCut - 1, rawCut, m1Cut - 120, m1Cut + 120, m15Cut - 1800, m15Cut + 1800})
        store->record({{HistoryMetric::cpuUser, 1}}, double(ts));
    store->flush(); // more than an hour since the last prune: this flush prunes

    SqlFile file(path, SQLITE_OPEN_READONLY);
    EXPECT_EQ(file.column("SELECT ts FROM raw"), (std::vector<std::optional<double>>{double(rawCut)}));
    EXPECT_EQ(file.value(QString("SELECT min(ts) FROM m1")), double(floorTo(m1Cut + 120, 60)));
    EXPECT_EQ(file.value(QString("SELECT min(ts) FROM m15")), double(floorTo(m15Cut + 1800, 900)));
    EXPECT_EQ(file.value(QString("SELECT count(*) FROM m15 WHERE ts < %1").arg(m15Cut)), 0.0);

    // Within the hour nothing is pruned, however old the new rows.
    clock.seconds = double(t + 1000);
    store->record({{HistoryMetric::cpuUser, 1}}, double(rawCut - 500));
    store->flush();
    EXPECT_EQ(file.count("raw"), 2);
}

TEST_F(HistoryStoreTest, EveryRangeReadsItsTableAtItsWidthOverItsSpan)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    const std::int64_t t = now();
    {
        SqlFile file(path);
        file.exec("BEGIN");
        for (std::int64_t ts = t - 7200; ts <= t; ++ts)
            file.exec(QString("INSERT INTO raw (ts, cpu_user) VALUES (%1, %2)").arg(ts).arg(ts % 2 ? 0 : 2));
        for (std::int64_t ts = floorTo(t - 2 * 86400, 60); ts <= t; ts += 60)
            file.exec(QString("INSERT INTO m1 (ts, cpu_user) VALUES (%1, 1)").arg(ts));
        for (std::int64_t ts = floorTo(t - 40 * 86400, 900); ts <= t; ts += 900)
            file.exec(QString("INSERT INTO m15 (ts, cpu_user) VALUES (%1, 1)").arg(ts));
        file.exec("COMMIT");
    }

    for (HistoryRange range : allCases<HistoryRange>()) {
        SCOPED_TRACE(enumName(range).toStdString());
        const HistoryRangeShape shape = historyRangeShape(range);
        const HistorySeries series = store->loadNow({HistoryMetric::cpuUser, HistoryMetric::gpu}, range);
        EXPECT_EQ(series.bucket, double(shape.width));
        ASSERT_FALSE(series.times.empty());
        // Buckets start on whole widths, the first holds the left edge of the span, none is missing.
        EXPECT_EQ(series.times.front(), double(floorTo(t - shape.span, shape.width)));
        EXPECT_EQ(series.times.back(), double(floorTo(t, shape.width)));
        EXPECT_EQ(std::int64_t(series.times.size()), (floorTo(t, shape.width) - floorTo(t - shape.span, shape.width)) / shape.width + 1);
        ASSERT_EQ(series.values.at(HistoryMetric::cpuUser).size(), series.times.size());
        for (std::size_t i = 1; i + 1 < series.times.size(); ++i)
            ASSERT_EQ(series.values.at(HistoryMetric::cpuUser)[i], 1.0); // the mean over the bucket
        for (const auto& gpu : series.values.at(HistoryMetric::gpu))
            ASSERT_EQ(gpu, std::nullopt);
    }
    EXPECT_EQ(store->loadNow({HistoryMetric::cpuUser}, HistoryRange::live),
              store->loadNow({HistoryMetric::cpuUser}, HistoryRange::hour));
}

TEST_F(HistoryStoreTest, MetricsWithoutASourceReadAsAbsentNotZero)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    for (int i = 0; i < 120; ++i)
        store->record({{HistoryMetric::cpuUser, 12}, {HistoryMetric::download, 0}}, double(now() - 120 + i));
    store->flush();
    for (HistoryRange range : allCases<HistoryRange>()) {
        const HistorySeries series = store->loadNow(allMetrics, range);
        ASSERT_FALSE(series.times.empty());
        for (HistoryMetric metric : allMetrics) {
            const auto& values = series.values.at(metric);
            ASSERT_EQ(values.size(), series.times.size());
            for (const auto& value : values) {
                if (metric == HistoryMetric::cpuUser)
                    EXPECT_EQ(value, 12.0);
                else if (metric == HistoryMetric::download)
                    EXPECT_EQ(value, 0.0); // a real zero stays a zero
                else
                    EXPECT_EQ(value, std::nullopt) << enumName(metric).toStdString();
            }
        }
    }
    const HistorySeries none = store->loadNow({}, HistoryRange::day);
    EXPECT_TRUE(none.times.empty());
    EXPECT_TRUE(none.values.empty());
}

TEST_F(HistoryStoreTest, LoadAndClearCompleteOnTheMainThreadAndClearShrinksTheFile)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    HistoryValues full;
    for (HistoryMetric metric : allMetrics)
        full[metric] = 1234.5;
    for (std::int64_t ts = now() - 3600; ts <= now(); ++ts)
        store->record(full, double(ts));
    store->flush();
    const std::int64_t before = store->fileSize();
    EXPECT_GT(before, 100'000);

    std::optional<HistorySeries> loaded;
    QThread* loadedOn = nullptr;
    QObject receiver;
    store->load({HistoryMetric::fan}, HistoryRange::hour, &receiver, [&](HistorySeries s) {
        loaded = std::move(s);
        loadedOn = QThread::currentThread();
    });
    ASSERT_TRUE(waitUntil([&] { return loaded.has_value(); }));
    EXPECT_EQ(loadedOn, QThread::currentThread());
    EXPECT_EQ(loaded->times.size(), 361u);

    // A receiver destroyed before the result arrives gets nothing.
    bool lateCall = false;
    {
        QObject gone;
        store->load({HistoryMetric::fan}, HistoryRange::hour, &gone, [&](HistorySeries) { lateCall = true; });
        store->loadNow({}, HistoryRange::hour); // the load has run and queued its completion
    }
    QCoreApplication::processEvents();
    EXPECT_FALSE(lateCall);

    bool cleared = false;
    store->clear(&receiver, [&] { cleared = QThread::currentThread() == receiver.thread(); });
    ASSERT_TRUE(waitUntil([&] { return cleared; }));
    for (HistoryRange range : allCases<HistoryRange>())
        EXPECT_TRUE(store->loadNow({HistoryMetric::fan}, range).times.empty());
    EXPECT_LT(store->fileSize(), before / 4);
}

TEST_F(HistoryStoreTest, FilesThatAreNotUsableDatabasesAreNeitherOpenedNorTouched)
{
    // Not SQLite at all.
    const QByteArray text = QByteArray("these are someone's notes, not a database\n").repeated(200);
    writeFile(path, text);
    EXPECT_FALSE(openStore());
    EXPECT_FALSE(openStore(HistoryStore::Access::readOnly));
    EXPECT_EQ(readFile(path), text);

    // A real history file with one page overwritten: the first (the schema), or one deep inside.
    auto damagedCopy = [&](qsizetype at) {
        QFile::remove(path);
        {
            auto store = openStore();
            EXPECT_TRUE(store);
            for (int i = 0; i < 2000 && store; ++i)
                store->record({{HistoryMetric::cpuUser, double(i)}}, double(now() - 2000 + i));
            if (store)
                store->flush();
        }
        QByteArray damaged = readFile(path);
        EXPECT_GT(damaged.size(), at + 4096);
        damaged.replace(at, 3900, QByteArray(3900, '\xA5'));
        writeFile(path, damaged);
        return damaged;
    };
    for (qsizetype at : {100, 10 * 4096}) {
        const QByteArray damaged = damagedCopy(at);
        EXPECT_FALSE(openStore()) << "damage at " << at;
        EXPECT_EQ(readFile(path), damaged);
    }

    // Databases of other programs, and ones that only look like Pulsebar's, are not touched either.
    const QString tiers = "CREATE TABLE raw (ts INTEGER PRIMARY KEY, cpu_user REAL); "
                          "CREATE TABLE m1 (ts INTEGER PRIMARY KEY, cpu_user REAL); "
                          "CREATE TABLE m15 (ts INTEGER PRIMARY KEY, cpu_user REAL);";
    const QStringList foreign{
        "CREATE TABLE notes (id INTEGER PRIMARY KEY, body TEXT); INSERT INTO notes (body) VALUES ('keep');",
        "CREATE TABLE raw (a TEXT, b TEXT);",
        tiers + "CREATE TABLE notes (body TEXT);",
        tiers + "CREATE INDEX by_cpu ON raw (cpu_user);",
        "CREATE TABLE raw (ts INTEGER PRIMARY KEY, cpu_user REAL, comment TEXT); "
        "CREATE TABLE m1 (ts INTEGER PRIMARY KEY); CREATE TABLE m15 (ts INTEGER PRIMARY KEY);",
        tiers + "PRAGMA application_id = 42;",
    };
    for (const QString& schema : foreign) {
        QFile::remove(path);
        SqlFile(path).exec(schema);
        const QByteArray before = readFile(path);
        EXPECT_FALSE(openStore()) << schema.toStdString();
        EXPECT_EQ(readFile(path), before) << schema.toStdString();
        EXPECT_FALSE(QFileInfo::exists(path + "-wal"));
    }
    // A file of exactly the tiers, from before files were stamped, is Pulsebar's and gets the stamp.
    QFile::remove(path);
    SqlFile(path).exec(tiers);
    EXPECT_TRUE(openStore());
    EXPECT_EQ(SqlFile(path).value("PRAGMA application_id"), double(HistoryStore::applicationId));

    // Read-only opens never create a file.
    const QString missing = dir.path() + "/nowhere/history.sqlite";
    EXPECT_FALSE(HistoryStore::open(missing, HistoryStore::Access::readOnly));
    EXPECT_FALSE(QFileInfo::exists(missing));
}

TEST(HistoryStoreFlushPeriod, ComesFromTheEnvironmentWhenItIsAPositiveNumber)
{
    {
        ScopedEnv env("PULSEBAR_HISTORY_FLUSH_SECONDS", "");
        EXPECT_EQ(HistoryStore::flushPeriod(), std::chrono::seconds(30));
    }
    for (const char* bad : {"0", "-3", "soon", "nan"}) {
        ScopedEnv env("PULSEBAR_HISTORY_FLUSH_SECONDS", bad);
        EXPECT_EQ(HistoryStore::flushPeriod(), std::chrono::seconds(30)) << bad;
    }
    ScopedEnv env("PULSEBAR_HISTORY_FLUSH_SECONDS", "0.25");
    EXPECT_EQ(HistoryStore::flushPeriod(), std::chrono::milliseconds(250));
}

TEST_F(HistoryStoreTest, TheFlushTimerWritesPendingRowsOnItsOwn)
{
    ScopedEnv env("PULSEBAR_HISTORY_FLUSH_SECONDS", "0.1");
    auto store = openStore();
    ASSERT_TRUE(store);
    store->record({{HistoryMetric::cpuUser, 3}}, double(now()));
    SqlFile file(path, SQLITE_OPEN_READONLY);
    EXPECT_TRUE(waitUntil([&] { return file.count("raw") == 1; }, 3000));
}

TEST_F(HistoryStoreTest, ANewFileIsPrivateWhateverTheUmask)
{
    const mode_t oldMask = ::umask(0);
    auto store = openStore();
    ::umask(oldMask);
    ASSERT_TRUE(store);
    store->record({{HistoryMetric::cpuUser, 1}}, double(now()));
    store->flush();
    for (const QString& file : {path, path + "-wal"})
        EXPECT_EQ(QFileInfo(file).permissions() & 0x0777, QFile::ReadUser | QFile::WriteUser) << file.toStdString();
    EXPECT_EQ(QFileInfo(QFileInfo(path).path()).permissions() & 0x0777,
              QFile::ReadUser | QFile::WriteUser | QFile::ExeUser);
    EXPECT_EQ(SqlFile(path).value("PRAGMA application_id"), double(HistoryStore::applicationId));
}

TEST_F(HistoryStoreTest, HostileRowsAreLeftOutOfEveryRead)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    const std::int64_t t = floorTo(now(), 10);
    {
        SqlFile file(path);
        file.exec(QString("INSERT INTO raw (ts, cpu_user, fan) VALUES (%1, 9e999, 1e308), (%2, 40, 1e308), "
                          "(%3, 99, 99), (%4, 99, 99), (-5, 99, 99)")
                      .arg(t - 30).arg(t - 29).arg(t + 86400 * 365).arg(std::numeric_limits<std::int64_t>::max()));
    }
    const HistorySeries series = store->loadNow({HistoryMetric::cpuUser, HistoryMetric::fan}, HistoryRange::hour);
    EXPECT_EQ(series.times, std::vector<double>{double(t - 30)});
    // The infinity is left out of the mean; two huge values that overflow their mean read as absent.
    EXPECT_EQ(series.values.at(HistoryMetric::cpuUser), std::vector<std::optional<double>>{40.0});
    EXPECT_EQ(series.values.at(HistoryMetric::fan), std::vector<std::optional<double>>{std::nullopt});

    // Nor do they reach the coarser tiers, and a value that is not finite is never stored.
    store->record({{HistoryMetric::cpuUser, std::numeric_limits<double>::infinity()}, {HistoryMetric::gpu, 5}},
                  double(t - 28));
    store->flush();
    SqlFile file(path);
    EXPECT_EQ(file.value(QString("SELECT cpu_user FROM m1 WHERE ts = %1").arg(floorTo(t - 30, 60))), 40.0);
    EXPECT_EQ(file.value(QString("SELECT cpu_user IS NULL FROM raw WHERE ts = %1").arg(t - 28)), 1.0);
}

TEST_F(HistoryStoreTest, AFailedRollUpWritesNoneOfTheBatch)
{
    auto store = openStore();
    ASSERT_TRUE(store);
    // The quarter-hour tier loses a column behind the store's back, so rolling up into it fails.
    ASSERT_EQ(SqlFile(path).exec("ALTER TABLE m15 DROP COLUMN power"), SQLITE_OK);
    store->record({{HistoryMetric::cpuUser, 10}}, double(now()));
    store->flush();
    SqlFile file(path);
    EXPECT_EQ(file.count("raw"), 0);
    EXPECT_EQ(file.count("m1"), 0);
}
