#include "layer/binding_hooks.h"

#include <string>
#include <vector>

#include "tests/layer/hook_fixture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kSimple = "/interaction_profiles/khr/simple_controller";
constexpr const char* kPronto = "/interaction_profiles/kest/pronto_controller_plus";
constexpr const char* kOwnBindings =
    "orvanic_xr_left_hand_grip_pose /user/hand/left/input/grip/pose, "
    "orvanic_xr_left_hand_aim_pose /user/hand/left/input/aim/pose, "
    "orvanic_xr_right_hand_grip_pose /user/hand/right/input/grip/pose, "
    "orvanic_xr_right_hand_aim_pose /user/hand/right/input/aim/pose";

class BindingHooks : public HookFixture {
 protected:
    struct Binding {
        XrAction action;
        const char* path;
    };

    XrResult Suggest(const char* profile, const std::vector<Binding>& bindings) {
        std::vector<XrActionSuggestedBinding> suggested;
        for (const Binding& binding : bindings) suggested.push_back({binding.action, runtime_.path(binding.path)});
        const XrInteractionProfileSuggestedBinding info = {
            XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr, runtime_.path(profile),
            static_cast<std::uint32_t>(suggested.size()), suggested.data()};
        return OrvanicLayerXrSuggestInteractionProfileBindings(runtime_.instance(), &info);
    }
    XrResult Attach(XrSession session, const std::vector<XrActionSet>& sets) {
        const XrSessionActionSetsAttachInfo info = {XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO, nullptr,
                                                    static_cast<std::uint32_t>(sets.size()), sets.data()};
        return OrvanicLayerXrAttachSessionActionSets(session, &info);
    }
    XrResult Sync(XrSession session, const std::vector<XrActiveActionSet>& sets) {
        const XrActionsSyncInfo info = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, static_cast<std::uint32_t>(sets.size()),
                                        sets.data()};
        return OrvanicLayerXrSyncActions(session, &info);
    }
    static std::string SuggestCall(const char* profile, const std::string& bindings) {
        return "xrSuggestInteractionProfileBindings(instance1, " + std::string(profile) + ", [" + bindings + "])";
    }
    std::vector<std::string> SuggestCalls() { return runtime_.calls("xrSuggestInteractionProfileBindings"); }
};

TEST_F(BindingHooks, SuggestionIsWidenedByTheLayersBindings) {
    OpenSession();
    const XrAction fire = MakeAction("fire");
    const XrAction hand = MakeAction("hand");
    EXPECT_EQ(Suggest(kSimple, {{fire, "/user/hand/left/input/select/click"},
                                {hand, "/user/hand/left/input/grip/pose"},
                                {hand, "/user/hand/right/input/aim/pose"}}),
              XR_SUCCESS);
    EXPECT_THAT(SuggestCalls(), ElementsAre(SuggestCall(kSimple,
                                                        "fire /user/hand/left/input/select/click, "
                                                        "hand /user/hand/left/input/grip/pose, "
                                                        "hand /user/hand/right/input/aim/pose, " +
                                                            std::string(kOwnBindings))));
    const std::string tail = " profile=" + std::string(kSimple);
    EXPECT_THAT(log_.take(),
                ElementsAre("INFO OrvanicLayerXrSuggestInteractionProfileBindings called",
                            "DEBUG [inputdiag] suggest action=0x5005 path=/user/hand/left/input/select/click" + tail,
                            "DEBUG [inputdiag] suggest action=0x5006 path=/user/hand/left/input/grip/pose" + tail,
                            "DEBUG [inputdiag] suggest action=0x5006 path=/user/hand/right/input/aim/pose" + tail,
                            "INFO Appending 4 orvanic bindings to 3 original bindings",
                            "INFO OrvanicLayerXrSuggestInteractionProfileBindings succeeded"));
}

TEST_F(BindingHooks, SuggestionNeverHoldsAnActionThatCouldNotBeMade) {
    runtime_.answer_call("xrCreateAction", 2, XR_ERROR_LIMIT_REACHED);  // the right grip's
    const XrSession session = OpenSession();
    const XrAction fire = MakeAction("fire");
    Suggest(kSimple, {{fire, "/user/hand/left/input/select/click"}});
    EXPECT_THAT(log_.messages("INFO"), testing::Contains("Appending 3 orvanic bindings to 1 original bindings"));
    ContextManager::instance().removeSessionContext(session);
    runtime_.take_calls();
    Suggest(kSimple, {{fire, "/user/hand/left/input/select/click"}});
    EXPECT_THAT(SuggestCalls(), ElementsAre(SuggestCall(kSimple, "fire /user/hand/left/input/select/click")));
}

TEST_F(BindingHooks, RefusalThatTheLayersBindingsMayHaveCausedIsTriedWithoutThem) {
    OpenSession();
    const XrAction fire = MakeAction("fire");
    const std::string as_it_came = SuggestCall(kSimple, "fire /user/hand/left/input/select/click");
    const auto suggest = [&](XrResult refusal) {
        runtime_.answer_once("xrSuggestInteractionProfileBindings", refusal);
        return Suggest(kSimple, {{fire, "/user/hand/left/input/select/click"}});
    };
    for (const XrResult refusal : {XR_ERROR_PATH_UNSUPPORTED, XR_ERROR_ACTIONSETS_ALREADY_ATTACHED,
                                   XR_ERROR_HANDLE_INVALID, XR_ERROR_PATH_INVALID, XR_ERROR_VALIDATION_FAILURE}) {
        runtime_.take_calls();
        EXPECT_EQ(suggest(refusal), XR_SUCCESS) << refusal;
        EXPECT_THAT(SuggestCalls(), ElementsAre(HasSubstr(kOwnBindings), as_it_came));
    }
    EXPECT_THAT(log_.messages("WARNING"),
                ElementsAre("Bindings for " + std::string(kSimple) +
                            " were refused with the orvanic ones among them, XrResult=-22; suggesting them as they "
                            "came"))
        << "once for each profile";
    EXPECT_EQ(suggest(XR_ERROR_INSTANCE_LOST), XR_ERROR_INSTANCE_LOST);
}

TEST_F(BindingHooks, RefusedSyncGoesOnWithoutTheLayersSetUntilItIsAttached) {
    const XrSession session = OpenSession();
    const XrActionSet game = MakeActionSet("game");
    const std::string widened = "xrSyncActions(session1, [game, orvanic_xr_action_set])";
    const std::string as_it_came = "xrSyncActions(session1, [game])";
    const auto calls_of_sync = [&](XrResult result) {
        runtime_.take_calls();
        EXPECT_EQ(Sync(session, {{game, XR_NULL_PATH}}), result);
        return runtime_.take_calls();
    };
    runtime_.answer("xrSyncActions", XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_THAT(calls_of_sync(XR_ERROR_ACTIONSET_NOT_ATTACHED), ElementsAre(widened, as_it_came));
    EXPECT_THAT(calls_of_sync(XR_ERROR_ACTIONSET_NOT_ATTACHED), ElementsAre(as_it_came));
    runtime_.behave("xrSyncActions");
    EXPECT_THAT(calls_of_sync(XR_SUCCESS), ElementsAre(as_it_came));
    EXPECT_THAT(log_.messages("WARNING"),
                ElementsAre("Sync was refused with the orvanic action set in it, XrResult=-46; syncing as the "
                            "application does until action sets are attached"));
    runtime_.answer_once("xrAttachSessionActionSets", XR_ERROR_HANDLE_INVALID);
    Attach(session, {game});
    EXPECT_THAT(calls_of_sync(XR_SUCCESS), ElementsAre(as_it_came));
    Attach(session, {game});
    EXPECT_THAT(calls_of_sync(XR_SUCCESS), ElementsAre(widened));
    runtime_.answer("xrSyncActions", XR_ERROR_ACTIONSET_NOT_ATTACHED);
    EXPECT_THAT(calls_of_sync(XR_ERROR_ACTIONSET_NOT_ATTACHED), ElementsAre(widened, as_it_came));
    runtime_.behave("xrSyncActions");
    EXPECT_THAT(calls_of_sync(XR_SUCCESS), ElementsAre(widened)) << "the refusal was the application's own";
}

TEST_F(BindingHooks, NullArgumentsAreRefusedBeforeTheNextLayer) {
    const XrSession session = OpenSession();
    EXPECT_EQ(OrvanicLayerXrSuggestInteractionProfileBindings(runtime_.instance(), nullptr),
              XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(OrvanicLayerXrAttachSessionActionSets(session, nullptr), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_EQ(OrvanicLayerXrSyncActions(session, nullptr), XR_ERROR_VALIDATION_FAILURE);
    EXPECT_THAT(log_.messages("ERROR"),
                ElementsAre("suggestedBindings is null", "attachInfo is null", "syncInfo is null"));
    EXPECT_THAT(runtime_.take_calls(), IsEmpty());
}

TEST_F(BindingHooks, CountWithoutEntriesIsLeftToTheNextLayer) {
    const XrSession session = OpenSession();
    const XrInteractionProfileSuggestedBinding suggestion = {XR_TYPE_INTERACTION_PROFILE_SUGGESTED_BINDING, nullptr,
                                                             runtime_.path(kSimple), 3, nullptr};
    const XrSessionActionSetsAttachInfo attach = {XR_TYPE_SESSION_ACTION_SETS_ATTACH_INFO, nullptr, 3, nullptr};
    const XrActionsSyncInfo sync = {XR_TYPE_ACTIONS_SYNC_INFO, nullptr, 3, nullptr};
    OrvanicLayerXrSuggestInteractionProfileBindings(runtime_.instance(), &suggestion);
    OrvanicLayerXrAttachSessionActionSets(session, &attach);
    OrvanicLayerXrSyncActions(session, &sync);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre(SuggestCall(kSimple, ""), "xrAttachSessionActionSets(session1, [])",
                                                   "xrSyncActions(session1, [])"));
}

TEST_F(BindingHooks, AttachAddsTheLayersSetBehindTheApplications) {
    const XrSession session = OpenSession();
    const XrActionSet game = MakeActionSet("game");
    const XrActionSet menu = MakeActionSet("menu");
    EXPECT_EQ(Attach(session, {game, menu}), XR_SUCCESS);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrAttachSessionActionSets(session1, [game, menu, "
                                                   "orvanic_xr_action_set])"));
    EXPECT_THAT(log_.take(), ElementsAre("INFO OrvanicLayerXrAttachSessionActionSets called",
                                         "INFO EnsureProntoControllerPlusBindingsSuggested: nothing to do",
                                         "INFO Appending 1 orvanic action set to %u original action sets2",
                                         "INFO OrvanicLayerXrAttachSessionActionSets succeeded"));
    EXPECT_EQ(Attach(session, {}), XR_SUCCESS);
    EXPECT_THAT(runtime_.take_calls(), ElementsAre("xrAttachSessionActionSets(session1, [orvanic_xr_action_set])"));
    runtime_.answer("xrAttachSessionActionSets", XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_EQ(Attach(session, {game}), XR_ERROR_ACTIONSETS_ALREADY_ATTACHED);
    EXPECT_THAT(log_.messages("ERROR"), ElementsAre("OrvanicLayerXrAttachSessionActionSets failed"));
}

TEST_F(BindingHooks, WithoutTheLayersSetAttachAndSyncPassAsTheyCame) {
    runtime_.answer("xrCreateActionSet", XR_ERROR_LIMIT_REACHED);
    const XrSession session = OpenSession();
    runtime_.behave("xrCreateActionSet");
    const XrActionSet game = MakeActionSet("game");
    EXPECT_EQ(Attach(session, {game}), XR_SUCCESS);
    EXPECT_EQ(Sync(session, {{game, XR_NULL_PATH}}), XR_SUCCESS);
    EXPECT_THAT(runtime_.take_calls(),
                ElementsAre("xrAttachSessionActionSets(session1, [game])", "xrSyncActions(session1, [game])"));
    EXPECT_THAT(log_.messages("WARNING"),
                ElementsAre("Orvanic action set is null, calling next without appending action set",
                            "Orvanic action set is null, calling next without appending active action set"));
}

TEST_F(BindingHooks, SyncAddsTheLayersSetToAnyNumberOfSets) {
    const XrSession session = OpenSession();
    const XrActionSet game = MakeActionSet("game");
    const XrPath left = runtime_.path("/user/hand/left");
    for (const int count : {0, 1, 4, 15, 16, 40}) {
        SCOPED_TRACE(count);
        std::vector<XrActiveActionSet> sets(static_cast<std::size_t>(count), {game, left});
        std::string expected = "xrSyncActions(session1, [";
        for (int i = 0; i < count; ++i) expected += "game /user/hand/left, ";
        EXPECT_EQ(Sync(session, sets), XR_SUCCESS);
        EXPECT_THAT(runtime_.take_calls(), ElementsAre(expected + "orvanic_xr_action_set])"));
    }
    EXPECT_THAT(log_.take(), IsEmpty());
    runtime_.answer("xrSyncActions", XR_ERROR_SESSION_LOST);
    EXPECT_EQ(Sync(session, {}), XR_ERROR_SESSION_LOST);
    EXPECT_THAT(log_.take(), ElementsAre("ERROR OrvanicLayerXrSyncActions failed"));
}

TEST_F(BindingHooks, AttachMirrorsWhatWasSuggestedForOtherProfiles) {
    const XrSession session = OpenSession();
    const XrAction fire = MakeAction("fire");
    const XrAction menu = MakeAction("menu");
    Suggest("/interaction_profiles/oculus/touch_controller", {{fire, "/user/hand/left/input/trigger/value"}});
    Suggest(kSimple, {{fire, "/user/hand/left/input/trigger/value"},
                      {fire, "/user/hand/left/input/trigger/click"},  // comes to the same path
                      {menu, "/user/hand/right/input/menu/click"},
                      {menu, "/user/hand/left/input/a/click"},
                      {menu, "/user/hand/left/input/trigger/value"}});
    runtime_.take_calls();
    log_.take();
    Attach(session, {});
    EXPECT_THAT(SuggestCalls(), ElementsAre(SuggestCall(kPronto,
                                                        "fire /user/hand/left/input/trigger/value, "
                                                        "menu /user/hand/right/input/system/click, "
                                                        "menu /user/hand/left/input/trigger/value, " +
                                                            std::string(kOwnBindings))));
    EXPECT_EQ(runtime_.calls().back(), "xrAttachSessionActionSets(session1, [orvanic_xr_action_set])");
    EXPECT_THAT(
        log_.messages("INFO"),
        ElementsAre("OrvanicLayerXrAttachSessionActionSets called",
                    "Mirror: dropping path with no pronto_controller_plus equivalent: /user/hand/left/input/a/click",
                    "EnsureProntoControllerPlusBindingsSuggested: App did not suggest bindings for "
                    "pronto_controller_plus; mirroring 3 translated bindings from {" +
                        std::string(kSimple) +
                        ", /interaction_profiles/oculus/touch_controller} so ZAMS conformance automation mock devices "
                        "can bind app actions",
                    "Appending 1 orvanic action set to %u original action sets0",
                    "OrvanicLayerXrAttachSessionActionSets succeeded"));
}

TEST_F(BindingHooks, MirrorTakesTheLastSuggestionOfAProfile) {
    const XrSession session = OpenSession();
    const XrAction fire = MakeAction("fire");
    Suggest(kSimple, {{fire, "/user/hand/left/input/trigger/value"}});
    Suggest(kSimple, {{fire, "/user/hand/right/input/select/click"}});
    Suggest(kSimple, {});  // takes nothing away
    runtime_.take_calls();
    Attach(session, {});
    EXPECT_THAT(SuggestCalls(),
                ElementsAre(HasSubstr(", [fire /user/hand/right/input/a/click, " + std::string(kOwnBindings))));
}

TEST_F(BindingHooks, ApplicationThatKnowsTheProfileGetsNoMirror) {
    const XrSession session = OpenSession();
    const XrAction fire = MakeAction("fire");
    Suggest(kSimple, {{fire, "/user/hand/left/input/trigger/value"}});
    Suggest(kPronto, {{fire, "/user/hand/left/input/trigger/value"}});
    EXPECT_THAT(log_.messages("INFO"), testing::Contains("App suggested bindings for pronto_controller_plus"));
    runtime_.take_calls();
    log_.take();
    Attach(session, {});
    EXPECT_THAT(SuggestCalls(), IsEmpty());
    EXPECT_THAT(log_.messages("INFO"), testing::Contains("EnsureProntoControllerPlusBindingsSuggested: nothing to do"));
}

}  // namespace
}  // namespace orvanic_xr
