// What a test file may say, where a wrong one is told to be wrong, and what is expected of values.
#include <gtest/gtest.h>

#include <utility>

#include "command/recording/test_writer.h"
#include "command/testing/check.h"
#include "command/testing/test_file.h"

namespace velmoor {
namespace {

TEST(TestFile, SaysWhatToDo) {
    const test_file read = parse_test(R"(
application: {environment: {A: 007}}
pictures: {share: 0.5}
steps:
  - say: "12"
  - call: t
    arguments: {n: 12, x: 1e-1, q: "12", no: ~, list: [true, word]}
    fails: true
    values: {/a/0: {near: 1, relative: 0.1}, text: {absent: true}}
  - picture: p
    masks: [[1, 2, 3, 4]]
    blur: 8
)",
                                      "dir/some.yaml");
    EXPECT_EQ(read.name, "some");
    EXPECT_EQ(read.environment.at("A"), "007");
    ASSERT_EQ(read.steps.size(), 3u);
    const test_step& call = read.steps[1];
    EXPECT_EQ(call.arguments, json::parse(R"({"n": 12, "x": 0.1, "q": "12", "no": null, "list": [true, "word"]})"));
    EXPECT_TRUE(call.shall_fail);
    ASSERT_EQ(call.checks.size(), 2u);
    EXPECT_EQ(call.checks[0].relative, 0.1);
    EXPECT_EQ(call.line, 6);
    EXPECT_EQ(read.steps[2].limits.masks[0].height, 4);
    EXPECT_EQ(read.steps[2].limits.share, 0.5);
}

TEST(TestFile, IsMadeOfARecordingWithoutWhatDiffersFromRunToRun) {
    const auto said = [](const std::string& text) {
        return json{{"content", json::array({{{"type", "text"}, {"text", text}}})}};
    };
    recording what;
    what.header = {{"application", "demo"}, {"simulator", true}, {"environment", {{"VELMOOR_SIM_SEED", "7"}}}};
    const std::string shown =
        R"({"pictures": [{"eye": "right", "shows": {"x": 2, "y": 0, "width": 6, "height": 5}, "of": {"width": 8, "height": 8}}]})";
    what.calls = {{0, 1, "app_start", json::object(), said("runs"), false},
                  {1.1,
                   0.1,
                   "openxr_get_x",
                   {{"app", "1"}},
                   said(R"({"a": {"b/c": 1.5}, "at": [1, 2.5], "atMs": 3, "times_hit": "0x12ab"})"),
                   false},
                  {3.2, 0.1, "press", {{"n", 2}}, said("Error: no"), true},
                  {3.3, 0.1, "xr_picture", {{"eye", "right"}}, said(shown), false},
                  {3.4, 1, "app_restart", json::object(), said("runs"), false},
                  {6, 0.1, "read_x", json::object(), said(R"({"a": 1})"), false}};
    const test_file read = parse_test(test_of(what), "f");
    ASSERT_EQ(read.steps.size(), 7u) << test_of(what);
    EXPECT_EQ(read.environment.at("VELMOOR_SIM_CLOCK"), "fixed");
    EXPECT_EQ(read.environment.at("VELMOOR_SIM_SEED"), "7");
    EXPECT_EQ(read.steps[0].kind, step_kind::expect);
    EXPECT_TRUE(read.steps[0].arguments.empty());
    ASSERT_EQ(read.steps[0].checks.size(), 2u);
    EXPECT_FALSE(fault_of(read.steps[0].checks[0], R"({"a": {"b/c": 1.52}})"));
    EXPECT_FALSE(fault_of(read.steps[0].checks[1], R"({"at": [1.01, 2.48]})"));
    EXPECT_EQ(read.steps[1].arguments, json({{"frames", 144}}));
    EXPECT_TRUE(read.steps[2].shall_fail);
    EXPECT_EQ(read.steps[3].eye, "right");
    ASSERT_EQ(read.steps[3].limits.masks.size(), 2u) << "all but what was looked at";
    EXPECT_EQ(read.steps[3].limits.masks[0].y, 5);
    EXPECT_EQ(read.steps[3].limits.masks[1].width, 2);
    EXPECT_EQ(read.steps[4].name, "app_restart");
    EXPECT_EQ(read.steps[5].kind, step_kind::expect) << "which waits, in place of the pause";
}

TEST(TestFile, IsToldToBeWrongWithLineAndReason) {
    for (const auto& [text, fault] : {
             std::pair<std::string, std::string>{"", "f:1: a test must be a mapping"},
             {"steps: []", "f:1: a test must have a list of steps, one at least"},
             {"step: []", "f:1: a test knows no \"step\""},
             {"steps:\n- say: a\n  call: b", "f:2: a step must have one of say, call, wait, expect and picture"},
             {"steps:\n- call: a\n  eye: left", "f:3: such a step knows no \"eye\""},
             {"steps:\n- picture: ../a", "f:2: a picture's name must be of letters, digits, - and _, 80 at most"},
             {"steps:\n- call: a\n  values:\n    /a~: 1",
              "f:4: \"/a~\" must be \"text\" or a path such as /pose/position/1"},
             {"steps:\n- call: a\n  values: {/a: {matches: '('}}", "f:3: matches needs a regular expression"},
             {"steps:\n- call: a\n  call: b", "f:2: a step must have one of say, call, wait, expect and picture"},
             {"a: [", "f:1: "},
         }) {
        try {
            parse_test(text, "f");
            ADD_FAILURE() << text;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()).substr(0, fault.size()), fault);
        }
    }
}

TEST(ValueCheck, ComparesAsItSays) {
    const std::string answer = R"({"p": [1, 2.05], "s": "word", "n": null})";
    for (const auto& [check, fault] : {
             std::pair<value_check, std::string>{{"/p", check_kind::near, {1, 2}, 0.06, 0}, ""},
             {{"/p", check_kind::near, {1, 2}, 0, 0.03}, ""},
             {{"/p", check_kind::near, {1, 2}, 0.04, 0.02},
              "/p is [1,2.05], and should be near [1,2] (absolute 0.04, relative 0.02)"},
             {{"/s", check_kind::contains, "or"}, ""},
             {{"/p", check_kind::contains, 1}, ""},
             {{"/s", check_kind::matches, "^w.*d$"}, ""},
             {{"/s", check_kind::matches, "^o"}, "/s is \"word\", and should be a match of \"^o\""},
             {{"/x", check_kind::absent, true}, ""},
             {{"/n", check_kind::absent, true}, "/n is null, and should be absent"},
             {{"/n", check_kind::equal, nullptr}, ""},
             {{"text", check_kind::equal, answer}, ""},
         }) {
        EXPECT_EQ(fault_of(check, answer).value_or(""), fault) << check.path;
    }
    const value_check lacking{"/s/1", check_kind::equal, 1};
    EXPECT_TRUE(fault_of(lacking, answer)->starts_with("/s/1 is absent, and should be 1; the answer is "));
}

}  // namespace
}  // namespace velmoor
