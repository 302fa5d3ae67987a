// What the arithmetic of the agent costs: expressions without their JSON, and whole tools with it.
#include <benchmark/benchmark.h>

#include <string>

#include "diagnostics/logger.h"
#include "tools/math/expression.h"
#include "tools/math/math_tools.h"

namespace orvanic_xr {
namespace {

void BM_EvaluateExpression(benchmark::State& state, const std::string& expression) {
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(EvaluateExpression(expression));
}
BENCHMARK_CAPTURE(BM_EvaluateExpression, sum, std::string("2 + 3 * 4"));
BENCHMARK_CAPTURE(BM_EvaluateExpression, hypotenuse, std::string("sqrt(3**2+4**2)*2-1"));
BENCHMARK_CAPTURE(BM_EvaluateExpression, distance,
                  std::string("sqrt((1.25 - -0.5)**2 + (1.6 - 0.75)**2 + (-2.125 - 0.0625)**2)"));

// `depth` brackets around a number: the time for each must not grow with the depth.
void BM_EvaluateBrackets(benchmark::State& state) {
    const auto depth = static_cast<std::size_t>(state.range(0));
    const std::string expression = std::string(depth, '(') + "1" + std::string(depth, ')');
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(EvaluateExpression(expression));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(expression.size()));
}
BENCHMARK(BM_EvaluateBrackets)->RangeMultiplier(64)->Range(64, 64 * 64 * 64);

void BM_Tool(benchmark::State& state, ToolEntry (*make)(), const char* arguments_text) {
    const std::int32_t level = Logger::instance().level();
    Logger::instance().set_level(kLogError);  // the console is not what is measured
    const ToolEntry entry = make();
    const json arguments = mcp::parse_json(arguments_text);
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(entry.handler(arguments, ""));
    Logger::instance().set_level(level);
}
BENCHMARK_CAPTURE(BM_Tool, math_calc, make_math_calc_tool_entry, R"({"expression":"sqrt(3**2+4**2)*2-1"})");
BENCHMARK_CAPTURE(BM_Tool, math_cross, make_math_cross_tool_entry, R"({"vector_a":[1,2,3],"vector_b":[4,5,6]})");
BENCHMARK_CAPTURE(BM_Tool, math_build_quat, make_math_build_quat_tool_entry, R"({"front_direction":[1,2,3]})");

}  // namespace
}  // namespace orvanic_xr

BENCHMARK_MAIN();
