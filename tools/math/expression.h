// Evaluates one arithmetic expression in 64-bit floats. Knows no JSON, no tool and no locale.
//
//     expression = term { ("+" | "-") term }                       from left to right
//     term       = power { ("*" | "/") power }                     from left to right
//     power      = factor [ "**" power ]                           from right to left
//     factor     = ("-" | "+") factor | "(" expression ")" | number | "pi" | "e" | call
//     call       = name "(" expression [ "," expression ] ")"
//
// On purpose unlike other languages: a sign binds tighter than "**", so -2**2 is 4; blanks count nowhere, not even
// inside of a number, a name or an operator; and a name holds no digits, so log10 and atan2 are out of reach.
//
// Length and depth of an expression are limited by memory alone: open brackets are kept on the heap, 24 bytes
// each, and never on the stack of the thread, which belongs to the host.
#pragma once

#include <cstddef>
#include <string_view>

namespace orvanic_xr {

// The value, which may be infinite or NaN: only a syntax error, an unknown name, a missing argument, a number out of
// range and a division by zero fail. Throws a std::runtime_error or std::logic_error with the text for the agent.
double EvaluateExpression(std::string_view expression);

// Two routines of the grammar that stand alone. Both read at `position` and leave it behind what they read.

// A number, with a sign or without. What can't be converted at the end of its text is dropped: "2e+" is 2. Throws
// "stod" if there is nothing to convert, or if the number overflows or underflows.
double parse_number(std::string_view text, std::size_t& position);

// A name of letters and underscores.
std::string_view parse_identifier(std::string_view text, std::size_t& position);

}  // namespace orvanic_xr
