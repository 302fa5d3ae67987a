#include "command/bridge/revision.h"

#include <algorithm>
#include <string>

#include "mcp/json_rpc.h"

namespace velmoor {
namespace {

// The member `name` of an object, or null.
const json* member(const json* object, const char* name) {
    if (!object || !object->is_object()) return nullptr;
    const auto found = object->find(name);
    return found == object->end() ? nullptr : &*found;
}

const json* meta_of(const json& message) {
    return member(member(&message, "params"), "_meta");
}

}  // namespace

bool is_session_revision(std::string_view revision) {
    return std::find(kSessionRevisions.begin(), kSessionRevisions.end(), revision) != kSessionRevisions.end();
}

bool is_stateless_revision(std::string_view revision) {
    return std::find(kStatelessRevisions.begin(), kStatelessRevisions.end(), revision) != kStatelessRevisions.end();
}

std::string_view revision_for(std::string_view offered) {
    const auto* const found = std::find(kSessionRevisions.begin(), kSessionRevisions.end(), offered);
    return found == kSessionRevisions.end() ? kSessionRevisions.front() : *found;
}

bool has_batches(std::string_view revision) {
    return revision == "2025-03-26" || revision == "2024-11-05";
}

std::string_view revision_of_request(const json& message) {
    const json* const revision = member(meta_of(message), kMetaRevision);
    return revision && revision->is_string() ? std::string_view(revision->get_ref<const std::string&>())
                                             : std::string_view();
}

bool is_stateless_method(std::string_view method) {
    constexpr std::array<std::string_view, 4> kMethods = {"server/discover", "tools/list", "tools/call",
                                                          "subscriptions/listen"};
    return std::find(kMethods.begin(), kMethods.end(), method) != kMethods.end();
}

json stateless_fault(const json& message) {
    const std::string_view revision = revision_of_request(message);
    if (!is_stateless_revision(revision)) {
        return {{"code", kUnsupportedRevision},
                {"message", "Unsupported protocol version: " + std::string(revision)},
                {"data", {{"supported", kStatelessRevisions}, {"requested", revision}}}};
    }
    const json* const capabilities = member(meta_of(message), kMetaCapabilities);
    if (!capabilities || !capabilities->is_object()) {
        return {{"code", mcp::kInvalidParams}, {"message", std::string("Missing _meta ") + kMetaCapabilities}};
    }
    return nullptr;
}

}  // namespace velmoor
