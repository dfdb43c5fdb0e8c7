#include "core/keep_awake.h"
#include "platform/linux/logind_power_assertions.h"
#include "../support/test_support.h"

#include "core/fmt.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusUnixFileDescriptor>
#include <QProcess>
#include <QThread>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

using namespace pulsebar;

namespace {

// What the inhibit services were asked, shared between their thread and the test.
struct InhibitLog {
    std::mutex mutex;
    QStringList sleepCalls;          // "what|who|why|mode"
    std::vector<int> lockReadEnds;   // read end of the pipe whose write end was handed out as the lock
    QStringList screenSaverCalls;    // "Inhibit app reason" or "UnInhibit cookie"
    std::atomic<bool> refuse{false};
};

class FakeLogind : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")
public:
    explicit FakeLogind(InhibitLog& log) : m_log(log) {}

public Q_SLOTS:
    QDBusUnixFileDescriptor Inhibit(const QString& what, const QString& who, const QString& why, const QString& mode)
    {
        if (m_log.refuse) {
            sendErrorReply(QDBusError::AccessDenied, "Permission denied");
            return {};
        }
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return {};
        QDBusUnixFileDescriptor lock(ends[1]); // keeps a duplicate
        ::close(ends[1]);
        std::lock_guard guard(m_log.mutex);
        m_log.sleepCalls << QStringList{what, who, why, mode}.join('|');
        m_log.lockReadEnds.push_back(ends[0]);
        return lock;
    }

private:
    InhibitLog& m_log;
};

class FakeScreenSaver : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.ScreenSaver")
public:
    explicit FakeScreenSaver(InhibitLog& log) : m_log(log) {}

public Q_SLOTS:
    uint Inhibit(const QString& app, const QString& reason)
    {
        std::lock_guard guard(m_log.mutex);
        m_log.screenSaverCalls << QString("Inhibit %1 %2").arg(app, reason);
        return 41;
    }
    void UnInhibit(uint cookie)
    {
        std::lock_guard guard(m_log.mutex);
        m_log.screenSaverCalls << QString("UnInhibit %1").arg(cookie);
    }

private:
    InhibitLog& m_log;
};

// True once every write end of the lock's pipe is closed, that is once nobody holds the lock.
bool released(int readEnd)
{
    pollfd p{readEnd, POLLIN, 0};
    if (::poll(&p, 1, 0) <= 0)
        return false;
    char c;
    return ::read(readEnd, &c, 1) == 0;
}

// A private bus with both services answering on their own thread, so that the blocking calls of the
// code under test are served while the test's thread waits.
class KeepAwakeOnPrivateBus : public ::testing::Test {
protected:
    void SetUp() override
    {
        daemon.start("dbus-daemon", {"--session", "--nofork", "--nopidfile", "--print-address=1"});
        ASSERT_TRUE(daemon.waitForStarted(5000)) << "dbus-daemon (package dbus) is needed";
        ASSERT_TRUE(test::waitUntil([&] { return daemon.canReadLine(); }, 5000));
        address = QString::fromUtf8(daemon.readLine()).trimmed();

        QDBusConnection service = QDBusConnection::connectToBus(address, "inhibit-service");
        ASSERT_TRUE(service.isConnected());
        logind = new FakeLogind(log);
        screenSaver = new FakeScreenSaver(log);
        logind->moveToThread(&serviceThread);
        screenSaver->moveToThread(&serviceThread);
        serviceThread.start();
        ASSERT_TRUE(service.registerService("org.freedesktop.login1"));
        ASSERT_TRUE(service.registerService("org.freedesktop.ScreenSaver"));
        ASSERT_TRUE(service.registerObject("/org/freedesktop/login1", logind, QDBusConnection::ExportAllSlots));
        ASSERT_TRUE(service.registerObject("/org/freedesktop/ScreenSaver", screenSaver,
                                           QDBusConnection::ExportAllSlots));

        QDBusConnection client = QDBusConnection::connectToBus(address, "inhibit-client");
        ASSERT_TRUE(client.isConnected());
        keepAwake = std::make_unique<KeepAwake>(std::make_unique<LogindPowerAssertions>(client, client));
        keepAwake->onChange = [this] { ++changes; };
    }

    void TearDown() override
    {
        keepAwake.reset();
        QDBusConnection::disconnectFromBus("inhibit-client");
        QDBusConnection::disconnectFromBus("inhibit-service");
        serviceThread.quit();
        serviceThread.wait();
        delete logind;
        delete screenSaver;
        for (int fd : log.lockReadEnds)
            ::close(fd);
        daemon.kill();
        daemon.waitForFinished();
    }

    int lockCount()
    {
        std::lock_guard guard(log.mutex);
        return int(log.lockReadEnds.size());
    }
    int lock(int i)
    {
        std::lock_guard guard(log.mutex);
        return log.lockReadEnds.at(i);
    }

    QProcess daemon;
    QString address;
    QThread serviceThread;
    InhibitLog log;
    FakeLogind* logind = nullptr;
    FakeScreenSaver* screenSaver = nullptr;
    std::unique_ptr<KeepAwake> keepAwake;
    int changes = 0;
};

} // namespace

TEST_F(KeepAwakeOnPrivateBus, ActivateTakesABlockingSleepLockThatStoppingOrQuittingReleases)
{
    EXPECT_EQ(keepAwake->statusText(), "Off");
    keepAwake->activate(false, std::optional<double>());
    ASSERT_TRUE(keepAwake->isActive);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(keepAwake->statusText(), "Until turned off");
    EXPECT_EQ(keepAwake->timer(), nullptr);
    ASSERT_EQ(lockCount(), 1);
    EXPECT_EQ(log.sleepCalls, QStringList{"sleep:idle|Pulsebar|Pulsebar Keep Awake|block"});
    EXPECT_TRUE(log.screenSaverCalls.isEmpty()); // the display may still sleep
    EXPECT_FALSE(released(lock(0)));
    keepAwake->stop(true);
    EXPECT_FALSE(keepAwake->isActive);
    EXPECT_EQ(changes, 2);
    EXPECT_TRUE(test::waitUntil([&] { return released(lock(0)); }, 2000));

    // Quitting releases the lock and its timer without telling anyone.
    keepAwake->activate(false, keepAwake->now() + 3600);
    ASSERT_EQ(lockCount(), 2);
    keepAwake->stop(false);
    EXPECT_EQ(changes, 3);
    EXPECT_TRUE(test::waitUntil([&] { return released(lock(1)); }, 2000));
    EXPECT_EQ(keepAwake->timer(), nullptr);

    // Destroying it while active releases too.
    keepAwake->activate(false, std::optional<double>());
    ASSERT_EQ(lockCount(), 3);
    keepAwake.reset();
    EXPECT_TRUE(test::waitUntil([&] { return released(lock(2)); }, 2000));
}

TEST_F(KeepAwakeOnPrivateBus, ActivatingAgainReplacesTheLockAndTheTimer)
{
    keepAwake->now = [] { return 1773481260.0; }; // 09:41 UTC
    keepAwake->activate(false, KeepAwake::Duration::minutes30);
    ASSERT_NE(keepAwake->timer(), nullptr);
    EXPECT_NEAR(keepAwake->timer()->interval(), 1800 * 1000, 1000);
    EXPECT_EQ(keepAwake->statusText(),
              "Until " + Fmt::time(QDateTime::fromSecsSinceEpoch(1773481260 + 1800), QTimeZone::systemTimeZone()));

    keepAwake->activate(false, KeepAwake::Duration::indefinitely);
    EXPECT_TRUE(keepAwake->isActive);
    EXPECT_EQ(keepAwake->timer(), nullptr); // the first one's end no longer applies
    EXPECT_FALSE(keepAwake->endDate);
    ASSERT_EQ(lockCount(), 2);
    EXPECT_TRUE(test::waitUntil([&] { return released(lock(0)); }, 2000));
    EXPECT_FALSE(released(lock(1)));
}

TEST_F(KeepAwakeOnPrivateBus, TheEndTimerTurnsItOffAndARefusedLockLeavesItOffSilently)
{
    keepAwake->activate(true, keepAwake->now() + 0.05);
    ASSERT_TRUE(keepAwake->isActive);
    EXPECT_EQ(log.screenSaverCalls, QStringList{"Inhibit Pulsebar Pulsebar Keep Awake"});
    ASSERT_TRUE(test::waitUntil([&] { return !keepAwake->isActive; }, 3000));
    EXPECT_EQ(changes, 2);
    EXPECT_EQ(keepAwake->statusText(), "Off");
    EXPECT_TRUE(test::waitUntil([&] { return released(lock(0)); }, 2000));
    {
        std::lock_guard guard(log.mutex);
        EXPECT_EQ(log.screenSaverCalls.last(), "UnInhibit 41");
    }

    log.refuse = true;
    keepAwake->activate(false, std::optional<double>());
    EXPECT_FALSE(keepAwake->isActive);
    EXPECT_EQ(changes, 2);
}

#include "keep_awake_test.moc"
