#include <gmock/gmock.h>

#include "mcp/client/dial.h"
#include "mcp/client/event_parser.h"
#include "mcp/client/http_reply_parser.h"

namespace mcp {
namespace {

using testing::ElementsAre;

// In one piece and byte by byte.
template <class Check>
void in_pieces(const std::string& text, Check check) {
    for (const std::size_t size : {text.size(), std::size_t{1}}) {
        SCOPED_TRACE(size);
        std::vector<std::string_view> pieces;
        for (std::size_t at = 0; at < text.size(); at += size) {
            pieces.push_back(std::string_view(text).substr(at, size));
        }
        check(pieces);
    }
}

TEST(EventParser, TellsWholeEvents) {
    const std::string stream =
        ": comment\r\n\r\nevent: endpoint\r\ndata: /m?id=1\r\n\r\ndata:a\ndata: b\n\n"
        "event: message\nid: 7\ndata: {\"a\": 1}\r\n\r\nevent: empty\n\ndata\n\ndata: torn\n";
    in_pieces(stream, [](const auto& pieces) {
        event_parser parser(100);
        std::vector<std::string> told;
        for (const auto piece : pieces) {
            EXPECT_TRUE(parser.feed(
                piece, [&](const std::string& type, std::string&& data) { told.push_back(type + "|" + data); }));
        }
        EXPECT_THAT(told, ElementsAre("endpoint|/m?id=1", "|a\nb", "message|{\"a\": 1}", "|"));
    });
}

TEST(EventParser, StopsAtAnEventThatIsTooLarge) {
    for (const std::string& line : {std::string(101, 'x'), "data: " + std::string(60, 'x') + "\ndata: 1234567\n"}) {
        event_parser parser(70);
        EXPECT_FALSE(parser.feed(line, [](const std::string&, std::string&&) {}));
    }
}

TEST(HttpReply, IsTakenApart) {
    using state = http_reply_parser::state;
    const struct {
        const char* text;
        state end;
        int status;
        const char* content;
        bool keeps;
        const char* left;
    } rows[] = {
        {"HTTP/1.1 202 Accepted\r\nContent-Length: 8\r\n\r\nAcceptedHTTP", state::complete, 202, "Accepted", true,
         "HTTP"},
        {"HTTP/1.1 202 A\r\nCONNECTION: Close\r\ncontent-length:0\r\n\r\n", state::complete, 202, "", false, ""},
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 204 No\r\n\r\nX", state::complete, 204, "", true, "X"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-Length: "
         "3\r\n\r\nA;x=1\r\n0123456789\r\n1\r\n!\r\n0\r\n"
         "Trailer: 1\r\n\r\nX",
         state::complete, 200, "0123456789!", true, "X"},
        {"HTTP/1.0 200 OK\n\nuntil the end", state::body, 200, "until the end", false, ""},
        {"SSH-2.0-strange\r\n", state::broken, 0, "", true, ""},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nhuge\r\n", state::broken, 200, "", true, ""},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\nabc\r\n", state::broken, 200, "a", true, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        in_pieces(row.text, [&](const auto& pieces) {
            http_reply_parser parser;
            std::string content;
            std::string left;
            auto now_is = state::head;
            for (std::string_view piece : pieces) {
                now_is = parser.feed(piece, content);
                left += piece;
            }
            EXPECT_EQ(now_is, row.end);
            EXPECT_EQ(parser.status(), row.status);
            EXPECT_EQ(content, row.content);
            if (row.end == state::broken) return;
            EXPECT_EQ(parser.keeps_connection(), row.keeps);
            EXPECT_EQ(left, row.left);
        });
    }
}

TEST(ServerUrl, NamesHostAndPort) {
    const std::pair<const char*, const char*> rows[] = {
        {"http://127.0.0.1:8720", "127.0.0.1:8720"}, {"http://[::1]:8720/sse", "[::1]:8720"}, {"http://box", "box:80"}};
    for (const auto& [url, host] : rows) EXPECT_EQ(host_header(parse_server_url(url)), host);
    for (const char* url :
         {"https://box", "http://", "http://box:", "http://box:0", "http://box:99999", "http://[::1"}) {
        EXPECT_THROW(parse_server_url(url), std::invalid_argument) << url;
    }
}

}  // namespace
}  // namespace mcp
