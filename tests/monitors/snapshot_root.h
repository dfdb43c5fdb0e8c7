#pragma once

#include "platform/linux/rooted_file_reader.h"

#include "../support/test_support.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pulsebar::test {

// A sysroot that can be switched from one fixture snapshot to the next between two samples, the way
// the kernel's files change under a running monitor. The readers hold the path of a symbolic link,
// and `use` points the link at another snapshot of tests/fixtures/monitors.
class SnapshotRoot {
public:
    explicit SnapshotRoot(const QString& snapshot) : m_link(m_dir.path() + "/root") { use(snapshot); }

    void use(const QString& snapshot)
    {
        QFile::remove(m_link);
        const QString target = fixture("monitors/" + snapshot);
        EXPECT_TRUE(QFile::exists(target)) << target.toStdString();
        EXPECT_TRUE(QFile::link(target, m_link));
    }

    // A snapshot of one's own: a copy of nothing, filled by the test with writeFile.
    QString scratch(const QString& relative = {}) const { return m_dir.path() + "/scratch/" + relative; }
    void useScratch() { QFile::remove(m_link); EXPECT_TRUE(QFile::link(m_dir.path() + "/scratch", m_link)); }

    QString path() const { return m_link; }
    RootedFileReader sysfs() const { return RootedFileReader(m_link.toStdString()); }

private:
    QTemporaryDir m_dir;
    QString m_link;
};

// A clock the test moves by hand.
struct FakeClock {
    double time = 1'700'000'500;
    std::function<double()> function() { return [this] { return time; }; }
};

} // namespace pulsebar::test
