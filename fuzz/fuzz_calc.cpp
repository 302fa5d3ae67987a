// Any bytes as an expression: the evaluator must come back, and short texts must give what plain recursion gives.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "fuzz/recursive_calc.h"
#include "tools/math/expression.h"

namespace {

constexpr std::size_t kLongestForRecursion = 4096;

struct Outcome {
    double value = 0.0;
    std::string message;  // empty if there is a value

    bool operator==(const Outcome& other) const {
        if (message != other.message) return false;
        if (std::isnan(value) || std::isnan(other.value)) return std::isnan(value) && std::isnan(other.value);
        return value == other.value && std::signbit(value) == std::signbit(other.value);
    }
};

template <typename Evaluate>
Outcome OutcomeOf(const Evaluate& evaluate, const std::string& expression) {
    try {
        return {evaluate(expression), {}};
    } catch (const std::exception& failure) {
        return {0.0, failure.what()};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string expression(reinterpret_cast<const char*>(data), size);
    const Outcome outcome = OutcomeOf(orvanic_xr::EvaluateExpression, expression);
    if (size > kLongestForRecursion) return 0;
    const Outcome expected = OutcomeOf(orvanic_xr::EvaluateRecursively, expression);
    if (!(outcome == expected)) {
        std::fprintf(stderr, "evaluator: %.17g '%s'\nrecursion: %.17g '%s'\n", outcome.value, outcome.message.c_str(),
                     expected.value, expected.message.c_str());
        std::abort();
    }
    return 0;
}
