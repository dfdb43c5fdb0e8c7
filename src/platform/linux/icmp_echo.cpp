#include "platform/linux/icmp_echo.h"

#include <QSocketNotifier>
#include <QTimer>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace pulsebar {

namespace IcmpEcho {

QByteArray request(bool v6, uint16_t sequence, std::string_view payload)
{
    // type, code, checksum (2), identifier (2), sequence (2, network order), payload
    QByteArray out(8, '\0');
    out[0] = char(v6 ? requestV6 : requestV4);
    out[6] = char(sequence >> 8);
    out[7] = char(sequence & 0xff);
    out.append(payload.data(), qsizetype(payload.size()));
    return out;
}

bool isReply(std::string_view message, bool v6, uint16_t sequence, std::string_view payload)
{
    if (message.size() < 8)
        return false;
    const auto byte = [&](std::size_t i) { return uint8_t(message[i]); };
    return byte(0) == (v6 ? replyV6 : replyV4) && byte(1) == 0 && (uint16_t(byte(6) << 8 | byte(7))) == sequence
           && message.substr(8) == payload;
}

} // namespace IcmpEcho

namespace {

double realtimeSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

} // namespace

std::unique_ptr<IcmpEchoRequest> IcmpEchoRequest::send(const QHostAddress& to, int timeoutMs, Done done)
{
    const bool v6 = to.protocol() == QAbstractSocket::IPv6Protocol;
    if (!v6 && to.protocol() != QAbstractSocket::IPv4Protocol)
        return nullptr;
    const int fd = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC,
                            v6 ? int(IPPROTO_ICMPV6) : int(IPPROTO_ICMP));
    if (fd < 0)
        return nullptr; // EACCES: no group of ours is in net.ipv4.ping_group_range
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);

    static std::atomic<uint16_t> sequences{0};
    std::unique_ptr<IcmpEchoRequest> request(new IcmpEchoRequest(fd, v6, ++sequences, std::move(done)));
    const QByteArray message = IcmpEcho::request(v6, request->m_sequence, request->m_payload.toStdString());

    sockaddr_storage address{};
    socklen_t length = 0;
    if (v6) {
        auto* in6 = reinterpret_cast<sockaddr_in6*>(&address);
        in6->sin6_family = AF_INET6;
        const Q_IPV6ADDR bytes = to.toIPv6Address();
        std::memcpy(&in6->sin6_addr, bytes.c, sizeof bytes.c);
        in6->sin6_scope_id = uint32_t(to.scopeId().toUInt());
        length = sizeof *in6;
    } else {
        auto* in4 = reinterpret_cast<sockaddr_in*>(&address);
        in4->sin_family = AF_INET;
        in4->sin_addr.s_addr = htonl(to.toIPv4Address());
        length = sizeof *in4;
    }
    request->m_sentAt = realtimeSeconds();
    const bool sent = ::sendto(fd, message.constData(), std::size_t(message.size()), 0,
                               reinterpret_cast<sockaddr*>(&address), length) == message.size();
    // Refused at once (no route to the host): no answer will come, which is told as soon as the
    // event loop runs, like any other failed ping.
    request->m_timeout->start(sent ? timeoutMs : 0);
    return request;
}

IcmpEchoRequest::IcmpEchoRequest(int fd, bool v6, uint16_t sequence, Done done)
    : m_fd(fd), m_v6(v6), m_sequence(sequence), m_payload("pulsebar echo"), m_done(std::move(done)),
      m_notifier(std::make_unique<QSocketNotifier>(fd, QSocketNotifier::Read)),
      m_timeout(std::make_unique<QTimer>())
{
    m_timeout->setSingleShot(true);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, this, &IcmpEchoRequest::readAnswers);
    QObject::connect(m_timeout.get(), &QTimer::timeout, this, [this] { finish(std::nullopt); });
}

IcmpEchoRequest::~IcmpEchoRequest()
{
    m_notifier.reset();
    ::close(m_fd);
}

void IcmpEchoRequest::readAnswers()
{
    // Another request's late answer may reach the socket too: each message is read and dropped until
    // ours is there or nothing is left.
    for (;;) {
        char buffer[512];
        char control[256];
        iovec part{buffer, sizeof buffer};
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
        const ssize_t n = ::recvmsg(m_fd, &header, MSG_DONTWAIT);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                return;
            // The network said the host cannot be reached: no answer will come, as the ping program
            // gives up at once too.
            return finish(std::nullopt);
        }
        if (!IcmpEcho::isReply({buffer, std::size_t(n)}, m_v6, m_sequence, m_payload.toStdString()))
            continue;
        double receivedAt = realtimeSeconds();
        for (cmsghdr* c = CMSG_FIRSTHDR(&header); c; c = CMSG_NXTHDR(&header, c))
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
                timespec stamp{};
                std::memcpy(&stamp, CMSG_DATA(c), sizeof stamp);
                receivedAt = double(stamp.tv_sec) + double(stamp.tv_nsec) / 1e9;
            }
        return finish(std::max(0.0, (receivedAt - m_sentAt) * 1000));
    }
}

void IcmpEchoRequest::finish(std::optional<double> milliseconds)
{
    m_notifier->setEnabled(false);
    m_timeout->stop();
    if (Done done = std::exchange(m_done, nullptr))
        done(milliseconds);
}

} // namespace pulsebar
