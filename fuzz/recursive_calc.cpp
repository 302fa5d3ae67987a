#include "fuzz/recursive_calc.h"

#include <cctype>
#include <cmath>
#include <functional>
#include <map>
#include <stdexcept>

namespace orvanic_xr {
namespace {

using Unary = std::function<double(double)>;
using Binary = std::function<double(double, double)>;

const std::map<std::string, Unary> kUnary = {
    {"sqrt", [](double x) { return std::sqrt(x); }},   {"sin", [](double x) { return std::sin(x); }},
    {"cos", [](double x) { return std::cos(x); }},     {"tan", [](double x) { return std::tan(x); }},
    {"asin", [](double x) { return std::asin(x); }},   {"acos", [](double x) { return std::acos(x); }},
    {"atan", [](double x) { return std::atan(x); }},   {"log", [](double x) { return std::log(x); }},
    {"exp", [](double x) { return std::exp(x); }},     {"abs", [](double x) { return std::fabs(x); }},
    {"floor", [](double x) { return std::floor(x); }}, {"ceil", [](double x) { return std::ceil(x); }},
    {"round", [](double x) { return std::round(x); }},
};

const std::map<std::string, Binary> kBinary = {
    {"pow", [](double x, double y) { return std::pow(x, y); }},
    {"min", [](double x, double y) { return std::min(x, y); }},
    {"max", [](double x, double y) { return std::max(x, y); }},
};

[[noreturn]] void Fail(const std::string& message) {
    throw std::runtime_error(message);
}

struct Reader {
    std::string text;
    std::size_t at = 0;

    char Peek(std::size_t ahead = 0) const { return at + ahead < text.size() ? text[at + ahead] : '\0'; }
    bool Ended() const { return at >= text.size(); }
    bool Letter() const { return !Ended() && std::isalpha(static_cast<unsigned char>(text[at])) != 0; }
    bool Digit() const { return !Ended() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; }

    double Expression() {
        double value = Term();
        while (Peek() == '+' || Peek() == '-') {
            const char op = text[at++];
            const double right = Term();
            value = op == '+' ? value + right : value - right;
        }
        return value;
    }

    double Term() {
        double value = Power();
        while ((Peek() == '*' && Peek(1) != '*') || Peek() == '/') {
            const char op = text[at++];
            const double right = Power();
            if (op == '/' && right == 0.0) Fail("Division by zero");
            value = op == '*' ? value * right : value / right;
        }
        return value;
    }

    double Power() {
        const double base = Factor();
        if (Peek() != '*' || Peek(1) != '*') return base;
        at += 2;
        return std::pow(base, Power());
    }

    double Factor() {
        if (Ended()) Fail("Unexpected end of expression");
        if (Peek() == '-') {
            ++at;
            return -Factor();
        }
        if (Peek() == '+') {
            ++at;
            return Factor();
        }
        if (Peek() == '(') {
            ++at;
            const double value = Expression();
            if (Peek() != ')') Fail("Missing closing parenthesis");
            ++at;
            return value;
        }
        if (Digit() || Peek() == '.') return Number();
        if (!Letter()) Fail(std::string("Unexpected character: ") + Peek());
        return ConstantOrCall();
    }

    double Number() {
        std::string token;
        bool point = false;
        bool exponent = false;
        while (Digit() || (Peek() == '.' && !point && !exponent) || ((Peek() == 'e' || Peek() == 'E') && !exponent)) {
            const char c = text[at++];
            token += c;
            point = point || c == '.';
            if (c == 'e' || c == 'E') {
                exponent = true;
                if (Peek() == '+' || Peek() == '-') token += text[at++];
            }
        }
        return std::stod(token);
    }

    double ConstantOrCall() {
        std::string name;
        while (Letter() || Peek() == '_') name += text[at++];
        if (name == "pi") return 3.141592653589793;
        if (name == "e") return 2.718281828459045;
        if (Peek() != '(') Fail("Unknown identifier: " + name);
        ++at;
        const double first = Expression();
        double second = 0.0;
        const bool has_second = Peek() == ',';
        if (has_second) {
            ++at;
            second = Expression();
        }
        if (Peek() != ')') Fail("Missing closing parenthesis for function " + name);
        ++at;
        if (const auto found = kUnary.find(name); found != kUnary.end()) return found->second(first);
        const auto found = kBinary.find(name);
        if (found == kBinary.end()) Fail("Unknown function: " + name);
        if (!has_second) Fail(name + " requires two arguments");
        return found->second(first, second);
    }
};

}  // namespace

double EvaluateRecursively(const std::string& expression) {
    Reader reader;
    for (const char c : expression) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0) reader.text += c;
    }
    const double value = reader.Expression();
    if (!reader.Ended()) Fail("Unexpected characters at end of expression");
    return value;
}

}  // namespace orvanic_xr
