#include <chrono>
#include <exception>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <thread>

#include "tests/fakes/sse_client.h"
#include "tests/soak/clients.h"

namespace soak {
namespace {

using namespace std::chrono_literals;

constexpr char kInitialize[] =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-11-25"}})";
constexpr char kInitialized[] = R"({"jsonrpc":"2.0","method":"notifications/initialized"})";
constexpr char kList[] = R"({"jsonrpc":"2.0","id":1,"method":"tools/list"})";
constexpr char kCapture[] =
    R"({"jsonrpc":"2.0","id":2,"method":"tools/call","params":{"name":"openxr_capture_composited_image"}})";
constexpr char kMove[] =
    R"({"jsonrpc":"2.0","id":3,"method":"tools/call","params":{"name":"openxr_set_head_pose","arguments":)"
    R"({"position":[0,1.6,0],"duration_seconds":0.5}}})";

// Does `act` until told to stop, with a short pause between. What the server refuses is no fault here.
std::int64_t Repeatedly(const Orders& orders, const std::function<void(std::minstd_rand&)>& act) {
    std::minstd_rand random(static_cast<unsigned>(orders.number));
    std::int64_t times = 0;
    for (; !orders.stop; ++times) {
        try {
            act(random);
        } catch (const std::exception&) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10 + random() % 50));
    }
    return times;
}

// A session that has shaken hands and not read the answer.
void OpenSession(mcp::sse_client& client) {
    client.post(kInitialize);
    client.post(kInitialized);
}

void VanishFromStream(const char* address, std::minstd_rand& random) {
    mcp::sse_client client(kPort, address);
    OpenSession(client);
    for (unsigned i = random() % 4; i > 0; --i) client.post(i % 2 ? kCapture : kMove);
    if (random() % 2 == 0) client.next_message();
    client.stream().vanish();
}

void VanishFromRequest(const char* address, std::minstd_rand& random) {
    const std::string request = mcp::post_request("/message?session_id=none", kCapture);
    mcp::raw_socket socket(kPort, address);
    socket.send(std::string_view(request).substr(0, random() % request.size()));
    if (random() % 2 == 0) socket.vanish();
}

// Whole requests as they go over the wire, to a session at `uri`.
std::string Garbage(const std::string& uri, std::minstd_rand& random) {
    const auto post = [&](const std::string& body) { return mcp::post_request(uri, body); };
    const std::string call(kMove);
    switch (random() % 8) {
        case 0: {
            std::string noise(1 + random() % 5000, '\0');
            for (char& byte : noise) byte = static_cast<char>(random());
            return noise + "\r\n\r\n";
        }
        case 1:
            return "GET /sse HTTP/1.1\r\nX-Long: " + std::string(1'000'000, 'x') + "\r\n\r\n";
        case 2:
            return "POST " + uri + " HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n{}";
        case 3:
            return "POST " + uri + " HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n{}";
        case 4:
            return post(std::string(100'000, '['));
        case 5:
            return post(std::string(17u << 20, ' '));
        case 6:
            return post(call.substr(0, random() % call.size()));
        default: {
            std::string damaged = call;
            for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<char>(random());
            return post(damaged);
        }
    }
}

}  // namespace

std::int64_t Vanish(const Orders& orders) {
    return Repeatedly(orders, [&](std::minstd_rand& random) {
        const char* const address = random() % 2 == 0 ? "127.0.0.1" : "::1";
        random() % 4 == 0 ? VanishFromStream(address, random) : VanishFromRequest(address, random);
    });
}

std::int64_t NeverRead(const Orders& orders) {
    std::int64_t cut_off = 0;
    Repeatedly(orders, [&](std::minstd_rand&) {
        mcp::sse_client client(kPort, orders.address);
        OpenSession(client);
        int posted = 0;
        while (!orders.stop && client.post(posted % 100 == 0 ? kCapture : kList).status == 202) {
            ++posted;
            std::this_thread::sleep_for(20ms);
        }
        if (!orders.stop) ++cut_off;
    });
    return cut_off;
}

std::int64_t SendGarbage(const Orders& orders) {
    mcp::sse_client client(kPort, orders.address);
    OpenSession(client);
    return Repeatedly(orders, [&](std::minstd_rand& random) {
        mcp::raw_socket socket(kPort, orders.address);
        socket.send(Garbage(client.session_uri(), random));
        socket.ends_within(50ms);
    });
}

}  // namespace soak
