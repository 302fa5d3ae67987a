// What the application last read of its inputs, as the layer's debug lines tell: "[inputdiag] suggest ..." for each
// path of an action, "[inputdiag] bool ..." and "[inputdiag] float ..." for what it read. A line comes when a reading
// differs from the one before it. Pure: the time of each line is told.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velmoor {

class input_log {
 public:
    using time_point = std::chrono::steady_clock::time_point;

    struct change {
        double value = 0;
        time_point when;
    };
    struct action {
        std::set<std::string> paths;
        bool is_read = false;
        bool is_active = false;       // in the last readings
        std::vector<double> values;   // of all hands that it is read for
        std::vector<change> changes;  // the last ones, oldest first
    };

    void take(std::string_view line, time_point now);
    // By their handles, as the lines spell them.
    std::map<std::string, action> actions(time_point now) const;

 private:
    // An application that asks for each hand reads two values in turn: what comes again at once has not changed.
    struct seen_value {
        double value;
        time_point last;
        int returns;
    };
    struct record {
        std::set<std::string> paths;
        bool is_read = false;
        time_point last_active;
        time_point last_line;
        std::vector<seen_value> seen;  // while active, the newest last
        std::vector<change> changes;
    };

    std::map<std::string, record> actions_;
};

}  // namespace velmoor
