#include "mcp/json_rpc.h"

#include <gtest/gtest.h>

namespace mcp {
namespace {

TEST(JsonRpc, ResponsesOnTheWire) {
    const struct {
        const char* name;
        json_rpc_response response;
        const char* text;
    } rows[] = {
        {"null result", make_result_response("x", nullptr), R"({"jsonrpc":"2.0","id":"x","result":null})"},
        {"error with data", make_error_response(1, kInternalError, "no", {{"k", "v"}}),
         R"({"jsonrpc":"2.0","id":1,"error":{"code":-32603,"message":"no","data":{"k":"v"}}})"},
        {"data {} is left out", make_error_response(1, kInternalError, "no", json::object()),
         R"({"jsonrpc":"2.0","id":1,"error":{"code":-32603,"message":"no"}})"},
        {"data 0 is not", make_error_response(1, kInternalError, "no", 0),
         R"({"jsonrpc":"2.0","id":1,"error":{"code":-32603,"message":"no","data":0}})"},
        {"error {} is none", {.id = 1, .result = 5, .error = json::object()}, R"({"jsonrpc":"2.0","id":1,"result":5})"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(dump_json(to_json(row.response)), row.text);
        std::string text = "before ";
        append_text(text, row.response);
        EXPECT_EQ(text, std::string("before ") + row.text);
    }
}

TEST(JsonRpc, TextOfTheResultIsUsedWhereItIsThere) {
    std::string text;
    append_text(text, {.id = 1, .result = nullptr, .error = nullptr, .result_text = "[1]"});
    EXPECT_EQ(text, R"({"jsonrpc":"2.0","id":1,"result":[1]})");
}

}  // namespace
}  // namespace mcp
