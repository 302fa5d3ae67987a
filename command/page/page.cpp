#include "command/page/page.h"

namespace velmoor {

// Of the source that the build writes; each is named after its file.
extern const std::string_view k_page_css;
extern const std::string_view k_parts_js;
extern const std::string_view k_plan_js;
extern const std::string_view k_report_js;
extern const std::string_view k_watch_html;
extern const std::string_view k_watch_js;

namespace {

// JSON for a script element, which ends at the first "</script" in it, be it within a text.
std::string script_data(const json& data) {
    std::string made;
    for (const char each : mcp::dump_json(data)) each == '<' ? made += "\\u003c" : made += each;
    return made;
}

}  // namespace

std::string escaped(const std::string& text) {
    const std::string quoted = mcp::dump_json(text);
    const std::string whole = mcp::parse_json(quoted).get<std::string>();
    std::string made;
    for (const char each : whole) {
        switch (each) {
            case '&':
                made += "&amp;";
                break;
            case '<':
                made += "&lt;";
                break;
            case '>':
                made += "&gt;";
                break;
            case '"':
                made += "&quot;";
                break;
            default:
                if (static_cast<unsigned char>(each) >= 0x20 || each == '\n' || each == '\t') made += each;
        }
    }
    return made;
}

std::string_view watch_document() {
    return k_watch_html;
}

std::string_view page_style() {
    return k_page_css;
}

std::string watch_script() {
    return std::string(k_parts_js).append(k_plan_js).append(k_watch_js);
}

std::string report_document(const std::string& title, const std::string& summary, const json& data) {
    std::string text =
        "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8>\n<meta http-equiv=Content-Security-Policy "
        "content=\"default-src 'none'; img-src data:; style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
        "<meta name=viewport content=\"width=device-width,initial-scale=1\"><title>";
    text.append(escaped(title)).append("</title><style>").append(k_page_css);
    text.append("</style></head><body class=report>\n<header><h1>").append(escaped(title)).append("</h1><p>");
    text.append(escaped(summary)).append("</p></header>\n<main id=tests><noscript>A script shows the results; they ");
    text.append("are also in junit.xml.</noscript></main>\n<script type=\"application/json\" id=data>");
    text.append(script_data(data)).append("</script>\n<script>");
    return text.append(k_parts_js).append(k_report_js).append("</script></body></html>\n");
}

}  // namespace velmoor
