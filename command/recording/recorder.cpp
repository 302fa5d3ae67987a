#include "command/recording/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "command/bridge/pictures.h"
#include "command/bridge/results.h"
#include "command/recording/recording.h"

namespace velmoor {
namespace {

namespace fs = std::filesystem;

// FNV-1a with the size behind it: tells pictures apart, and does not withstand somebody who wants two to be one.
std::string digest_of(std::string_view bytes) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char each : bytes) hash = (hash ^ static_cast<unsigned char>(each)) * 0x100000001b3;
    char text[48];
    std::snprintf(text, sizeof text, "%016llx-%zx", static_cast<unsigned long long>(hash), bytes.size());
    return text;
}

std::int64_t unix_milliseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

double seconds_of(std::chrono::steady_clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

}  // namespace

recorder::recorder(recorder_settings settings) : settings_(std::move(settings)) {
    std::error_code error;
    fs::create_directories(fs::path(settings_.directory) / kPicturesDirectory, error);
    const std::string name = fs::path(settings_.directory) / kRecordingFile;
    file_.reset(open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
    if (!file_) throw std::runtime_error("no recording can be begun in " + name + ": " + std::strerror(errno));
    json header{{"velmoor_recording", kRecordingFormat}, {"unix_ms", unix_milliseconds()}};
    header.update(settings_.header);
    write_locked(header);
}

tool_call recorder::watched(tool_call call) {
    call.done = [self = shared_from_this(), tool = call.name, arguments = call.arguments, begun = clock::now(),
                 done = std::move(call.done)](json&& outcome) {
        try {
            self->take(tool, arguments, begun, outcome);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "velmoor: a call of %s is not recorded: %s\n", tool.c_str(), e.what());
        }
        done(std::move(outcome));
    };
    return call;
}

void recorder::take(const std::string& tool, const json& arguments, clock::time_point begun, const json& outcome) {
    const auto result = outcome.find("result");
    const bool is_well = !is_failure(outcome);
    json kept = result == outcome.end() ? json{{"error", outcome.value("error", json())}} : *result;
    bool shall_ask = false;
    {
        const std::lock_guard lock(mutex_);
        if (is_full_) return;
        shall_ask = is_well && through_ && tool.starts_with("openxr_") && !std::exchange(has_asked_, true);
        if (kept.is_object() && kept.contains("content") && kept["content"].is_array()) {
            for (json& item : kept["content"]) keep_picture_locked(item);
        }
        if (!is_full_) {
            write_locked({{"time", seconds_of(begun - begin_)},
                          {"took", seconds_of(clock::now() - begun)},
                          {"tool", tool},
                          {"arguments", arguments.is_object() ? arguments : json::object()},
                          {"result", std::move(kept)},
                          {"isError", !is_well}});
        }
    }
    if (shall_ask) ask_about();
}

void recorder::ask_about() {
    for (const char* const tool : {"openxr_get_instance_info", "openxr_get_system_info"}) {
        tool_call call{.name = tool, .arguments = json::object(), .done = nullptr, .report = nullptr, .is_inner = true};
        call.done = [self = shared_from_this(), tool](const json& outcome) {
            if (is_failure(outcome)) return;
            try {
                const json told = mcp::parse_json(texts_in(outcome.at("result")));
                const std::lock_guard lock(self->mutex_);
                if (!self->is_full_) self->write_locked({{"about", {{tool, told}}}});
            } catch (const std::exception&) {  // then the recording lacks that
                return;
            }
        };
        through_->start(through_->new_call_id(), std::move(call));
    }
}

void recorder::keep_picture_locked(json& item) {
    if (!item.is_object() || item.value("type", json()) != "image" || !item.value("data", json()).is_string()) return;
    const std::string bytes = decode_base64(item["data"].get_ref<const std::string&>());
    const std::string name = digest_of(bytes) + (item.value("mimeType", json()) == "image/jpeg" ? ".jpg" : ".png");
    item.erase("data");
    item["file"] = std::string(kPicturesDirectory) + "/" + name;
    const fs::path path = fs::path(settings_.directory) / kPicturesDirectory / name;
    std::error_code error;
    if (fs::exists(path, error) || !fits_locked(bytes.size())) return;
    std::ofstream file(path, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw std::runtime_error(path.string() + " can't be written");
}

bool recorder::fits_locked(std::size_t bytes) {
    if (settings_.limit == 0 || written_ + bytes <= settings_.limit) {
        written_ += bytes;
        return true;
    }
    if (!std::exchange(is_full_, true)) {
        std::fprintf(stderr, "velmoor: the recording has reached its limit of %zu bytes, and ends\n", settings_.limit);
        const std::string line = mcp::dump_json({{"limit", settings_.limit}}) + "\n";
        [[maybe_unused]] const ssize_t count = write(file_.get(), line.data(), line.size());
    }
    return false;
}

// In one piece, so that what a crash of this process leaves is whole lines.
void recorder::write_locked(const json& line) {
    const std::string text = mcp::dump_json(line) + "\n";
    if (!fits_locked(text.size())) return;
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t count = write(file_.get(), rest.data(), rest.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            is_full_ = true;  // what would follow a broken line could not be read
            throw std::runtime_error(std::string("the recording can't be written, and ends: ") + std::strerror(errno));
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
}

}  // namespace velmoor
