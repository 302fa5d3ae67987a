#include "mcp/port_sharing.h"

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mcp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Port 8720 is 2210 in hexadecimal digits.
TEST(PortSharing, FindsListenersOnAnyAddress) {
    std::istringstream table(
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
        "   0: 00000000:2210 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 11 1 0 100 0 0 10 "
        "0\n"
        "   1: 0100007F:2210 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 12 1 0 100 0 0 10 "
        "0\n"
        "   2: 00000000:2211 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 13 1 0 100 0 0 10 "
        "0\n"
        "   3: 0100007F:2210 0100007F:C350 01 00000000:00000000 00:00000000 00000000     0        0 14 1 0 20 4 30 10 "
        "-1\n"
        "   4: 0100007F:2210 0100007F:C351 06 00000000:00000000 03:00001752 00000000     0        0 0 3 0\n"
        "   5: 0100007F:C350 0100007F:2210 01 00000000:00000000 00:00000000 00000000     0        0 15 1 0 20 4 30 10 "
        "-1\n"
        "   6: 00000000000000000000000000000000:2210 00000000000000000000000000000000:0000 0A 00000000:00000000 "
        "00:00000000 00000000     0        0 16 1 0 100 0 0 10 0\n"
        "   7: cut short\n");
    EXPECT_THAT(listening_inodes(table, 8720), ElementsAre("11", "12", "16"));
    std::istringstream nothing;
    EXPECT_THAT(listening_inodes(nothing, 8720), IsEmpty());
}

TEST(PortSharing, OwnSocketIsNotAnotherProcess) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    const int own = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(own, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(own, 1), 0);
    getsockname(own, reinterpret_cast<sockaddr*>(&address), &size);
    EXPECT_FALSE(is_served_by_another_process(false, ntohs(address.sin_port)));
    close(own);
}

}  // namespace
}  // namespace mcp
