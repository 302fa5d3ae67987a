#include "command/http_rules.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "capture/base64.h"
#include "mcp/json_rpc.h"
#include "mcp/local_only.h"

namespace velmoor {
namespace {

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// The scheme may be written large or small.
bool has_token(const std::string& authorization, const std::string& token) {
    const std::size_t blank = std::min(authorization.find(' '), authorization.size());
    const std::size_t begin = std::min(authorization.find_first_not_of(' ', blank), authorization.size());
    return lower(authorization.substr(0, blank)) == "bearer" &&
           is_equal_secret(std::string_view(authorization).substr(begin), token);
}

// `part` is a header, or the address that the request came from.
std::string why_foreign(const mcp::http_request& request, std::string_view part) {
    constexpr const char* kOnly = "; without --token, velmoor serves this machine alone";
    if (part == "address") return "Forbidden: the request comes from " + request.remote_address + kOnly;
    const std::string given = header_of(request, part == "Host" ? "host" : "origin");
    return "Forbidden: the header " + std::string(part) + " is \"" + given +
           "\", and must name localhost, 127.0.0.1 or [::1]" + kOnly;
}

json id_of(const json& message) {
    return message.is_object() ? message.value("id", json()) : json();
}

}  // namespace

mcp::http_answer refused(int status, const json& id, std::int32_t code, const std::string& message, json data) {
    mcp::http_answer answer;
    answer.status = status;
    answer.content_type = "application/json";
    answer.body = mcp::dump_json(mcp::to_json(mcp::make_error_response(id, code, message, std::move(data))));
    return answer;
}

bool is_equal_secret(std::string_view one, std::string_view other) {
    if (one.size() != other.size()) return false;
    unsigned difference = 0;
    for (std::size_t i = 0; i < one.size(); ++i) difference |= static_cast<unsigned>(one[i] ^ other[i]);
    return difference == 0;
}

std::string header_of(const mcp::http_request& request, const std::string& name) {
    const auto found = request.headers.find(name);
    return found == request.headers.end() ? std::string() : found->second;
}

bool brings_json(const mcp::http_request& request) {
    return lower(header_of(request, "content-type")).find("application/json") != std::string::npos;
}

bool accepts(const mcp::http_request& request, std::string_view type) {
    const std::string accepted = lower(header_of(request, "accept"));
    if (accepted.empty() || accepted.find("*/*") != std::string::npos) return true;
    const std::string any = std::string(type.substr(0, type.find('/'))) + "/*";
    return accepted.find(type) != std::string::npos || accepted.find(any) != std::string::npos;
}

std::optional<mcp::http_answer> refuse_stranger(const mcp::http_request& request, const std::string& token) {
    if (token.empty()) {
        const char* const foreign = mcp::foreign_part(request.remote_address, request.headers);
        if (!foreign) return std::nullopt;
        return refused(403, nullptr, mcp::kInvalidRequest, why_foreign(request, foreign));
    }
    if (has_token(header_of(request, "authorization"), token)) return std::nullopt;
    mcp::http_answer answer =
        refused(401, nullptr, mcp::kInvalidRequest, "Unauthorized: the token is missing or wrong");
    answer.own_headers.emplace_back("WWW-Authenticate", "Bearer");
    return answer;
}

bool is_name_in_header(const std::string& given, const std::string& name) {
    constexpr std::string_view kBegin = "=?base64?";
    constexpr std::string_view kEnd = "?=";
    if (!given.starts_with(kBegin) || !given.ends_with(kEnd)) return given == name;
    // Encoded anew rather than decoded, so that only well-formed text passes.
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(name.data());
    return given == std::string(kBegin) + orvanic_xr::encode_base64(bytes, name.size()) + std::string(kEnd);
}

std::optional<mcp::http_answer> refuse_mismatch(const mcp::http_request& request, const json& message) {
    const auto misfit = [&](const char* header, bool is_given) {
        return refused(
            400, id_of(message), kHeaderMismatch,
            std::string("Header mismatch: ") + header + (is_given ? " does not fit the body" : " is missing"));
    };
    const auto differs = [&](const char* header, std::string_view expected) -> std::optional<mcp::http_answer> {
        const std::string given = header_of(request, header);
        if (!given.empty() && given == expected) return std::nullopt;
        return misfit(header, !given.empty());
    };
    if (auto refusal = differs("mcp-protocol-version", revision_of_request(message))) return refusal;
    const json fault = stateless_fault(message);
    if (!fault.is_null()) {
        return refused(400, id_of(message), fault["code"], fault["message"], fault.value("data", json()));
    }
    const std::string method = message["method"];
    if (auto refusal = differs("mcp-method", method)) return refusal;
    const json name = message["params"].value("name", json());
    if (method != "tools/call" || !name.is_string()) return std::nullopt;
    const std::string given = header_of(request, "mcp-name");
    if (!given.empty() && is_name_in_header(given, name.get_ref<const std::string&>())) return std::nullopt;
    return misfit("mcp-name", !given.empty());
}

}  // namespace velmoor
