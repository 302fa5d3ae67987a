// What the tools share that show a record of ContextManager. They work on a copy and never call the runtime; a
// record that is not there yet is an answer, not a fault.
#pragma once

#include "diagnostics/logger.h"
#include "tools/tool_results.h"

namespace orvanic_xr {

struct CachedRecordTexts {
    const char* called;             // log; "true" or "false" follows
    const char* not_available_log;  // a warning
    const char* not_available;      // the answer then
    const char* returning;          // log
};

// The answer of a tool whose record is `record`; `describe` makes its JSON, and runs only if it is valid.
template <typename Record, typename Describe>
json answer_from_cache(const CachedRecordTexts& texts, const Record& record, const Describe& describe) {
    LogInfo(texts.called, record.valid ? "true" : "false");
    if (!record.valid) {
        LogWarning(texts.not_available_log);
        return make_text_tool_result(texts.not_available);
    }
    LogInfo(texts.returning);
    return make_json_tool_result(describe(record));
}

}  // namespace orvanic_xr
