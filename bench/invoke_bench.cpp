// A tool call from inside the process, without and with telemetry, held against the tool itself. Arguments and
// answer go through the C boundary as JSON text; the console is not part of what is measured.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "diagnostics/logger.h"
#include "diagnostics/telemetry.h"
#include "tools/argument_check.h"
#include "tools/math/math_tools.h"
#include "tools/tool_registry.h"
#include "tools/tool_results.h"
#include "velmoor/invoke_tool.h"

namespace orvanic_xr {
namespace {

constexpr char kNothingArguments[] = "{}";
constexpr char kDotArguments[] = R"({"vector_a":[1,2,3],"vector_b":[4,5,6],"reason":"to see how far it is"})";

ToolEntry make_nothing_tool_entry() {
    return {ToolBuilder("nothing", "Answers.").build(),
            [](const json&, const std::string&) { return make_text_tool_result("nothing"); },
            {}};
}

void Quietly(benchmark::State& state, const std::function<void()>& call) {
    const std::int32_t level = Logger::instance().level();
    Logger::instance().set_level(kLogError);
    for ([[maybe_unused]] auto _ : state) call();
    Logger::instance().set_level(level);
}

// The tool alone, its arguments parsed.
void BM_Handler(benchmark::State& state, ToolEntry (*make)(), const char* arguments_text) {
    const ToolEntry entry = make();
    const json arguments = mcp::parse_json(arguments_text);
    Quietly(state, [&] { benchmark::DoNotOptimize(entry.handler(arguments, "")); });
}

enum class Told { kNobody, kTelemetry };

void BM_InvokeTool(benchmark::State& state, ToolEntry (*make)(), const char* arguments, Told told) {
    ToolEntry entry = make();
    const std::string name = entry.tool.name;
    ToolHandler handler = told == Told::kTelemetry
                              ? wrapWithTelemetry(name, warn_of_unfit_arguments(entry.tool, std::move(entry.handler)))
                              : std::move(entry.handler);
    InProcessToolRegistry::instance().registerTool(std::move(entry.tool), std::move(handler));
    char result[4096];
    Quietly(state, [&] {
        const std::int32_t code =
            OrvanicXR_InvokeTool(name.c_str(), arguments, sizeof result, nullptr, result, 0, nullptr, nullptr);
        if (code != 0) state.SkipWithError("the tool failed");
    });
    InProcessToolRegistry::instance().clear();
}

BENCHMARK_CAPTURE(BM_Handler, nothing, make_nothing_tool_entry, kNothingArguments);
BENCHMARK_CAPTURE(BM_InvokeTool, nothing, make_nothing_tool_entry, kNothingArguments, Told::kNobody);
BENCHMARK_CAPTURE(BM_InvokeTool, nothing_with_telemetry, make_nothing_tool_entry, kNothingArguments, Told::kTelemetry);
BENCHMARK_CAPTURE(BM_Handler, math_dot, make_math_dot_tool_entry, kDotArguments);
BENCHMARK_CAPTURE(BM_InvokeTool, math_dot, make_math_dot_tool_entry, kDotArguments, Told::kNobody);
BENCHMARK_CAPTURE(BM_InvokeTool, math_dot_with_telemetry, make_math_dot_tool_entry, kDotArguments, Told::kTelemetry);

}  // namespace
}  // namespace orvanic_xr

int main(int argc, char** argv) {
    orvanic_xr::Telemetry::instance().set_application_info("bench", 1, "none", 1, 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    orvanic_xr::Telemetry::instance().close();
    return 0;
}
