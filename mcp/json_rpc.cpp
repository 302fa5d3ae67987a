#include "mcp/json_rpc.h"

#include <string_view>
#include <utility>

namespace mcp {

json_rpc_response make_result_response(json id, json result) {
    return {.id = std::move(id), .result = std::move(result), .error = nullptr};
}

json_rpc_response make_error_response(json id, std::int32_t code, const std::string& message, json data) {
    json error{{"code", code}, {"message", message}};
    if (!data.empty()) error["data"] = std::move(data);
    return {.id = std::move(id), .result = nullptr, .error = std::move(error)};
}

json to_json(const json_rpc_response& response) {
    json object{{"jsonrpc", response.jsonrpc}, {"id", response.id}};
    if (response.error.empty()) {
        object["result"] = response.result;
    } else {
        object["error"] = response.error;
    }
    return object;
}

void append_text(std::string& text, const json_rpc_response& response) {
    if (!response.error.empty()) {
        text += dump_json(to_json(response));
        return;
    }
    constexpr std::string_view kNullResult = "null}";
    text += dump_json(to_json(make_result_response(response.id, nullptr)));
    text.resize(text.size() - kNullResult.size());
    text += response.result_text.empty() ? dump_json(response.result) : response.result_text;
    text += '}';
}

}  // namespace mcp
