#include "mcp/client/event_parser.h"

#include <algorithm>
#include <utility>

namespace mcp {

bool event_parser::feed(std::string_view bytes, const handler& tell) {
    for (;;) {
        const std::size_t end = bytes.find('\n');
        line_.append(bytes.substr(0, end));
        if (line_.size() + data_.size() > most_bytes_) return false;
        if (end == std::string_view::npos) return true;
        finish_line(tell);
        line_.clear();
        bytes.remove_prefix(end + 1);
    }
}

void event_parser::finish_line(const handler& tell) {
    if (!line_.empty() && line_.back() == '\r') line_.pop_back();
    if (line_.empty()) {
        if (has_data_) tell(type_, std::move(data_));
        type_.clear();
        data_.clear();
        has_data_ = false;
        return;
    }
    const std::size_t colon = std::min(line_.find(':'), line_.size());
    const std::string_view field = std::string_view(line_).substr(0, colon);
    std::string_view value = std::string_view(line_).substr(std::min(colon + 1, line_.size()));
    if (value.starts_with(' ')) value.remove_prefix(1);
    if (field == "event") type_ = value;
    if (field != "data") return;
    if (has_data_) data_ += '\n';
    data_ += value;
    has_data_ = true;
}

}  // namespace mcp
