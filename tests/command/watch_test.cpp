// What the page that watches is told, and whom it is shown to.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <numbers>
#include <vector>

#include "command/page/page.h"
#include "command/watch/room.h"
#include "command/watch_page.h"
#include "mcp/client/descriptor.h"
#include "tests/fakes/sse_client.h"

namespace velmoor {
namespace {

using namespace std::chrono_literals;

json news_of(call_log& log, std::uint64_t& seen) {
    const auto text = log.await_news(seen, 0ms);
    return text ? mcp::parse_json(*text) : json();
}

json picture_outcome(const std::string& data, int count = 1) {
    const json item{{"type", "image"}, {"mimeType", "image/png"}, {"data", data}};
    return {{"result", {{"content", std::vector<json>(static_cast<std::size_t>(count), item)}}}};
}

TEST(CallLog, TellsEachViewerWhatChangedSinceItLastAsked) {
    call_log log;
    std::uint64_t early = 0;
    EXPECT_EQ(news_of(log, early), json());
    const auto first = log.begin("t", {{"a", 1}});
    const auto second = log.begin("u", nullptr);
    json told = news_of(log, early);
    ASSERT_EQ(told["calls"].size(), 2u);
    EXPECT_EQ(told["calls"][0]["arguments"], R"({"a":1})");
    EXPECT_EQ(told["calls"][1]["result"], "running");
    log.end(second, {{"error", {{"code", 1}, {"message", "<b>"}}}});
    told = news_of(log, early);
    ASSERT_EQ(told["calls"].size(), 1u);
    EXPECT_EQ(told["calls"][0]["id"], second);
    EXPECT_EQ(told["calls"][0]["result"], "failed");
    EXPECT_EQ(told["calls"][0]["texts"], json({"\"<b>\""}));
    log.cancel(first);
    std::uint64_t late = 0;
    told = news_of(log, late);
    EXPECT_EQ(told["calls"][0]["result"], "cancelled");
    EXPECT_EQ(told["calls"].size(), 2u);
    EXPECT_EQ(late, early + 1);
    log.close();
    EXPECT_FALSE(log.await_news(late, 10min));
}

TEST(CallLog, IsBoundedWhateverPasses) {
    call_log log({.calls = 3, .call_bytes = 1u << 20, .text_bytes = 8, .picture_bytes = 10, .trail_points = 2});
    for (int i = 0; i < 9; ++i) log.end(log.begin("t", {{"text", "\u00e9\u00e9\u00e9"}}), picture_outcome("12345"));
    std::uint64_t seen = 0;
    json told = news_of(log, seen);
    ASSERT_EQ(told["calls"].size(), 3u);
    EXPECT_EQ(told["calls"][0]["id"], 7);
    EXPECT_EQ(told["calls"][0]["arguments"], "{\"text\":\n… and 9 bytes more");
    EXPECT_EQ(log.find_picture(7), nullptr);
    EXPECT_NE(log.find_picture(8), nullptr);
    // What an eye sees stays, however old.
    log.end(log.begin("xr_picture", {{"eye", "both"}}), picture_outcome("67890", 2));
    for (int i = 0; i < 9; ++i) log.end(log.begin("t", nullptr), picture_outcome("12345"));
    told = news_of(log, seen);
    EXPECT_EQ(told["eyes"]["left"]["picture"], 10);
    EXPECT_EQ(told["eyes"]["right"]["picture"], 11);
    EXPECT_EQ(log.find_picture(10)->base64, "67890");
    for (int i = 0; i < 9; ++i) log.set_room(json::object(), 1, {call_log::place{0.1 * i, 0}});
    log.set_room(json::object(), 1, {call_log::place{0.805, 0}});
    told = news_of(log, seen);
    EXPECT_EQ(told["trails"]["head"].size(), 2u);
    log.set_room(json::object(), 2, {call_log::place{5, 1}});
    EXPECT_EQ(news_of(log, seen)["trails"]["head"], json::parse("[[5.0,1.0]]")) << "another room, another trail";
}

TEST(Room, IsOutlinedFromAbove) {
    const float half = std::numbers::sqrt2_v<float> / 2;
    const json center{{"position", {1, 0.5, -2}}, {"orientation", {-half, 0, 0, half}}};
    const json box{{"center", center}, {"size", {{"width", 2}, {"height", 1}, {"depth", 3}}}};
    const json wall{{"center", {{"position", {0, 1, 4}}, {"orientation", {0, 0, 0, 1}}}},
                    {"size", {{"width", 2}, {"height", 3}}}};
    const json answer{{"entities",
                       {{{"name", "TABLE 1"}, {"semantic_label", "TABLE"}, {"bounding_box_3d", box}},
                        {{"name", "WALL 1"}, {"bounding_box_3d", nullptr}, {"bounding_box_2d", wall}},
                        {{"name", "NOWHERE"}},
                        7}}};
    const json plan = entities_on_plan(answer);
    ASSERT_EQ(plan.size(), 2u);
    // Lying on its back: its depth goes up, and its height to the back.
    EXPECT_EQ(plan[0]["outline"], json::parse("[[0.0,-2.5],[2.0,-2.5],[2.0,-1.5],[0.0,-1.5]]"));
    EXPECT_EQ(plan[1]["outline"], json::parse("[[-1.0,4.0],[1.0,4.0]]"));
    EXPECT_EQ(entities_on_plan("Error: none"), json::array());
}

TEST(Room, KnowsWhereADeviceLooksAndHowFramesFlow) {
    const float half = std::numbers::sqrt2_v<float> / 2;
    json head{{"pose", {{"position", {1, 1.6, 2}}, {"orientation", {0, half, 0, half}}}},
              {"flags", {{"position_valid", true}, {"orientation_valid", true}}}};
    json told = device_on_plan(head);
    EXPECT_EQ(told["heading"], 90.0);
    EXPECT_EQ(told["pitch"], 0.0);
    head["flags"]["position_valid"] = false;
    EXPECT_EQ(device_on_plan(head), json());

    const auto frame = [](double end) {
        return json{{"frame_timing", {{"end_frame_timestamp", {{"unix_timestamp", end}}}}}};
    };
    json frames = frame(102);
    frames["history"] = {frame(101), frame(101.5), frame(102)};
    told = frames_in(frames, 105);
    EXPECT_EQ(told["rate"], 2.0);
    EXPECT_EQ(told["since_last"], 3.0);
    EXPECT_EQ(frames_in("Error: no session", 1), json());
}

TEST(Page, HoldsHostileTextsAsTexts) {
    const std::string page = report_document("<t>", "a & b", {{"x", "</script><script>alert(1)</script>"}});
    EXPECT_NE(page.find("<title>&lt;t&gt;</title>"), std::string::npos);
    EXPECT_NE(page.find(R"({"x":"\u003c/script>\u003cscript>alert(1)\u003c/script>"})"), std::string::npos);
    // No text gets into a page by another way than as a text node or an attribute.
    const std::string scripts = watch_script() + page;
    for (const char* const way : {"innerHTML", "outerHTML", "insertAdjacentHTML", "document.write"}) {
        EXPECT_EQ(scripts.find(way), std::string::npos) << way;
    }
}

class WatchPage : public testing::Test {
 protected:
    std::string Ask(const std::string& request, const std::string& end = "\r\n\r\n") {
        clients_.push_back(std::make_unique<mcp::raw_socket>(port_));
        clients_.back()->send(request + "\r\n\r\n");
        return clients_.back()->read_until(end, 10s);
    }

    watch watch_;
    watch_server server_{watch_};
    const int port_ = server_.start(0);
    std::vector<std::unique_ptr<mcp::raw_socket>> clients_;
};

TEST_F(WatchPage, IsForThisMachineAndReadOnly) {
    const std::string local = " HTTP/1.1\r\nHost: localhost:1";
    for (const auto& [request, status] : {std::pair<std::string, const char*>{"GET /watch" + local, "200"},
                                          {"GET /watch/page.js" + local, "200"},
                                          {"GET /watch/nothing" + local, "404"},
                                          {"GET /watch/pictures/1x" + local, "404"},
                                          {"GET /" + local, "404"},
                                          {"GET /watch HTTP/1.1\r\nHost: evil.example", "403"},
                                          {"GET /watch/events" + local + "\r\nOrigin: http://evil.example", "403"},
                                          {"POST /watch" + local + "\r\nContent-Length: 0", "405"},
                                          {"DELETE /watch/events" + local, "405"}}) {
        EXPECT_TRUE(Ask(request).starts_with(std::string("HTTP/1.1 ") + status)) << request;
    }
    EXPECT_NE(Ask("GET /watch" + local).find("Content-Security-Policy: default-src 'none'; script-src 'self';"),
              std::string::npos);
}

TEST_F(WatchPage, IsNotServedWhereThePortIsTaken) {
    const mcp::descriptor other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(other.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(other.get(), 1), 0);
    getsockname(other.get(), reinterpret_cast<sockaddr*>(&address), &size);
    EXPECT_EQ(watch_server(watch_).start(ntohs(address.sin_port)), 0);
}

TEST_F(WatchPage, AsksForTheTokenWhereThereIsOne) {
    watch_page page(watch_, "secret");
    mcp::http_request request{.remote_address = "127.0.0.1", .method = "GET", .path = "/watch"};
    request.headers = {{"host", "127.0.0.1"}};
    EXPECT_EQ(page.answer(request)->status, 401);
    request.headers["authorization"] = "Basic eDpzZWNyZVQ=";  // x:secreT
    EXPECT_EQ(page.answer(request)->status, 401);
    request.headers["authorization"] = "Basic eDpzZWNyZXQ=";  // x:secret
    EXPECT_EQ(page.answer(request)->status, 200);
    request.remote_address = "192.0.2.1";
    EXPECT_EQ(page.answer(request)->status, 403) << "with the token, too";
    request.path = "/watcher";
    EXPECT_FALSE(page.answer(request));
}

TEST_F(WatchPage, ShowsTheRecentPastToSomeAndMakesNoCallWaitForThem) {
    watch_.log().begin("earlier", nullptr);
    const std::string events = "GET /watch/events HTTP/1.1\r\nHost: 127.0.0.1";
    for (int i = 0; i < 8; ++i) EXPECT_NE(Ask(events, "\n\n").find("\"earlier\""), std::string::npos);
    EXPECT_TRUE(Ask(events).starts_with("HTTP/1.1 503"));
    // None of them reads. That takes megabytes, which would fill what the system keeps for a connection.
    bridge_settings settings;
    int seen = 0;
    settings.watch = [&seen](tool_call call) { return ++seen, call; };
    watch_.follow(settings);
    const auto begin = std::chrono::steady_clock::now();
    int answered = 0;
    for (int i = 0; i < 300; ++i) {
        tool_call call{.name = "t", .arguments = nullptr, .done = [&](json&&) { ++answered; }, .report = nullptr};
        settings.watch(std::move(call)).done(json{{"error", {{"message", std::string(100'000, 'x')}}}});
    }
    EXPECT_EQ(seen, 300) << "who saw the calls before sees them still";
    EXPECT_EQ(answered, 300);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
    {
        const tool_call forgotten =
            settings.watch({.name = "c", .arguments = nullptr, .done = [](json&&) {}, .report = nullptr});
    }
    clients_.clear();
    std::uint64_t all = 0;
    EXPECT_EQ(news_of(watch_.log(), all)["calls"].back()["result"], "cancelled");
}

}  // namespace
}  // namespace velmoor
