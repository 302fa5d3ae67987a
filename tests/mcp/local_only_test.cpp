#include "mcp/local_only.h"

#include <gmock/gmock.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "mcp/server_host.h"
#include "tests/fakes/scratch.h"
#include "tests/mcp/server_fixture.h"

namespace mcp {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using orvanic_xr::McpServerHost;
using orvanic_xr::ScopedVariable;
using testing::HasSubstr;

TEST(LocalOnly, PeerHasToBeLoopback) {
    const header_map headers = {{"host", "localhost"}};
    for (const char* address : {"127.0.0.1", "127.255.255.254", "::1", "::ffff:127.0.0.1", "::ffff:127.8.9.10"}) {
        EXPECT_STREQ(foreign_part(address, headers), nullptr) << address;
    }
    for (const char* address : {"10.0.0.1", "128.0.0.1", "126.0.0.1", "1.0.0.127", "0.0.0.0", "::", "::2", "fe80::1",
                                "::ffff:10.0.0.1", "::127.0.0.1", "64:ff9b::127.0.0.1", "localhost", ""}) {
        EXPECT_STREQ(foreign_part(address, headers), "address") << address;
    }
}

std::vector<std::string> Words(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

const std::vector<std::string> kLocalHosts = Words(
    "localhost localhost:8720 LocalHost:8720 127.0.0.1 127.0.0.1:8720 127.1.2.3:1 [::1] [::1]:8720 "
    "localhost:65535 localhost:0");

std::vector<std::string> ForeignHosts() {
    auto hosts = Words(
        "example.org:8720 10.0.0.1 128.0.0.1:8720 0.0.0.0:8720 localhost.evil.example localhost.evil.example:8720 "
        "evil.localhost 127.0.0.1.evil.example:80 localhost. 127.0.0.1. localhost@evil.example evil.example@localhost "
        "localhost:8720:8720 localhost: localhost:x localhost:123456 localhost/ 127.1 127.0.0.256 2130706433 "
        "0x7f.0.0.1 127.00.0.1 ::1 [::1 [::2] [::1].evil.example [::1]evil:80 [::1]: [] [ :8720 :");
    hosts.insert(hosts.end(),
                 {"", " localhost", "localhost, localhost", "127.0.0.1\0.evil.example"s, "localhost\0.evil.example"s});
    return hosts;
}

TEST(LocalOnly, HostHasToNameThisMachine) {
    for (const std::string& host : kLocalHosts) {
        EXPECT_STREQ(foreign_part("127.0.0.1", {{"host", host}}), nullptr) << host;
    }
    for (const std::string& host : ForeignHosts()) {
        EXPECT_STREQ(foreign_part("127.0.0.1", {{"host", host}}), "Host") << host;
    }
    EXPECT_STREQ(foreign_part("127.0.0.1", {}), "Host");
}

TEST(LocalOnly, OriginHasToBeOnThisMachineWhereThereIsOne) {
    const auto foreign = [](const std::string& origin) {
        return foreign_part("::1", {{"host", "[::1]:8720"}, {"origin", origin}});
    };
    for (const std::string& host : kLocalHosts) {
        EXPECT_STREQ(foreign("http://" + host), nullptr) << host;
        EXPECT_STREQ(foreign("https://" + host), nullptr) << host;
    }
    for (const std::string& host : ForeignHosts()) EXPECT_STREQ(foreign("http://" + host), "Origin") << host;
    for (const char* origin : {"null", "", "localhost", "//localhost", "http:localhost", "ftp://localhost", "file://",
                               "chrome-extension://localhost", "xhttp://localhost", "http://http://localhost",
                               "http://localhost http://evil.example", "http://localhost/", "http://localhost:80/x"}) {
        EXPECT_STREQ(foreign(origin), "Origin") << origin;
    }
}

class LocalOnlyServer : public ServerTest {
 protected:
    http_reply Request(const std::string& method, const std::string& path, const std::string& headers) {
        raw_socket socket(Port());
        return http_exchange(socket, method + " " + path + " HTTP/1.1\r\n" + headers + "\r\n");
    }
};

TEST_F(LocalOnlyServer, RefusesOthersWhateverTheMethodAndPath) {
    auto config = local_config();
    config.local_only = true;
    Start(config);
    const std::string from_elsewhere = "Host: localhost\r\nOrigin: https://example.org\r\nContent-Length: 2\r\n\r\n{}";
    for (const char* method : {"GET", "HEAD", "POST", "OPTIONS", "DELETE"}) {
        for (const char* path : {"/sse", "/message?session_id=1", "/", "/elsewhere"}) {
            SCOPED_TRACE(std::string(method) + " " + path);
            raw_socket socket(Port());
            socket.send(std::string(method) + " " + path + " HTTP/1.1\r\n" + from_elsewhere);
            const std::string head = socket.read_until("\r\n\r\n");
            EXPECT_THAT(head, testing::StartsWith("HTTP/1.1 403 Forbidden\r\nContent-Type: application/json\r\n"));
            EXPECT_THAT(head, testing::Not(HasSubstr("Access-Control")));
        }
    }
    EXPECT_TRUE(log_.has(": its Origin is not this machine (ORVANICXR_LOCAL_ONLY=1)"));
    EXPECT_EQ(Request("GET", "/sse", "Host: evil.example:8720\r\n").body, R"({"error":"Only this machine is served"})");
    EXPECT_EQ(Request("GET", "/sse", "").status, 403);
    EXPECT_EQ(Request("OPTIONS", "/message", "Host: localhost\r\nOrigin: null\r\n").status, 403);
    EXPECT_EQ(Request("OPTIONS", "/message", "Host: localhost\r\nHost: evil.example\r\n").status, 403);
    EXPECT_EQ(Request("OPTIONS", "/message", "Host: 127.0.0.1\r\nOrigin: http://localhost:3000\r\n").status, 204);
}

TEST(LocalOnlyHost, AsksTheEnvironmentForExactlyOne) {
    const struct {
        std::optional<std::string> value;
        int status;
        const char* line;
    } rows[] = {
        {std::nullopt, 204, ""},
        {"", 204, ""},
        {"0", 204, ""},
        {"true", 204, "WARNING ORVANICXR_LOCAL_ONLY is set, but not to 1: serving everybody"},
        {"1 ", 204, "WARNING ORVANICXR_LOCAL_ONLY is set, but not to 1: serving everybody"},
        {"1", 403, "INFO ORVANICXR_LOCAL_ONLY is 1: serving this machine only"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value.value_or("(none)"));
        const ScopedVariable variable("ORVANICXR_LOCAL_ONLY", row.value);
        log_lines log;
        McpServerHost host(short_timings());
        host.start(0);
        for (const auto& [server, address] :
             {std::pair(host.ipv4_server(), "127.0.0.1"), {host.ipv6_server(), "::1"}}) {
            ASSERT_TRUE(server->wait_until_listening(10s));
            raw_socket socket(server->port(), address);
            EXPECT_EQ(http_exchange(socket, "OPTIONS / HTTP/1.1\r\nHost: evil.example\r\n\r\n").status, row.status);
        }
        host.stop();
        std::string told;
        for (const std::string& line : log.take()) {
            if (line.find("ORVANICXR_LOCAL_ONLY is") != std::string::npos) told += line;
        }
        EXPECT_EQ(told, row.line);
    }
}

}  // namespace
}  // namespace mcp
