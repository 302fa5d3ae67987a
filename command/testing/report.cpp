#include "command/testing/report.h"

#include <algorithm>
#include <cstdio>

#include "capture/base64.h"
#include "mcp/json.h"

namespace velmoor {
namespace {

constexpr const char* kStyle =
    "body{font:15px/1.5 system-ui,sans-serif;margin:2em auto;max-width:72em;padding:0 1em;color:#222;background:#fff}"
    "table{border-collapse:collapse;width:100%}td,th{text-align:left;padding:.2em .6em;border-bottom:1px solid #ddd;"
    "vertical-align:top;overflow-wrap:anywhere}.passed{color:#176b2c}.failed{color:#b00020}.setup{color:#8a5a00}"
    "figure{display:inline-block;margin:.5em 1em .5em 0;max-width:31%}img{max-width:100%;border:1px solid #999}"
    "pre{background:#f4f4f4;padding:.6em;overflow:auto;max-height:30em}"
    "@media(max-width:40em){figure{max-width:100%}}";

// Text for XML and HTML. What XML can't hold is left out, and what is no UTF-8 replaced.
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

std::string rounded(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

std::size_t count(const std::vector<test_result>& results, verdict which) {
    return static_cast<std::size_t>(
        std::count_if(results.begin(), results.end(), [&](const test_result& each) { return each.came_to == which; }));
}

std::string shown_name(const test_result& of) {
    return of.name + (of.repetition > 1 ? " (" + std::to_string(of.repetition) + ")" : "");
}

std::string marked(verdict which) {
    if (which == verdict::passed) return "<td class=passed>passed</td>";
    if (which == verdict::failed) return "<td class=failed>failed</td>";
    return "<td class=setup>set-up failed</td>";
}

std::string figure(const std::string& png, const char* caption) {
    if (png.empty()) return {};
    const std::string text = orvanic_xr::encode_base64(reinterpret_cast<const std::uint8_t*>(png.data()), png.size());
    return std::string("<figure><img alt=\"") + caption + "\" src=\"data:image/png;base64," + text + "\"><figcaption>" +
           caption + "</figcaption></figure>\n";
}

std::string details(const test_result& of) {
    std::string text = "<h2>" + escaped(shown_name(of)) + "</h2>\n<p>" + escaped(of.message) + "</p>\n<table>\n";
    for (const step_result& each : of.steps) {
        text += "<tr>" + marked(each.came_to) + "<td>" + escaped(each.title);
        if (!each.message.empty()) text += "<br><small>" + escaped(each.message) + "</small>";
        text += "</td><td>" + rounded(each.seconds) + " s</td></tr>\n";
    }
    text += "</table>\n";
    for (const step_result& each : of.steps) {
        text += figure(each.pictures.expected, "expected") + figure(each.pictures.actual, "actual") +
                figure(each.pictures.difference, "difference");
    }
    text += figure(of.last_picture, "last picture");
    return text + "<details><summary>What the application and the layer printed</summary><pre>" + escaped(of.output) +
           "</pre></details>\n";
}

}  // namespace

std::string junit_report(const std::vector<test_result>& results, double seconds) {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n<testsuite name=\"velmoor\" tests=\"" +
        std::to_string(results.size()) + "\" failures=\"" + std::to_string(count(results, verdict::failed)) +
        "\" errors=\"" + std::to_string(count(results, verdict::set_up_failed)) + "\" time=\"" + rounded(seconds) +
        "\">\n";
    for (const test_result& each : results) {
        text += "<testcase classname=\"" + escaped(each.path) + "\" name=\"" + escaped(shown_name(each)) +
                "\" time=\"" + rounded(each.seconds) + "\">";
        if (each.came_to != verdict::passed) {
            const std::string tag = each.came_to == verdict::failed ? "failure" : "error";
            text += "<" + tag + " message=\"" + escaped(each.message) + "\"/><system-out>" + escaped(each.output) +
                    "</system-out>";
        }
        text += "</testcase>\n";
    }
    return text + "</testsuite>\n</testsuites>\n";
}

std::string html_report(const std::vector<test_result>& results, double seconds) {
    std::string text = std::string(
                           "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8><meta name=viewport "
                           "content=\"width=device-width,initial-scale=1\"><title>velmoor test</title><style>") +
                       kStyle + "</style></head><body>\n<h1>velmoor test</h1>\n<p>" +
                       std::to_string(count(results, verdict::passed)) + " of " + std::to_string(results.size()) +
                       " passed, " + std::to_string(count(results, verdict::failed)) + " failed, set-up of " +
                       std::to_string(count(results, verdict::set_up_failed)) + " failed, in " + rounded(seconds) +
                       " s</p>\n<table>\n<tr><th>Result</th><th>Test</th><th>Steps</th><th>Time</th></tr>\n";
    for (const test_result& each : results) {
        text += "<tr>" + marked(each.came_to) + "<td>" + escaped(shown_name(each)) + "</td><td>" +
                std::to_string(each.steps.size()) + "</td><td>" + rounded(each.seconds) + " s</td></tr>\n";
    }
    text += "</table>\n";
    for (const test_result& each : results) {
        if (each.came_to != verdict::passed) text += details(each);
    }
    return text + "</body></html>\n";
}

}  // namespace velmoor
