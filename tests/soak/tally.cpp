#include "tests/soak/tally.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <utility>

namespace soak {

using mcp::json;

void Tally::Add(const Tally& other) {
    answered += other.answered;
    lost += other.lost;
    duplicates += other.duplicates;
    strays += other.strays;
    refused += other.refused;
    for (const auto& [name, more] : other.latencies_ms) {
        std::vector<float>& all = latencies_ms[name];
        all.insert(all.end(), more.begin(), more.end());
    }
}

json Ledger::Post(std::string name) {
    const std::int64_t id = first_id_ + static_cast<std::int64_t>(requests_.size());
    requests_.push_back({std::move(name), Clock::now()});
    ++in_flight_;
    return id % 2 == 0 ? json(id) : json(std::to_string(id));
}

void Ledger::Refuse() {
    requests_.back().is_open = false;
    --in_flight_;
    ++tally_.refused;
}

Ledger::Request* Ledger::Find(const json& id) {
    std::int64_t number = -1;
    if (id.is_number_integer()) number = id;
    if (id.is_string()) {
        const auto& text = id.get_ref<const std::string&>();
        std::from_chars(text.data(), text.data() + text.size(), number);
    }
    const std::int64_t place = number - first_id_;
    if (place < 0 || place >= static_cast<std::int64_t>(requests_.size())) return nullptr;
    if (id.is_number() != (number % 2 == 0)) return nullptr;
    return &requests_[static_cast<std::size_t>(place)];
}

void Ledger::Receive(const std::string& message) {
    json answer;
    try {
        answer = mcp::parse_json(message);
    } catch (const std::exception&) {
    }
    const bool is_answer =
        answer.is_object() && answer.contains("id") && answer.contains("result") != answer.contains("error");
    Request* const request = is_answer ? Find(answer["id"]) : nullptr;
    if (!request) {
        ++tally_.strays;
    } else if (!request->is_open) {
        ++tally_.duplicates;
    } else {
        request->is_open = false;
        --in_flight_;
        ++tally_.answered;
        const std::chrono::duration<float, std::milli> latency = Clock::now() - request->posted;
        tally_.latencies_ms[request->name].push_back(latency.count());
    }
}

Tally Ledger::Close() {
    tally_.lost += std::exchange(in_flight_, 0);
    return std::exchange(tally_, {});
}

float Quantile(std::vector<float>& latencies_ms, double share) {
    if (latencies_ms.empty()) return 0;
    const auto rank = static_cast<std::ptrdiff_t>(share * static_cast<double>(latencies_ms.size() - 1));
    std::nth_element(latencies_ms.begin(), latencies_ms.begin() + rank, latencies_ms.end());
    return latencies_ms[static_cast<std::size_t>(rank)];
}

}  // namespace soak
