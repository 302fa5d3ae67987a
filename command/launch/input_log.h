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

    // The values of an action that were active in one frame: one for each hand that it was read for, if they differ.
    struct reading {
        std::set<double> values;
        time_point when;
    };
    struct action {
        std::set<std::string> paths;
        std::vector<reading> readings;  // the last ones, oldest first, each another than the one before it
    };

    void take(std::string_view line, time_point now);
    // By their handles, as the lines spell them.
    std::map<std::string, action> actions() const;

 private:
    struct record {
        action its;
        // The lines of one frame come at once; what they tell is whole when those of the next one begin.
        reading frame;
        bool has_frame = false;
    };

    static void end_frame(record& of);

    std::map<std::string, record> actions_;
};

}  // namespace velmoor
