#include "fuzz/schema_arguments.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace orvanic_xr {
namespace {

using mcp::json;

constexpr const char* kWords[] = {
    "",
    "NaN",
    "-1e999",
    "Left",
    "X",
    "1 + 2 * pi",
    "max(sin(1), 2 ^ 3) % 7",
    "sqrt(-1) / 0",
    "((((1))))",
    "1e308 ^ 2",
    "\xc3\xa9\xf0\x9f\x98\x80",
};

const double kNumbers[] = {
    0.0, -0.0, 1.0, -1.0, 0.5, 90.0, 1e-300, 5e-324, 3.5e38, -1e39, 1.7976931348623157e308, 9007199254740993.0,
};

bool Rarely(FuzzedDataProvider& bytes) {
    return bytes.ConsumeIntegralInRange(0, 15) == 15;
}

json MakeNumber(FuzzedDataProvider& bytes) {
    switch (bytes.ConsumeIntegralInRange(0, 5)) {
        case 0:
            return bytes.PickValueInArray(kNumbers);
        case 1:
            return bytes.ConsumeFloatingPoint<double>();
        case 2:
            return bytes.ConsumeIntegral<std::int64_t>();
        case 3:
            return bytes.PickValueInArray<std::int64_t>({0, 1, -1, 0x2001, std::numeric_limits<std::int64_t>::min()});
        case 4:
            return bytes.ConsumeBool() ? std::numeric_limits<std::uint64_t>::max() : std::uint64_t{0x2001};
        default:
            return bytes.ConsumeFloatingPointInRange(-2.0, 2.0);
    }
}

std::string MakeText(FuzzedDataProvider& bytes) {
    if (bytes.ConsumeBool()) return bytes.PickValueInArray(kWords);
    if (Rarely(bytes)) return std::string(1u << 16, static_cast<char>(bytes.ConsumeIntegral<std::uint8_t>()));
    return bytes.ConsumeRandomLengthString(200);
}

// One of the words that a description puts in quotes: mostly what the parameter may be.
std::string MakeQuoted(const std::string& description, FuzzedDataProvider& bytes) {
    std::vector<std::string> words;
    std::size_t begin = 0;
    while ((begin = description.find(" '", begin)) != std::string::npos) {
        begin += 2;
        words.push_back(description.substr(begin, description.find('\'', begin) - begin));
    }
    if (words.empty() || Rarely(bytes)) return MakeText(bytes);
    return words[bytes.ConsumeIntegralInRange<std::size_t>(0, words.size() - 1)];
}

json MakeDeep(FuzzedDataProvider& bytes) {
    json value = MakeNumber(bytes);
    const bool object = bytes.ConsumeBool();
    for (int depth = bytes.ConsumeIntegralInRange(1, 250); depth > 0; --depth) {
        json outer = object ? json::object() : json::array();
        if (object) {
            outer["a"] = std::move(value);
        } else {
            outer.push_back(std::move(value));
        }
        value = std::move(outer);
    }
    return value;
}

json MakeAnything(FuzzedDataProvider& bytes) {
    switch (bytes.ConsumeIntegralInRange(0, 7)) {
        case 0:
            return nullptr;
        case 1:
            return bytes.ConsumeBool();
        case 2:
            return MakeNumber(bytes);
        case 3:
            return MakeText(bytes);
        case 4:
            return json::array({MakeNumber(bytes), MakeText(bytes), nullptr});
        case 5:
            return json(std::size_t{5000}, MakeNumber(bytes));
        case 6:
            return json{{"x", MakeNumber(bytes)}, {"type", MakeText(bytes)}};
        default:
            return MakeDeep(bytes);
    }
}

json MakeValue(const json& schema, FuzzedDataProvider& bytes);

json MakeArray(const json& schema, FuzzedDataProvider& bytes) {
    int length = bytes.ConsumeIntegralInRange(0, 5);
    if (schema.contains("minItems") && !Rarely(bytes)) length = schema["minItems"].get<int>();
    json array = json::array();
    while (length-- > 0) array.push_back(MakeValue(schema.value("items", json::object()), bytes));
    return array;
}

json MakeObject(const json& schema, FuzzedDataProvider& bytes) {
    json object = json::object();
    const json required = schema.value("required", json::array());
    const json properties = schema.value("properties", json::object());
    for (const auto& [name, property] : properties.items()) {
        const bool wanted = std::find(required.begin(), required.end(), name) != required.end();
        const bool given = wanted ? !Rarely(bytes) : bytes.ConsumeBool();
        if (given) object[name] = MakeValue(property, bytes);
    }
    if (Rarely(bytes)) object[MakeText(bytes)] = MakeAnything(bytes);
    return object;
}

json MakeValue(const json& schema, FuzzedDataProvider& bytes) {
    if (Rarely(bytes)) return MakeAnything(bytes);
    if (schema.contains("oneOf")) {
        return MakeValue(schema["oneOf"].at(bytes.ConsumeIntegralInRange<std::size_t>(0, schema["oneOf"].size() - 1)),
                         bytes);
    }
    const std::string type = schema.value("type", std::string());
    if (type == "number" || type == "integer") return MakeNumber(bytes);
    if (type == "string") return MakeQuoted(schema.value("description", std::string()), bytes);
    if (type == "boolean") return bytes.ConsumeBool();
    if (type == "array") return MakeArray(schema, bytes);
    if (type == "object") return MakeObject(schema, bytes);
    return MakeAnything(bytes);
}

}  // namespace

mcp::json MakeArguments(const mcp::json& schema, FuzzedDataProvider& bytes) {
    return mcp::parse_json(mcp::dump_json(MakeValue(schema, bytes)));
}

}  // namespace orvanic_xr
