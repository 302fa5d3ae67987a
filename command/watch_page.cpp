#include "command/watch_page.h"

#include <charconv>
#include <chrono>
#include <string_view>
#include <utility>

#include "command/bridge/pictures.h"
#include "command/http_rules.h"
#include "command/page/page.h"
#include "mcp/json_rpc.h"
#include "mcp/port_sharing.h"

namespace velmoor {
namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How long a viewer's worker waits before it sees that the server ends.
constexpr milliseconds kBetweenLooks{200};
// What comes closer together goes out together.
constexpr milliseconds kBetweenEvents{60};
constexpr milliseconds kSilence{5000};

// The page takes nothing from elsewhere, nor does anything elsewhere show it.
constexpr mcp::http_header kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
     "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
};

mcp::http_answer shown(std::string_view type, std::string_view body) {
    mcp::http_answer answer;
    answer.content_type = type;
    answer.headers = kHeaders;
    answer.body = body;
    return answer;
}

mcp::http_answer refusal(int status, const char* why) {
    mcp::http_answer answer = shown("text/plain; charset=utf-8", why);
    answer.status = status;
    return answer;
}

bool has_password(const mcp::http_request& request, const std::string& token) {
    constexpr std::string_view kBasic = "Basic ";
    const std::string given = header_of(request, "authorization");
    if (!given.starts_with(kBasic)) return false;
    const std::string both = decode_base64(std::string_view(given).substr(kBasic.size()));
    const std::size_t colon = both.find(':');
    return colon != std::string::npos && is_equal_secret(std::string_view(both).substr(colon + 1), token);
}

}  // namespace

std::optional<mcp::http_answer> watch_page::refuse(const mcp::http_request& request) const {
    if (auto stranger = refuse_stranger(request, {})) return stranger;
    if (!token_.empty() && !has_password(request, token_)) {
        mcp::http_answer answer = refusal(401, "The password is the token of velmoor serve.\n");
        answer.own_headers.emplace_back("WWW-Authenticate", "Basic realm=\"velmoor watch\", charset=\"UTF-8\"");
        return answer;
    }
    if (request.method == "GET") return std::nullopt;
    mcp::http_answer answer = refusal(405, "The page is read-only.\n");
    answer.own_headers.emplace_back("Allow", "GET");
    return answer;
}

std::optional<mcp::http_answer> watch_page::answer(const mcp::http_request& request) {
    const std::string& path = request.path;
    constexpr std::string_view kPictures = "/watch/pictures/";
    if (path != kWatchPath && !path.starts_with(std::string(kWatchPath) + "/")) return std::nullopt;
    if (auto refused = refuse(request)) return refused;
    if (path == kWatchPath) return shown("text/html; charset=utf-8", watch_document());
    if (path == "/watch/page.css") return shown("text/css; charset=utf-8", page_style());
    if (path == "/watch/page.js") return shown("text/javascript; charset=utf-8", watch_script());
    if (path == "/watch/events") return events();
    if (path.starts_with(kPictures)) return picture(path.substr(kPictures.size()));
    return refusal(404, "There is no such page.\n");
}

mcp::http_answer watch_page::picture(const std::string& number) {
    std::uint64_t read = 0;
    const char* const end = number.data() + number.size();
    const auto parsed = std::from_chars(number.data(), end, read);
    const auto found = parsed.ec == std::errc() && parsed.ptr == end ? shown_.log().find_picture(read) : nullptr;
    if (!found) return refusal(404, "This picture is not kept.\n");
    return shown(found->type, decode_base64(found->base64));
}

mcp::http_answer watch_page::events() {
    auto viewer = shown_.new_viewer();
    if (!viewer) return refusal(503, "Too many watch already.\n");
    mcp::http_answer answer = shown("text/event-stream", {});
    answer.tells_end = true;
    answer.stream = [this, viewer = std::move(viewer), seen = std::uint64_t{0},
                     last = clock::now()](mcp::frame_sink& sink) mutable {
        if (shown_.is_closed()) return false;
        if (const auto news = shown_.log().await_news(seen, kBetweenLooks)) {
            if (!sink.write("data: " + *news + "\n\n")) return false;
            last = clock::now();
            std::this_thread::sleep_for(kBetweenEvents);
        } else if (clock::now() >= last + kSilence) {
            if (!sink.write(": still here\n\n")) return false;
            last = clock::now();
        }
        return true;
    };
    return answer;
}

watch_server::watch_server(watch& shown)
    : shown_(shown),
      page_(shown, {}),
      server_(
          {.connections = {.kept_workers = 1, .workers = 24, .patience = milliseconds(2000), .streams = 12},
           .timings = {.silence = milliseconds(60000), .request = milliseconds(10000), .write = milliseconds(10000)},
           .body_bytes = 4096,
           .all_bodies_bytes = 65536}) {
    server_.set_gate([this](const mcp::http_request& request) -> std::optional<mcp::http_answer> {
        auto answer = page_.answer(request);
        return answer ? std::move(answer) : refusal(404, "The page is at /watch.\n");
    });
}

watch_server::~watch_server() {
    if (!thread_.joinable()) return;
    shown_.close();  // so that its streams end
    server_.stop();
    thread_.join();
}

int watch_server::start(int port) {
    const int bound = server_.bind("127.0.0.1", port);
    if (bound == 0 || mcp::is_served_by_another_process(false, bound)) return 0;
    thread_ = std::thread([this] { server_.serve(); });
    return bound;
}

}  // namespace velmoor
