// A second process for the history tests: records batches of rows into a writable store and flushes
// each one, printing "flushed N" after every flush, until it has written the number of batches asked
// for (0: until killed). Rows carry consecutive timestamps from `start`, cpu_user = the timestamp.
#include "history/history_store.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>

using namespace pulsebar;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 5) {
        std::fprintf(stderr, "usage: history_writer PATH BATCH_ROWS BATCHES START\n");
        return 2;
    }
    const QString path = QString::fromLocal8Bit(argv[1]);
    const int batchRows = QString(argv[2]).toInt();
    const int batches = QString(argv[3]).toInt();
    const qint64 start = QString(argv[4]).toLongLong();

    auto store = HistoryStore::open(path, HistoryStore::Access::writable, [start] { return double(start); });
    if (!store) {
        std::fprintf(stderr, "history_writer: cannot open %s\n", argv[1]);
        return 1;
    }
    qint64 ts = start;
    for (int batch = 0; batches == 0 || batch < batches; ++batch) {
        for (int i = 0; i < batchRows; ++i, ++ts)
            store->record({{HistoryMetric::cpuUser, double(ts)}, {HistoryMetric::memoryUsed, 50}}, double(ts));
        store->flush();
        std::printf("flushed %d\n", batch + 1);
        std::fflush(stdout);
    }
    return 0;
}
