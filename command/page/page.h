// The pages that people look at: one style and one set of parts for the report of tests and for the page that watches.
// Their texts are the files beside this, which the build puts into the program. Pure.
#pragma once

#include <string>
#include <string_view>

#include "mcp/json.h"

namespace velmoor {

using mcp::json;

// Text for XML and HTML. What XML can't hold is left out, and what is no UTF-8 replaced.
std::string escaped(const std::string& text);

// The page that watches: a document, its style and its script.
std::string_view watch_document();
std::string_view page_style();
std::string watch_script();

// A page that stands alone, in which report.js shows `data`. `summary` is there without a script, too.
std::string report_document(const std::string& title, const std::string& summary, const json& data);

}  // namespace velmoor
