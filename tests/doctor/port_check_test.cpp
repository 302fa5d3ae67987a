#include "doctor/port_check.h"

#include <gmock/gmock.h>

#include "tests/doctor/finding_line.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

const PortSide kFree;
const PortSide kUnsupported{false, false, {}};
const PortSide kStranger{true, true, {}};
const PortSide kOwn{true, true, "OrvanicXR_MCP_Server 1.0.0"};

TEST(Port, IsJudgedByWhoHasIt) {
    const struct {
        const char* name;
        PortSituation situation;
        std::string line;
    } rows[] = {
        {"no network at all",
         {8720, kUnsupported, kUnsupported, {}},
         "bad this machine has neither IPv4 nor IPv6 -> bring up the loopback interface"},
        {"two with the layer",
         {8720, kOwn, kOwn, {"app (pid 7)", "app (pid 8)"}},
         "warn 8720 is shared by app (pid 7), app (pid 8) -> end all but one: a client's requests reach now this, now "
         "that"},
        {"an unseen stranger on IPv6",
         {8720, kFree, kStranger, {}},
         "warn 8720 is free on IPv4, but held elsewhere by a process of another user -> end that, or connect clients "
         "to http://127.0.0.1:8720/sse"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(FindingLine(JudgePort(row.situation)), row.line);
    }
}

TEST(Port, ListenersAreReadFromTheKernelsTable) {
    constexpr char kTable[] =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n"
        "   0: 00000000:2210 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 4711 1 0 100 0 0\n"
        "   1: 0100007F:2210 0100007F:9C40 01 00000000:00000000 00:00000000 00000000  1000        0 4712 1 0 20 4 30\n"
        "   2: 0100007F:2211 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 4713 1 0 100 0 0\n"
        "   3: 00000000000000000000000001000000:2210 00000000000000000000000000000000:0000 0A 00000000:00000000 "
        "00:00000000 00000000  1000        0 4714 1 0 100 0 0\n"
        "   4: torn\n";
    EXPECT_THAT(ListeningInodes(kTable, 8720), ElementsAre("4711", "4714"));
}

}  // namespace
}  // namespace orvanic_xr
