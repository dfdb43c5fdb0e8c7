// The pure parts of the network reader's own ping and of its routing-netlink change feed, on
// hand-made bytes.
#include "platform/linux/icmp_echo.h"
#include "platform/linux/rtnetlink_watch.h"

#include <gtest/gtest.h>

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <string>
#include <vector>

using namespace pulsebar;

namespace {

// A reply as the kernel hands it over: the request's bytes with the reply type and an identifier and
// checksum of the kernel's own.
std::string reply(bool v6, uint16_t sequence, std::string_view payload)
{
    std::string bytes = IcmpEcho::request(v6, sequence, payload).toStdString();
    bytes[0] = char(v6 ? IcmpEcho::replyV6 : IcmpEcho::replyV4);
    bytes[2] = '\x5a';
    bytes[4] = '\x12';
    return bytes;
}

// Netlink messages of the given types one after another, each with `extra` bytes of body.
std::string datagram(const std::vector<uint16_t>& types, std::size_t extra = 16)
{
    std::string out;
    for (const uint16_t type : types) {
        nlmsghdr header{};
        header.nlmsg_type = type;
        header.nlmsg_len = uint32_t(sizeof header + extra);
        std::string message(NLMSG_ALIGN(header.nlmsg_len), '\0');
        std::memcpy(message.data(), &header, sizeof header);
        out += message;
    }
    return out;
}

} // namespace

TEST(IcmpEcho, RequestBytesAndWhichMessagesAnswerIt)
{
    const std::string request = IcmpEcho::request(false, 0x0102, "abc").toStdString();
    EXPECT_EQ(request, std::string("\x08\x00\x00\x00\x00\x00\x01\x02" "abc", 11));
    EXPECT_EQ(uint8_t(IcmpEcho::request(true, 7, "").at(0)), IcmpEcho::requestV6);

    const struct {
        const char* what;
        std::string message;
        bool v6;
        bool answers;
    } cases[] = {
        {"v4 reply", reply(false, 0x0102, "abc"), false, true},
        {"v6 reply", reply(true, 0x0102, "abc"), true, true},
        {"v4 reply on a v6 socket", reply(false, 0x0102, "abc"), true, false},
        {"another sequence", reply(false, 0x0103, "abc"), false, false},
        {"another payload", reply(false, 0x0102, "abd"), false, false},
        {"cut payload", reply(false, 0x0102, "ab"), false, false},
        {"our own request looped back", request, false, false},
        {"non-zero code", [] { auto r = reply(false, 0x0102, "abc"); r[1] = 1; return r; }(), false, false},
        {"shorter than a header", std::string("\x00\x00\x00", 3), false, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(IcmpEcho::isReply(c.message, c.v6, 0x0102, "abc"), c.answers) << c.what;
}

TEST(Rtnetlink, NotificationsNameWhatChanged)
{
    const struct {
        const char* what;
        std::string bytes;
        NetworkChanges expected;
    } cases[] = {
        {"nothing", "", {}},
        {"a new link", datagram({RTM_NEWLINK}), {true, false, false}},
        {"a link gone", datagram({RTM_DELLINK}), {true, false, false}},
        {"addresses", datagram({RTM_NEWADDR, RTM_DELADDR}), {false, true, false}},
        {"a route among others", datagram({NLMSG_NOOP, RTM_NEWNEIGH, RTM_DELROUTE}), {false, false, true}},
        {"all three", datagram({RTM_NEWROUTE, RTM_NEWLINK, RTM_NEWADDR}, 0), {true, true, true}},
        {"neighbours only", datagram({RTM_NEWNEIGH, RTM_DELNEIGH}), {}},
        // A message whose length runs past the end is cut off: it is left out.
        {"truncated at the end", datagram({RTM_NEWLINK}) + datagram({RTM_NEWADDR}).substr(0, 20), {true, false, false}},
        {"a header too short for itself", [] {
             std::string bytes = datagram({RTM_NEWLINK});
             const uint32_t length = 4;
             std::memcpy(bytes.data(), &length, sizeof length);
             return bytes;
         }(), {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Rtnetlink::changes(c.bytes), c.expected) << c.what;

    NetworkChanges merged;
    merged |= {false, true, false};
    merged |= {true, false, false};
    EXPECT_EQ(merged, (NetworkChanges{true, true, false}));
}
