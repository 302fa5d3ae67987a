#include "tools/math/expression.h"

#include <locale.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace orvanic_xr {
namespace {

// As in the C locale: what is a letter is not for the host's locale to decide.
constexpr bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// One of the two operations is there. A second argument that a function has no use for is ignored.
struct Function {
    std::string_view name;
    double (*unary)(double x);
    double (*binary)(double x, double y);
};

constexpr Function kFunctions[] = {
    {"sqrt", [](double x) { return std::sqrt(x); }, nullptr},
    {"sin", [](double x) { return std::sin(x); }, nullptr},
    {"cos", [](double x) { return std::cos(x); }, nullptr},
    {"tan", [](double x) { return std::tan(x); }, nullptr},
    {"asin", [](double x) { return std::asin(x); }, nullptr},
    {"acos", [](double x) { return std::acos(x); }, nullptr},
    {"atan", [](double x) { return std::atan(x); }, nullptr},
    {"log", [](double x) { return std::log(x); }, nullptr},
    {"log10", [](double x) { return std::log10(x); }, nullptr},
    {"exp", [](double x) { return std::exp(x); }, nullptr},
    {"abs", [](double x) { return std::abs(x); }, nullptr},
    {"floor", [](double x) { return std::floor(x); }, nullptr},
    {"ceil", [](double x) { return std::ceil(x); }, nullptr},
    {"round", [](double x) { return std::round(x); }, nullptr},
    {"pow", nullptr, [](double x, double y) { return std::pow(x, y); }},
    {"atan2", nullptr, [](double x, double y) { return std::atan2(x, y); }},
    {"min", nullptr, [](double x, double y) { return y < x ? y : x; }},
    {"max", nullptr, [](double x, double y) { return y > x ? y : x; }},
};

const Function& FindFunction(std::string_view name) {
    const auto found = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                    [name](const Function& function) { return function.name == name; });
    if (found == std::end(kFunctions)) throw std::runtime_error("Unknown function: " + std::string(name));
    return *found;
}

// What waits while an operand is read: an operator for its right side, or an open bracket for its end.
struct Pending {
    enum Kind : char { kAdd, kSubtract, kMultiply, kDivide, kPower, kBracket, kFirstArgument, kSecondArgument };

    Kind kind;
    bool negative = false;       // of brackets and arguments: the factor that they end has the sign "-"
    double left = 0.0;           // left side of an operator; the first argument, while the second is read
    std::size_t name_start = 0;  // of arguments: where the name of their function stands
};

// The routines of the grammar. They don't call each other, since a text could then choose how deep: each does its
// part for one operand, and what it would wait for lies on `pending_`. parse_factor reads up to the next number or
// constant. The routines above it get that value and say whether it completes a power, a term, an expression;
// false means that an operator follows, so that another operand has to be read first.
class ExpressionParser {
 public:
    explicit ExpressionParser(std::string_view text) : text_(text) { pending_.reserve(16); }

    double Evaluate() {
        double value = ParseOutermost();
        if (position_ != text_.size()) throw std::runtime_error("Unexpected characters at end of expression");
        return value;
    }

 private:
    double ParseOutermost() {
        for (;;) {
            double value = parse_factor();
            while (parse_power(value) && parse_term(value) && parse_expression(value)) {
                if (pending_.empty()) return value;
                if (!CloseFactor(value)) break;
            }
        }
    }

    bool parse_expression(double& value) {
        if (TopIs(Pending::kAdd)) {
            value = Pop().left + value;
        } else if (TopIs(Pending::kSubtract)) {
            value = Pop().left - value;
        }
        return !Defer("+", Pending::kAdd, value) && !Defer("-", Pending::kSubtract, value);
    }

    // No "**" comes here: parse_power has taken it.
    bool parse_term(double& value) {
        if (TopIs(Pending::kMultiply)) {
            value = Pop().left * value;
        } else if (TopIs(Pending::kDivide)) {
            if (value == 0.0) throw std::runtime_error("Division by zero");
            value = Pop().left / value;
        }
        return !Defer("*", Pending::kMultiply, value) && !Defer("/", Pending::kDivide, value);
    }

    bool parse_power(double& value) {
        if (Defer("**", Pending::kPower, value)) return false;
        while (TopIs(Pending::kPower)) value = std::pow(Pop().left, value);
        return true;
    }

    // Opens what stands before the operand. A sign belongs to the one factor behind it, be that a bracket.
    double parse_factor() {
        for (bool negative = false;;) {
            if (position_ == text_.size()) throw std::runtime_error("Unexpected end of expression");
            const char c = text_[position_];
            if (c == '-' || c == '+') {
                negative = negative != (c == '-');
                ++position_;
            } else if (c == '(') {
                pending_.push_back({Pending::kBracket, std::exchange(negative, false)});
                ++position_;
            } else if (IsDigit(c) || c == '.') {
                return Signed(negative, parse_number(text_, position_));
            } else if (!IsLetter(c)) {
                throw std::runtime_error(std::string("Unexpected character: ") + c);
            } else {
                const std::size_t start = position_;
                const std::string_view name = parse_identifier(text_, position_);
                if (name == "pi") return Signed(negative, 3.141592653589793);
                if (name == "e") return Signed(negative, 2.718281828459045);
                if (!Take("(")) throw std::runtime_error("Unknown identifier: " + std::string(name));
                pending_.push_back({Pending::kFirstArgument, std::exchange(negative, false), 0.0, start});
            }
        }
    }

    // Ends the bracket or the call whose inner expression has `value`, which becomes the value of the factor.
    // False if a second argument has to be read first.
    bool CloseFactor(double& value) {
        Pending& top = pending_.back();
        if (top.kind == Pending::kBracket) {
            if (!Take(")")) throw std::runtime_error("Missing closing parenthesis");
        } else {
            if (top.kind == Pending::kFirstArgument && Take(",")) {
                top.kind = Pending::kSecondArgument;
                top.left = value;
                return false;
            }
            value = Call(top, value);
        }
        value = Signed(Pop().negative, value);
        return true;
    }

    double Call(const Pending& call, double last_argument) {
        std::size_t name_end = call.name_start;
        const std::string_view name = parse_identifier(text_, name_end);
        if (!Take(")")) throw std::runtime_error("Missing closing parenthesis for function " + std::string(name));
        const Function& function = FindFunction(name);
        const bool has_two = call.kind == Pending::kSecondArgument;
        if (function.unary) return function.unary(has_two ? call.left : last_argument);
        if (!has_two) throw std::runtime_error(std::string(name) + " requires two arguments");
        return function.binary(call.left, last_argument);
    }

    static double Signed(bool negative, double value) { return negative ? -value : value; }

    bool Take(std::string_view token) {
        if (text_.substr(position_, token.size()) != token) return false;
        position_ += token.size();
        return true;
    }

    // Lets `left` wait for its right side if the operator follows.
    bool Defer(std::string_view token, Pending::Kind kind, double left) {
        if (!Take(token)) return false;
        pending_.push_back({kind, false, left});
        return true;
    }

    bool TopIs(Pending::Kind kind) const { return !pending_.empty() && pending_.back().kind == kind; }

    Pending Pop() {
        const Pending top = pending_.back();
        pending_.pop_back();
        return top;
    }

    std::string_view text_;
    std::size_t position_ = 0;
    std::vector<Pending> pending_;
};

// strtod as in the C locale. Made once and never freed; the host's own locales stay as they are.
double StringToDouble(const char* text, char** end) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(text, end, c_locale);
}

std::size_t NumberEnd(std::string_view text, std::size_t position) {
    const auto sign_at = [text](std::size_t at) { return at < text.size() && (text[at] == '+' || text[at] == '-'); };
    if (sign_at(position)) ++position;
    bool point_seen = false;
    bool exponent_seen = false;
    for (; position < text.size(); ++position) {
        const char c = text[position];
        if (c == '.' && !point_seen && !exponent_seen) {
            point_seen = true;
        } else if ((c == 'e' || c == 'E') && !exponent_seen) {
            exponent_seen = true;
            if (sign_at(position + 1)) ++position;
        } else if (!IsDigit(c)) {
            break;
        }
    }
    return position;
}

}  // namespace

double parse_number(std::string_view text, std::size_t& position) {
    const std::size_t start = position;
    position = NumberEnd(text, start);
    const std::string token(text.substr(start, position - start));
    char* end = nullptr;
    errno = 0;
    const double value = StringToDouble(token.c_str(), &end);
    if (end == token.c_str()) throw std::invalid_argument("stod");
    if (errno == ERANGE) throw std::out_of_range("stod");
    return value;
}

std::string_view parse_identifier(std::string_view text, std::size_t& position) {
    const std::size_t start = position;
    while (position < text.size() && (IsLetter(text[position]) || text[position] == '_')) ++position;
    return text.substr(start, position - start);
}

double EvaluateExpression(std::string_view expression) {
    std::string text(expression);
    std::erase_if(text, IsBlank);
    return ExpressionParser(text).Evaluate();
}

}  // namespace orvanic_xr
