// What a client of each revision says, and what it is answered: over tools that answer when the test says so.
#include "command/bridge/client_session.h"

#include <gtest/gtest.h>

#include <vector>

namespace velmoor {
namespace {

class scripted_tools final : public tool_source {
 public:
    std::shared_ptr<const std::string> list_tools() override { return std::make_shared<const std::string>("[1]"); }
    std::uint64_t new_call_id() override { return ++last_id; }
    void start(std::uint64_t id, tool_call call) override { calls[id] = std::move(call); }
    void cancel(std::uint64_t id, const std::string& why) override { cancelled.emplace_back(id, why); }
    void introduce(const json& client_info) override { client = client_info; }
    void expect_calls() override { ++expected; }

    std::uint64_t last_id = 0;
    std::map<std::uint64_t, tool_call> calls;
    std::vector<std::pair<std::uint64_t, std::string>> cancelled;
    json client;
    int expected = 0;
};

class heard final : public outlet {
 public:
    void notify(std::string message) override { messages.push_back(std::move(message)); }
    void answer(std::string message) override { messages.push_back(std::move(message)); }
    void give_up() override { messages.emplace_back("given up"); }
    std::vector<std::string> messages;
};

class ClientSession : public testing::Test {
 protected:
    // All that is heard because of `text`.
    std::vector<std::string> Say(const std::string& text) {
        to_ = std::make_shared<heard>();
        session_->take_text(text, to_);
        return to_->messages;
    }
    std::string Answer(const std::string& text) {
        const auto messages = Say(text);
        return messages.size() == 1 ? messages.front() : "not one answer but " + std::to_string(messages.size());
    }
    std::string Initialize(const std::string& revision) {
        return Answer(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":")" + revision +
                      R"(","capabilities":{},"clientInfo":{"name":"c","version":"1"}}})");
    }

    scripted_tools tools_;
    std::vector<std::string> unasked_;
    std::shared_ptr<client_session> session_ = std::make_shared<client_session>(
        tools_, session_settings{.server_info = {{"name", "v"}},
                                 .instructions = {},
                                 .unasked = [this](std::string message) { unasked_.push_back(std::move(message)); }});
    std::shared_ptr<heard> to_;
};

constexpr const char* kMeta =
    R"("_meta":{"io.modelcontextprotocol/protocolVersion":"2026-07-28","io.modelcontextprotocol/clientCapabilities":{}})";

TEST_F(ClientSession, AgreesOnARevisionOfSessions) {
    for (const auto& [offered, agreed] : {std::pair{"2025-03-26", "2025-03-26"},
                                          {"2025-06-18", "2025-06-18"},
                                          {"2025-11-25", "2025-11-25"},
                                          {"2026-07-28", "2025-11-25"},
                                          {"?", "2025-11-25"}}) {
        EXPECT_EQ(Initialize(offered),
                  R"({"jsonrpc":"2.0","id":0,"result":{"protocolVersion":")" + std::string(agreed) +
                      R"(","capabilities":{"tools":{"listChanged":true}},"serverInfo":{"name":"v"}}})");
    }
    EXPECT_EQ(tools_.client["name"], "c");
    EXPECT_EQ(tools_.expected, 0) << "a client may start a server only to see what it is";
    Say(R"({"jsonrpc":"2.0","method":"notifications/initialized"})");
    EXPECT_EQ(tools_.expected, 1);
}

TEST_F(ClientSession, RefusesWhatIsNoRequestOfItsRevision) {
    const auto refused = [](const std::string& id, int code) {
        return R"({"jsonrpc":"2.0","id":)" + id + R"(,"error":{"code":)" + std::to_string(code);
    };
    const auto expect = [&](const std::string& sent, const std::string& id, int code) {
        EXPECT_TRUE(Answer(sent).starts_with(refused(id, code))) << sent << "\n" << to_->messages.at(0);
    };
    expect("{", "null", -32700);
    expect("7", "null", -32600);
    expect(R"({"id":1})", "1", -32600);
    expect(R"({"id":"a","method":5})", R"("a")", -32600);
    EXPECT_EQ(Answer("{").find("json.exception"), std::string::npos);
    expect(R"({"id":null,"method":"ping"})", "null", -32600);
    expect(R"({"id":1.5,"method":"ping"})", "null", -32600);
    expect(R"({"id":1,"method":"tools/list"})", "1", -32602);  // neither a session nor a revision
    EXPECT_EQ(Answer(R"({"id":"p","method":"ping"})"), R"({"jsonrpc":"2.0","id":"p","result":{}})");
    Initialize("2025-06-18");
    expect(R"({"id":1,"method":"prompts/list"})", "1", -32601);
    expect(R"({"id":1,"method":"tools/list","params":{"cursor":"x"}})", "1", -32602);
    expect(R"({"id":1,"method":"tools/call","params":{}})", "1", -32602);
    expect(R"([{"id":1,"method":"ping"}])", "null", -32600);  // batches have gone again
    EXPECT_EQ(Answer(R"({"id":2,"method":"tools/list"})"), R"({"jsonrpc":"2.0","id":2,"result":{"tools":[1]}})");
}

TEST_F(ClientSession, AnswersABatchInOneArray) {
    Initialize("2025-03-26");
    Say(R"([{"id":1,"method":"tools/call","params":{"name":"t"}},{"method":"notifications/x"},{"id":2,"method":"ping"},7])");
    EXPECT_TRUE(to_->messages.empty());
    tools_.calls.at(1).done({{"result", 5}});
    ASSERT_EQ(to_->messages.size(), 1u);
    const json answers = json::parse(to_->messages[0]);
    ASSERT_EQ(answers.size(), 3u);
    EXPECT_EQ(answers[0]["id"], 2);
    EXPECT_EQ(answers[1]["error"]["code"], -32600);
    EXPECT_EQ(answers[2], json({{"jsonrpc", "2.0"}, {"id", 1}, {"result", 5}}));
    EXPECT_TRUE(Answer("[]").starts_with(R"({"jsonrpc":"2.0","id":null)"));
    EXPECT_TRUE(Say(R"([{"method":"notifications/x"}])").empty());
    EXPECT_TRUE(Answer(R"([{"id":1,"method":"initialize"}])").find("initialize in a batch") != std::string::npos);
}

TEST_F(ClientSession, TranslatesProgressAndCancelling) {
    Initialize("2025-11-25");
    const auto call = [](const char* id) {
        return R"({"id":)" + std::string(id) +
               R"(,"method":"tools/call","params":{"name":"t","arguments":{"a":1},"_meta":{"progressToken":"pt"}}})";
    };
    Say(call("\"1\""));
    const auto first = to_;
    Say(call("1"));
    EXPECT_EQ(tools_.calls.at(1).arguments, json({{"a", 1}}));
    tools_.calls.at(1).report({{"progress", 2}, {"message", "m"}});
    EXPECT_EQ(
        first->messages.at(0),
        R"({"jsonrpc":"2.0","method":"notifications/progress","params":{"progressToken":"pt","progress":2,"message":"m"}})");
    Say(R"({"method":"notifications/cancelled","params":{"requestId":1,"reason":"r"}})");
    ASSERT_EQ(tools_.cancelled.size(), 1u);  // the number, not the text
    EXPECT_EQ(tools_.cancelled[0], std::pair(std::uint64_t{2}, std::string("r")));
    tools_.calls.at(2).done({{"result", 0}});
    tools_.calls.at(1).done({{"error", {{"code", 1}}}});
    EXPECT_EQ(first->messages.at(1), R"({"jsonrpc":"2.0","id":"1","error":{"code":1}})");
    EXPECT_EQ(session_->waiting(), 0u);
}

TEST_F(ClientSession, ServesRequestsThatStandAlone) {
    const auto request = [](const std::string& method, const std::string& more = "") {
        return R"({"id":1,"method":")" + method + R"(","params":{)" + kMeta + more + "}}";
    };
    constexpr const char* kStamp =
        R"("resultType":"complete","_meta":{"io.modelcontextprotocol/serverInfo":{"name":"v"}}}})";
    EXPECT_EQ(Answer(request("server/discover")),
              std::string(R"({"jsonrpc":"2.0","id":1,"result":{"supportedVersions":["2026-07-28"],"capabilities":)") +
                  R"({"tools":{"listChanged":true}},"ttlMs":0,"cacheScope":"private",)" + kStamp);
    EXPECT_EQ(tools_.expected, 0);
    EXPECT_EQ(
        Answer(request("tools/list")),
        std::string(R"({"jsonrpc":"2.0","id":1,"result":{"tools":[1],"ttlMs":1000,"cacheScope":"private",)") + kStamp);
    Say(request("tools/call", R"(,"name":"t")"));
    tools_.calls.at(1).done({{"result", {{"content", 1}}}});
    EXPECT_EQ(to_->messages.at(0), std::string(R"({"jsonrpc":"2.0","id":1,"result":{"content":1,)") + kStamp);
    EXPECT_NE(Answer(request("ping")).find("-32601"), std::string::npos);
    EXPECT_EQ(
        Answer(
            R"({"id":1,"method":"tools/list","params":{"_meta":{"io.modelcontextprotocol/protocolVersion":"2030"}}})"),
        std::string(
            R"({"jsonrpc":"2.0","id":1,"error":{"code":-32022,"message":"Unsupported protocol version: 2030",)") +
            R"("data":{"supported":["2026-07-28"],"requested":"2030"}}})");
    EXPECT_NE(
        Answer(
            R"({"id":1,"method":"tools/list","params":{"_meta":{"io.modelcontextprotocol/protocolVersion":"2026-07-28"}}})")
            .find("-32602"),
        std::string::npos);
}

TEST_F(ClientSession, TellsOfToolsWhoWantsToKnow) {
    session_->tell_of_tools();
    EXPECT_TRUE(unasked_.empty());
    const auto listen = [&](const char* id, const char* filter) {
        Say(R"({"id":)" + std::string(id) + R"(,"method":"subscriptions/listen","params":{)" + kMeta +
            R"(,"notifications":)" + filter + "}}");
        return to_;
    };
    const auto wants = listen("\"s\"", R"({"toolsListChanged":true})");
    const auto wants_other = listen("8", R"({"promptsListChanged":true})");
    session_->tell_of_tools();
    ASSERT_EQ(wants->messages.size(), 2u);
    EXPECT_EQ(wants->messages[0],
              R"({"jsonrpc":"2.0","method":"notifications/subscriptions/acknowledged","params":)"
              R"({"_meta":{"io.modelcontextprotocol/subscriptionId":"s"},"notifications":{"toolsListChanged":true}}})");
    EXPECT_EQ(wants->messages[1], R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed","params":)"
                                  R"({"_meta":{"io.modelcontextprotocol/subscriptionId":"s"}}})");
    EXPECT_EQ(wants_other->messages.size(), 1u);
    Say(R"({"method":"notifications/cancelled","params":{"requestId":8}})");
    EXPECT_EQ(wants_other->messages.back(), "given up");
    session_->end_subscriptions();
    EXPECT_NE(
        wants->messages.back().find(R"("id":"s","result":{"_meta":{"io.modelcontextprotocol/subscriptionId":"s")"),
        std::string::npos);
    EXPECT_TRUE(unasked_.empty());
    Initialize("2025-11-25");
    session_->tell_of_tools();
    EXPECT_EQ(unasked_, std::vector<std::string>{R"({"jsonrpc":"2.0","method":"notifications/tools/list_changed"})"});
}

}  // namespace
}  // namespace velmoor
