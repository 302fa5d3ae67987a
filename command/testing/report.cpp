#include "command/testing/report.h"

#include <algorithm>
#include <cstdio>

#include "capture/base64.h"
#include "command/page/page.h"
#include "mcp/json.h"

namespace velmoor {
namespace {

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

const char* word_of(verdict which) {
    if (which == verdict::passed) return "passed";
    return which == verdict::failed ? "failed" : "setup";
}

// As pages hold pictures; null if there is none.
json picture_of(const std::string& png) {
    if (png.empty()) return nullptr;
    return orvanic_xr::encode_base64(reinterpret_cast<const std::uint8_t*>(png.data()), png.size());
}

json steps_of(const test_result& of) {
    json list = json::array();
    for (const step_result& each : of.steps) {
        list.push_back({{"result", word_of(each.came_to)},
                        {"title", each.title},
                        {"seconds", each.seconds},
                        {"message", each.message},
                        {"pictures",
                         {{"expected", picture_of(each.pictures.expected)},
                          {"actual", picture_of(each.pictures.actual)},
                          {"difference", picture_of(each.pictures.difference)}}}});
    }
    return list;
}

// Of one that has passed, its name and time: a page of thousands has to load as well.
json test_on_page(const test_result& of) {
    json told{
        {"result", word_of(of.came_to)}, {"name", shown_name(of)}, {"seconds", of.seconds}, {"count", of.steps.size()}};
    if (of.came_to == verdict::passed) return told;
    told.update({{"message", of.message},
                 {"steps", steps_of(of)},
                 {"last", picture_of(of.last_picture)},
                 {"output", of.output}});
    return told;
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
    json tests = json::array();
    for (const test_result& each : results) tests.push_back(test_on_page(each));
    const std::string summary =
        std::to_string(count(results, verdict::passed)) + " of " + std::to_string(results.size()) + " passed, " +
        std::to_string(count(results, verdict::failed)) + " failed, set-up of " +
        std::to_string(count(results, verdict::set_up_failed)) + " failed, in " + rounded(seconds) + " s";
    return report_document("velmoor test", summary, {{"tests", std::move(tests)}});
}

}  // namespace velmoor
