#pragma once

#include "history/history_store.h"

#include <QString>
#include <QTemporaryDir>

#include <atomic>
#include <optional>
#include <vector>

#include <sqlite3.h>

namespace pulsebar::test {

// A clock the store can read from its worker thread while the test moves it.
struct FakeClock {
    std::atomic<double> seconds{1'700'000'000};
    HistoryStore::Clock clock()
    {
        return [this] { return seconds.load(); };
    }
};

// A plain connection of the test's own, to look into the file behind the store's back.
class SqlFile {
public:
    explicit SqlFile(const QString& path, int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)
    {
        sqlite3_open_v2(path.toLocal8Bit().constData(), &m_db, flags, nullptr);
        sqlite3_busy_timeout(m_db, 2000);
    }
    ~SqlFile() { sqlite3_close(m_db); }
    SqlFile(const SqlFile&) = delete;
    SqlFile& operator=(const SqlFile&) = delete;

    int exec(const QString& sql) { return sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, nullptr); }

    // Every row of the first column, NULL as absent.
    std::vector<std::optional<double>> column(const QString& sql)
    {
        std::vector<std::optional<double>> out;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK)
            return out;
        while (sqlite3_step(statement) == SQLITE_ROW)
            out.push_back(sqlite3_column_type(statement, 0) == SQLITE_NULL
                              ? std::nullopt
                              : std::optional<double>(sqlite3_column_double(statement, 0)));
        sqlite3_finalize(statement);
        return out;
    }

    std::optional<double> value(const QString& sql)
    {
        const auto rows = column(sql);
        return rows.empty() ? std::nullopt : rows.front();
    }

    QString text(const QString& sql)
    {
        QString out;
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.toUtf8().constData(), -1, &statement, nullptr) == SQLITE_OK
            && sqlite3_step(statement) == SQLITE_ROW)
            out = QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
        sqlite3_finalize(statement);
        return out;
    }

    long long count(const QString& table) { return (long long)value("SELECT count(*) FROM " + table).value_or(-1); }

private:
    sqlite3* m_db = nullptr;
};

} // namespace pulsebar::test
