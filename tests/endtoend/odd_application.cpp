// Applications that end in ways in which a well-kept one does not. Each says "ready" and goes on when its standard
// input ends; the exit code is 0 if all went as it should.
//
//   odd_application abandon    leaves main with its instance alive
//   odd_application refused    asks for an instance that the runtime refuses
#include <openxr/openxr.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

XrResult CreateInstance(const std::vector<const char*>& extensions, XrInstance* instance) {
    XrInstanceCreateInfo info = {};
    info.type = XR_TYPE_INSTANCE_CREATE_INFO;
    std::strcpy(info.applicationInfo.applicationName, "odd_application");
    info.applicationInfo.apiVersion = XR_MAKE_VERSION(1, 0, 0);
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.enabledExtensionNames = extensions.data();
    return xrCreateInstance(&info, instance);
}

void SayReadyAndWait() {
    std::puts("ready");
    std::fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

bool Abandon() {
    XrInstance instance = XR_NULL_HANDLE;
    const bool created = CreateInstance({}, &instance) == XR_SUCCESS;
    SayReadyAndWait();
    return created;
}

bool Refused() {
    XrInstance instance = XR_NULL_HANDLE;
    // The simulator refuses an extension without the one that it builds on.
    const XrResult result = CreateInstance({"XR_KS_spatial_entity_query"}, &instance);
    SayReadyAndWait();
    return result == XR_ERROR_EXTENSION_DEPENDENCY_NOT_ENABLED;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string kind = argc == 2 ? argv[1] : "";
    if (kind == "abandon") return Abandon() ? 0 : 1;
    if (kind == "refused") return Refused() ? 0 : 1;
    std::fprintf(stderr, "usage: odd_application abandon|refused\n");
    return 2;
}
