// The loader's side of one creation over FakeRuntime, and the process as new. The server takes a free port.
#pragma once

#include <gmock/gmock.h>

#include <cstring>

#include "context/context_manager.h"
#include "diagnostics/log_file_sink.h"
#include "diagnostics/telemetry.h"
#include "layer/instance_hooks.h"
#include "layer/mcp_server_lifecycle.h"
#include "tests/fakes/fake_runtime.h"
#include "tests/fakes/loader_records.h"
#include "tests/fakes/log_capture.h"
#include "tests/fakes/renew.h"
#include "tests/fakes/scratch.h"

namespace orvanic_xr {

inline constexpr char kVelmoor[] = "XR_APILAYER_KESTX_velmoor";
inline constexpr char kOrvanic[] = "XR_APILAYER_KESTX_orvanic";

class InstanceFixture : public testing::Test {
 protected:
    InstanceFixture() {
        Renew(ContextManager::instance());
        std::strcpy(create_info_.applicationInfo.applicationName, "Demo");
        create_info_.applicationInfo.applicationVersion = 7;
        std::strcpy(create_info_.applicationInfo.engineName, "Forge");
        create_info_.applicationInfo.engineVersion = 9;
        create_info_.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 34);
    }
    ~InstanceFixture() override {
        DestroyOrvanicMcpServer();
        LogFileSink::instance().end_session();
        Telemetry::instance().shutdown();
        Renew(ContextManager::instance());
    }

    XrResult Create() { return OrvanicLayerXrCreateApiLayerInstance(&create_info_, &layer_info_, &instance_); }

    ScratchDirectory state_home_;
    ScopedVariable variable_{"XDG_STATE_HOME", state_home_.path()};
    ScopedMcpServerPort port_{0};
    FakeRuntime runtime_{FakeRuntime::Installed::kNo};
    LogCapture log_;
    XrInstanceCreateInfo create_info_ = {XR_TYPE_INSTANCE_CREATE_INFO, nullptr, 0, {}, 0, nullptr, 0, nullptr};
    XrApiLayerNextInfo next_info_ =
        NextInfo(kVelmoor, FakeRuntime::next_get_instance_proc_addr(), FakeRuntime::next_create_api_layer_instance());
    XrApiLayerCreateInfo layer_info_ = LayerInfo(&next_info_);
    XrInstance instance_ = XR_NULL_HANDLE;
};

}  // namespace orvanic_xr
