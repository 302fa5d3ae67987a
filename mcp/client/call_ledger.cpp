#include "mcp/client/call_ledger.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace mcp {

void call_ledger::add(call added) {
    const std::int64_t id = added.id;
    queue_of(added).push_back(id);
    entry& made = calls_[id];
    made.it = std::move(added);
    made.deadline = made.it.send_by;
    deadlines_.emplace(made.deadline, id);
}

std::optional<call_ledger::outgoing> call_ledger::take_next(bool is_ready) {
    std::deque<std::int64_t>& queue = is_ready && greetings_.empty() ? waiting_ : greetings_;
    if (queue.empty()) return std::nullopt;
    entry& next = calls_.at(queue.front());
    queue.pop_front();
    next.where = stage::leaving;
    return outgoing{next.it.id, next.it.body};
}

void call_ledger::give_back(std::int64_t id) {
    const auto found = calls_.find(id);
    if (found == calls_.end() || found->second.where == stage::waiting) return;
    found->second.where = stage::waiting;
    set_deadline(found->second, found->second.it.send_by);
    queue_of(found->second.it).push_front(id);
}

void call_ledger::mark_sent(std::int64_t id, time_point now) {
    const auto found = calls_.find(id);
    if (found == calls_.end()) return;
    found->second.where = stage::sent;
    set_deadline(found->second, now + found->second.it.answer_within);
}

void call_ledger::doubt(std::int64_t id, time_point answer_by) {
    const auto found = calls_.find(id);
    if (found != calls_.end()) set_deadline(found->second, std::min(found->second.deadline, answer_by));
}

void call_ledger::answer(json message) {
    const auto id = message.find("id");
    if (id == message.end() || !id->is_number_integer()) return;
    const auto found = calls_.find(id->get<std::int64_t>());
    // A call that waits was not sent on this stream: whoever answers it is not talking of it.
    if (found == calls_.end() || found->second.where == stage::waiting) return;
    finish(found, {call_end::answered, std::move(message), {}});
}

void call_ledger::report(const json& params) {
    const auto token = params.find("progressToken");
    if (token == params.end() || !token->is_number_integer()) return;
    const auto found = calls_.find(token->get<std::int64_t>());
    if (found != calls_.end() && found->second.it.report) found->second.it.report(params);
}

bool call_ledger::cancel(std::int64_t id, const std::string& why) {
    const auto found = calls_.find(id);
    if (found == calls_.end()) return false;
    const bool was_taken = found->second.where != stage::waiting;
    finish(found, {call_end::cancelled, {}, why});
    return was_taken;
}

void call_ledger::end(std::int64_t id, call_end how, const std::string& why) {
    if (const auto found = calls_.find(id); found != calls_.end()) finish(found, {how, {}, why});
}

void call_ledger::lose_server(const std::string& why) {
    std::vector<std::int64_t> lost;
    for (const auto& [id, each] : calls_) {
        if (each.it.is_greeting || each.where != stage::waiting) lost.push_back(id);
    }
    for (const std::int64_t id : lost) end(id, call_end::outcome_unknown, why);
}

void call_ledger::expire(time_point now, const std::string& problem) {
    while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
        const auto found = calls_.find(deadlines_.begin()->second);
        if (found->second.where == stage::waiting) {
            finish(found, {call_end::not_sent, {}, problem});
        } else {
            finish(found, {call_end::timed_out, {}, "the server did not answer in time"});
        }
    }
}

void call_ledger::end_all(const std::string& why) {
    while (!calls_.empty()) {
        const bool waited = calls_.begin()->second.where == stage::waiting;
        finish(calls_.begin(), {waited ? call_end::not_sent : call_end::outcome_unknown, {}, why});
    }
}

std::optional<call_ledger::time_point> call_ledger::next_deadline() const {
    if (deadlines_.empty()) return std::nullopt;
    return deadlines_.begin()->first;
}

// `done` may add calls: it is run when all is in order again.
void call_ledger::finish(std::map<std::int64_t, entry>::iterator which, call_result&& result) {
    const auto done = std::move(which->second.it.done);
    deadlines_.erase({which->second.deadline, which->first});
    if (which->second.where == stage::waiting) std::erase(queue_of(which->second.it), which->first);
    calls_.erase(which);
    if (done) done(std::move(result));
}

void call_ledger::set_deadline(entry& of, time_point deadline) {
    deadlines_.erase({of.deadline, of.it.id});
    of.deadline = deadline;
    deadlines_.emplace(deadline, of.it.id);
}

}  // namespace mcp
