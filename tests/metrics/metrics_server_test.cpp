#include "hub/hub.h"
#include "metrics/metrics_server.h"

#include "../support/test_support.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace pulsebar;

namespace {

// Blocking client sockets, used from threads of their own while the main thread runs the event loop.
int connectTo(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    timeval timeout{20, 0}; // a hung server fails the test instead of hanging it
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

// Sends as much of `data` as the peer takes; returns the number of bytes it took.
qsizetype sendAll(int fd, const QByteArray& data)
{
    qsizetype sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.constData() + sent, size_t(data.size() - sent), MSG_NOSIGNAL);
        if (n <= 0)
            break;
        sent += n;
    }
    return sent;
}

QByteArray readToEnd(int fd)
{
    QByteArray out;
    char buffer[4096];
    ssize_t n;
    while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0)
        out.append(buffer, n);
    return out;
}

// True once the server has closed the connection (end of stream or reset).
bool closedByServer(int fd)
{
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 0) <= 0)
        return false;
    char c;
    return ::recv(fd, &c, 1, MSG_DONTWAIT) <= 0;
}

QByteArray scrape(quint16 port)
{
    const int fd = connectTo(port);
    sendAll(fd, "GET /metrics HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    const QByteArray response = readToEnd(fd);
    ::close(fd);
    return response;
}

struct ServerOverTickingHub {
    test::IsolatedSettings isolated;
    Hub hub{isolated.settings, test::fixtureReaders(test::fixture("monitors/sys-basic-1"))};
    MetricsServer server{[](MetricsFormat) { return QByteArray("pulsebar_up 1\n"); }};

    ServerOverTickingHub(int maxConnections, int timeoutMs)
    {
        Config config = isolated.settings.config();
        config.updateInterval = 0.25;
        isolated.settings.setConfig(config);
        server.limits.maxConnections = maxConnections;
        server.limits.requestTimeoutMs = timeoutMs;
        EXPECT_TRUE(server.listen(QHostAddress::LocalHost, 0));
        hub.startHeadless();
    }
};

} // namespace

TEST(MetricsServer, OversizedAndUnfinishedRequestsAreCutOffWhileTheHubTicks)
{
    // The unfinished heads are held for a second, long enough for several quarter-second ticks.
    ServerOverTickingHub fixture(16, 1000);
    const quint16 port = fixture.server.port();
    const int ticksBefore = fixture.hub.tickCount();

    std::atomic<bool> done = false;
    qsizetype hugeSent = 0;
    QByteArray hugeAnswer;
    std::vector<bool> slowClosed;
    std::thread clients([&] {
        // A 1 MB request target: answered 414, or cut off before the server took all of it.
        const int huge = connectTo(port);
        hugeSent = sendAll(huge, "GET /" + QByteArray(1 << 20, 'a') + " HTTP/1.1\r\n\r\n");
        hugeAnswer = readToEnd(huge);
        ::close(huge);
        // Slowloris: heads that never end, fewer than the cap, so only the time-out can end them.
        std::vector<int> slow;
        for (int i = 0; i < 12; ++i) {
            slow.push_back(connectTo(port));
            sendAll(slow.back(), "GET /metrics HTTP/1.1\r\nX-Slow: ");
        }
        for (int round = 0; round < 200; ++round) { // one byte every 50 ms, for at most 10 s
            bool allClosed = true;
            for (const int fd : slow)
                if (!closedByServer(fd)) {
                    allClosed = false;
                    sendAll(fd, "a");
                }
            if (allClosed)
                break;
            ::usleep(50'000);
        }
        for (const int fd : slow) {
            slowClosed.push_back(closedByServer(fd));
            ::close(fd);
        }
        done = true;
    });
    EXPECT_TRUE(test::waitUntil([&] { return done.load(); }, 60000));
    clients.join();

    EXPECT_TRUE(hugeAnswer.startsWith("HTTP/1.1 414 ") || hugeSent < (1 << 20))
        << hugeSent << " bytes taken, answer: " << hugeAnswer.left(40).constData();
    EXPECT_EQ(std::count(slowClosed.begin(), slowClosed.end(), true), 12);
    EXPECT_GE(fixture.hub.tickCount(), ticksBefore + 2); // the tick went on during all of it
    EXPECT_TRUE(test::waitUntil([&] { return fixture.server.connectionCount() == 0; }));

    QByteArray answer;
    std::atomic<bool> answered = false;
    std::thread after([&] {
        answer = scrape(port);
        answered = true;
    });
    EXPECT_TRUE(test::waitUntil([&] { return answered.load(); }, 20000));
    after.join();
    EXPECT_TRUE(answer.startsWith("HTTP/1.1 200 OK\r\n")) << answer.constData();
    EXPECT_TRUE(answer.endsWith("\r\n\r\npulsebar_up 1\n"));
}

TEST(MetricsServer, ManyIdleConnectionsAreCappedAndAScrapeStillGetsThrough)
{
    ServerOverTickingHub fixture(32, 60000); // no time-out in this test: only the cap makes room
    const quint16 port = fixture.server.port();
    const int ticksBefore = fixture.hub.tickCount();

    std::atomic<int> opened = 0;
    std::atomic<bool> release = false;
    std::atomic<bool> answered = false;
    QByteArray answer;
    std::thread clients([&] {
        std::vector<int> idle;
        for (int i = 0; i < 300; ++i)
            if (const int fd = connectTo(port); fd >= 0) {
                idle.push_back(fd);
                ++opened;
            }
        answer = scrape(port); // while every idle one is still open on this side
        answered = true;
        while (!release)
            ::usleep(10'000);
        for (const int fd : idle)
            ::close(fd);
    });
    EXPECT_TRUE(test::waitUntil([&] { return answered.load(); }, 60000));
    EXPECT_LE(fixture.server.connectionCount(), 32);
    release = true;
    clients.join();
    EXPECT_EQ(opened.load(), 300);
    EXPECT_TRUE(answer.startsWith("HTTP/1.1 200 OK\r\n")) << answer.left(60).constData();
    EXPECT_GT(fixture.hub.tickCount(), ticksBefore);
}
