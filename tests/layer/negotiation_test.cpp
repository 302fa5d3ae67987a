#include "layer/negotiation.h"

#include <gmock/gmock.h>

#include <functional>

#include "layer/hooks.h"
#include "layer/instance_hooks.h"
#include "tests/fakes/log_capture.h"

namespace orvanic_xr {
namespace {

using testing::ElementsAre;

struct Offer {
    XrNegotiateLoaderInfo loader = {XR_LOADER_INTERFACE_STRUCT_LOADER_INFO, 1, 40, 1, 1, XR_MAKE_VERSION(1, 0, 0),
                                    XR_MAKE_VERSION(1, 1023, 4095)};
    XrNegotiateApiLayerRequest request = {XR_LOADER_INTERFACE_STRUCT_API_LAYER_REQUEST, 1, 48, 0, 0, nullptr, nullptr};
};

TEST(Negotiation, AnswersWithItsVersionsAndFunctions) {
    Offer today;
    Offer narrow;  // exactly our API version, but more interface versions
    narrow.loader.minApiVersion = narrow.loader.maxApiVersion = XR_MAKE_VERSION(1, 1, 59);
    narrow.loader.minInterfaceVersion = 0;
    narrow.loader.maxInterfaceVersion = 7;
    for (Offer& offer : {std::ref(today), std::ref(narrow)}) {
        LogCapture log;
        ASSERT_EQ(xrNegotiateLoaderApiLayerInterface(&offer.loader, nullptr, &offer.request), XR_SUCCESS);
        EXPECT_EQ(offer.request.layerInterfaceVersion, 1u);
        EXPECT_EQ(offer.request.layerApiVersion, 0x000100010000003Bu);
        EXPECT_EQ(offer.request.getInstanceProcAddr, OrvanicLayerXrGetInstanceProcAddr);
        EXPECT_EQ(offer.request.createApiLayerInstance, OrvanicLayerXrCreateApiLayerInstance);
        EXPECT_THAT(log.take(), ElementsAre("INFO Orvanic XR API layer negotiation started",
                                            "INFO Orvanic XR API layer initialized"));
    }
}

TEST(Negotiation, RefusesWhatDoesNotFitToTheByte) {
    constexpr const char* kLoader = "ERROR loaderInfo struct is not valid";
    constexpr const char* kInterface =
        "ERROR loader interface version is not in the range [minInterfaceVersion, maxInterfaceVersion]";
    constexpr const char* kApi = "ERROR loader api version is not in the range [minApiVersion, maxApiVersion]";
    constexpr const char* kRequest = "ERROR apiLayerRequest is not valid";
    const struct {
        const char* what;
        void (*change)(Offer&);
        const char* line;
    } kRows[] = {
        {"loader type", [](Offer& o) { o.loader.structType = XR_LOADER_INTERFACE_STRUCT_RUNTIME_REQUEST; }, kLoader},
        {"loader version", [](Offer& o) { o.loader.structVersion = 2; }, kLoader},
        {"interface from 2", [](Offer& o) { o.loader.minInterfaceVersion = 2; }, kInterface},
        {"API up to 1.1.58", [](Offer& o) { o.loader.maxApiVersion = XR_MAKE_VERSION(1, 1, 58); }, kApi},
        {"API from 1.1.60", [](Offer& o) { o.loader.minApiVersion = XR_MAKE_VERSION(1, 1, 60); }, kApi},
        {"request type", [](Offer& o) { o.request.structType = XR_LOADER_INTERFACE_STRUCT_LOADER_INFO; }, kRequest},
        {"request version", [](Offer& o) { o.request.structVersion = 0; }, kRequest},
        {"request size, one less", [](Offer& o) { o.request.structSize = 47; }, kRequest},
        {"both versions: the interface's comes first",
         [](Offer& o) { o.loader.minInterfaceVersion = 2, o.loader.maxApiVersion = 0; }, kInterface},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.what);
        Offer offer;
        row.change(offer);
        LogCapture log;
        EXPECT_EQ(xrNegotiateLoaderApiLayerInterface(&offer.loader, "any", &offer.request),
                  XR_ERROR_INITIALIZATION_FAILED);
        EXPECT_THAT(log.take(), ElementsAre("INFO Orvanic XR API layer negotiation started", row.line));
        EXPECT_EQ(offer.request.getInstanceProcAddr, nullptr);
    }
    Offer offer;
    EXPECT_EQ(xrNegotiateLoaderApiLayerInterface(nullptr, "any", &offer.request), XR_ERROR_INITIALIZATION_FAILED);
    EXPECT_EQ(xrNegotiateLoaderApiLayerInterface(&offer.loader, "any", nullptr), XR_ERROR_INITIALIZATION_FAILED);
}

}  // namespace
}  // namespace orvanic_xr
