// Calls to make of a server: arguments by each tool's own schema, mostly sensible and now and then wrong.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "mcp/json.h"

namespace soak {

using mcp::json;

struct Call {
    std::string method;
    json params;
};

class ToolCalls {
 public:
    // `tools` as tools/list gives them. The one that ends the application is left out.
    ToolCalls(const json& tools, unsigned seed);

    // A tool's call, or a ping, a listing, or a method or tool that there isn't. None takes longer than half a second
    // by what it asks for.
    Call Next();

 private:
    bool Happens(double probability);
    double Number(double lowest, double highest);
    const json& OneOf(const json& choices);
    json ArgumentsFor(const json& schema);
    json ValueFor(const std::string& name, const json& schema);
    json ArrayFor(const std::string& name, const json& schema);

    std::mt19937 random_;
    std::vector<json> tools_;
};

}  // namespace soak
