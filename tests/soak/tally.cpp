#include "tests/soak/tally.h"

#include <algorithm>
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
    latencies_ms.insert(latencies_ms.end(), other.latencies_ms.begin(), other.latencies_ms.end());
}

json Ledger::Post() {
    const std::int64_t number = next_id_++;
    const json id = number % 2 == 0 ? json(number) : json(std::to_string(number));
    last_ = &requests_[id];
    ++in_flight_;
    return id;
}

void Ledger::Refuse() {
    last_->is_open = false;
    --in_flight_;
    ++tally_.refused;
}

void Ledger::Receive(const std::string& message) {
    json answer;
    try {
        answer = mcp::parse_json(message);
    } catch (const std::exception&) {
    }
    const bool is_answer =
        answer.is_object() && answer.contains("id") && answer.contains("result") != answer.contains("error");
    const auto request = is_answer ? requests_.find(answer["id"]) : requests_.end();
    if (request == requests_.end()) {
        ++tally_.strays;
    } else if (!std::exchange(request->second.is_open, false)) {
        ++tally_.duplicates;
    } else {
        --in_flight_;
        ++tally_.answered;
        const std::chrono::duration<float, std::milli> latency = Clock::now() - request->second.posted;
        tally_.latencies_ms.push_back(latency.count());
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
