#pragma once

#include <QHostAddress>
#include <QObject>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

class QSocketNotifier;
class QTimer;

namespace pulsebar {

// The bytes of ICMP echo messages as a datagram ICMP socket exchanges them: the ICMP header and the
// payload, without the IP header; the kernel sets the identifier and the checksum.
namespace IcmpEcho {
constexpr uint8_t requestV4 = 8, replyV4 = 0, requestV6 = 128, replyV6 = 129;
// An echo request with this sequence number carrying `payload`.
QByteArray request(bool v6, uint16_t sequence, std::string_view payload);
// True when `message` answers the request made with `sequence` and `payload`: an echo reply of the
// family, code 0, the same sequence number and the same payload back.
bool isReply(std::string_view message, bool v6, uint16_t sequence, std::string_view payload);
} // namespace IcmpEcho

// One echo request sent from this process over an unprivileged ICMP datagram socket, so a ping costs
// no program start. The socket exists only where net.ipv4.ping_group_range admits one of the user's
// groups (most desktops admit everyone); send() says when it is refused, and the caller runs the ping
// program instead. The answer's time is the kernel's receive stamp less the send time, as the ping
// program measures it.
class IcmpEchoRequest : public QObject {
public:
    using Done = std::function<void(std::optional<double> milliseconds)>;

    // Null when no datagram ICMP socket could be made; `done` is then never called. Otherwise `done` is called once on this thread: with the round trip, or
    // without one when no answer came within `timeoutMs`. Deleting the request cancels it.
    static std::unique_ptr<IcmpEchoRequest> send(const QHostAddress& to, int timeoutMs, Done done);
    ~IcmpEchoRequest() override;

private:
    IcmpEchoRequest(int fd, bool v6, uint16_t sequence, Done done);
    void readAnswers();
    void finish(std::optional<double> milliseconds);

    int m_fd;
    bool m_v6;
    uint16_t m_sequence;
    QByteArray m_payload;
    double m_sentAt = 0; // seconds, realtime clock, as the kernel stamps what it receives
    Done m_done;
    std::unique_ptr<QSocketNotifier> m_notifier;
    std::unique_ptr<QTimer> m_timeout;
};

} // namespace pulsebar
