// What an expression gives, or says: the grammar with its oddities, and texts that no agent would write.
#include "tools/math/expression.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvanic_xr {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The message with which the evaluation fails.
std::string Failure(const std::string& expression) {
    try {
        return "no failure but " + std::to_string(EvaluateExpression(expression));
    } catch (const std::exception& failure) {
        return failure.what();
    }
}

std::string Repeated(const std::string& text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    while (count-- > 0) all += text;
    return all;
}

// Each text is an expression, " = " and its value.
void ExpectEquations(const std::vector<std::string>& equations) {
    for (const std::string& equation : equations) {
        SCOPED_TRACE(equation);
        const std::size_t middle = equation.rfind(" = ");
        const double value = std::stod(equation.substr(middle + 3));
        try {
            EXPECT_THAT(EvaluateExpression(equation.substr(0, middle)), testing::NanSensitiveDoubleEq(value));
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
}

void ExpectFailure(const std::string& message, const std::vector<std::string>& expressions) {
    for (const std::string& expression : expressions) {
        SCOPED_TRACE(expression);
        EXPECT_EQ(Failure(expression), message);
    }
}

TEST(Expression, BindsAndAssociates) {
    ExpectEquations({"2 + 3 * 4 = 14", "(1+2)*3 = 9", "10/4 = 2.5", "10-3-2 = 5", "10-(3-2) = 9", "100/10/5 = 2",
                     "2*6/4*3 = 9", "1-2+3*4/2-5 = 0", "2**3**2 = 512", "(2**3)**2 = 64", "2*3**2 = 18", "2**3*2 = 16",
                     "2**2+1 = 5", "((((7)))) = 7", "sqrt(3**2+4**2)*2-1 = 9", "2*(3+4)*(1-(2-4)) = 42",
                     "max(1,2)**2 = 4", "min(max(1,2),pow(3,min(4,5))) = 2"});
}

TEST(Expression, BindsASignTighterThanAPower) {
    ExpectEquations({"-2**2 = 4", "-(2)**2 = 4", "-abs(2)**2 = 4", "0-2**2 = -4", "2**-1 = 0.5", "2**-1**2 = 2",
                     "--3 = 3", "-+-+3 = 3", "---3 = -3", "+3 = 3", "2--3 = 5", "2*-3 = -6", "6/-(1+1) = -3",
                     "-(1-3) = 2", "-pi = -3.141592653589793", "-min(1,-(2)) = 2"});
    EXPECT_TRUE(std::signbit(EvaluateExpression("-0")));
    EXPECT_TRUE(std::signbit(EvaluateExpression("-(0)")));
}

TEST(Expression, DropsBlanksEvenInsideOfTokens) {
    ExpectEquations(
        {"1 2 = 12", " si n(0)  = 0", "2 * * 3 = 8", "\t1\n+\v1\f\r = 2", "1 . 5 e 1 = 15", "p i = 3.141592653589793"});
    ExpectFailure("Unexpected end of expression", {"", " \t\r\n "});
    ExpectFailure("Unexpected character: \xc2", {"\xc2\xa0+1"});
}

TEST(Expression, ReadsNumbersAsFarAsTheyConvert) {
    ExpectEquations({"1.5 = 1.5", ".5 = 0.5", "5. = 5", "1e3 = 1000", "1E-3 = 0.001", "1.5e+2 = 150", "007 = 7",
                     "2e = 2", "2e+ = 2", "2e- = 2", "2e*3 = 6", "2e+*3 = 6", "2e-1 = 0.2", "0e999 = 0",
                     "1.7976931348623157e308 = 1.7976931348623157e308",
                     "2.2250738585072014e-308 = 2.2250738585072014e-308"});
}

TEST(Expression, SaysStodOfWhatDoesNotConvert) {
    ExpectFailure("stod", {".", ".e5", "-.", "1+.e", "1e999", "1.7976931348623159e308", "1e99999999999999999999",
                           "1e-400", "1e-310"});
    ExpectFailure("Unexpected characters at end of expression", {"1.2.3", "1e5e3", "2e5.5", "0x10", "0x1p-9999"});
}

TEST(Expression, KnowsItsConstantsAndFunctions) {
    ExpectEquations({"pi = 3.141592653589793", "e = 2.718281828459045", "atan(1) = 0.7853981633974483"});
    ExpectEquations({"2*e = 5.43656365691809", "asin(1) = 1.5707963267948966", "exp(1) = 2.718281828459045"});
    ExpectEquations({"sqrt(16) = 4", "sin(pi/2) = 1", "cos(0) = 1", "tan(0) = 0", "acos(1) = 0", "log(e) = 1",
                     "abs(-5) = 5", "floor(-1.5) = -2", "ceil(-1.5) = -1", "round(2.5) = 3", "round(-2.5) = -3",
                     "pow(2, 8) = 256", "min(2, 1) = 1", "min(1, 2) = 1", "max(2, 1) = 2", "max(1, 2) = 2",
                     "sqrt(4, 9) = 2", "min(sqrt(-1),1) = nan", "min(1,sqrt(-1)) = 1"});
}

TEST(Expression, LetsValuesThatAreNoNumbersTravelOn) {
    ExpectEquations({"sqrt(-1) = nan", "log(0) = -inf", "1e308*10 = inf", "-1e308*10 = -inf", "log(0)-log(0) = nan",
                     "exp(log(0)) = 0", "(0-8)**(1/3) = nan", "0**-1 = inf", "1/log(0)+2 = 2"});
}

TEST(Expression, RefusesToDivideByZeroAndNothingElse) {
    ExpectFailure("Division by zero",
                  {"1/0", "1/(2-2)", "1/-0", "0/0", "1/0**2", "foo(1/0)", "sqrt(4, 1/0)", "1/0+", "1/0)"});
}

TEST(Expression, NamesWhatItDoesNotKnow) {
    ExpectFailure("Unknown identifier: foo", {"foo"});
    ExpectFailure("Unknown identifier: PI", {"PI"});
    ExpectFailure("Unknown identifier: a_b", {"a_b+1"});
    ExpectFailure("Unknown function: foo", {"foo(1)", "foo(1,2)"});
    ExpectFailure("Unknown function: Sqrt", {"Sqrt(1)"});
    ExpectFailure("Missing closing parenthesis for function foo", {"foo(1"});
    ExpectFailure("Unknown identifier: log", {"log10(100)"});
    ExpectFailure("Unknown identifier: atan", {"atan2(1, 1)"});
    ExpectFailure("Unknown identifier: sqrt", {"sqrt"});
    ExpectFailure("Unknown identifier: pix", {"pix"});
}

TEST(Expression, SaysWhatIsMissing) {
    ExpectFailure("Unexpected end of expression", {"1+", "2*", "2**", "-", "(", "min(1,"});
    ExpectFailure("Missing closing parenthesis", {"(1", "(1,2)", "(1 2 (3))"});
    ExpectFailure("Missing closing parenthesis for function sqrt", {"sqrt(4"});
    ExpectFailure("Missing closing parenthesis for function min", {"min(1,2,3)"});
    ExpectFailure("Missing closing parenthesis for function pow", {"-pow(1,(2)"});
    ExpectFailure("min requires two arguments", {"min(1)"});
    ExpectFailure("max requires two arguments", {"max(1)"});
    ExpectFailure("pow requires two arguments", {"pow(2)"});
}

TEST(Expression, StopsAtWhatDoesNotBelong) {
    ExpectFailure("Unexpected character: )", {"sqrt()"});
    ExpectFailure("Unexpected character: [", {"[1, 2, 3]"});
    ExpectFailure("Unexpected character: ^", {"^3"});
    ExpectFailure("Unexpected character: _", {"_a"});
    ExpectFailure("Unexpected character: ,", {",", "min(,1)"});
    ExpectFailure("Unexpected character: *", {"2***3"});
    ExpectFailure("Unexpected character: /", {"2*/3"});
    ExpectFailure("Unexpected character: \xc3", {"\xc3\xa9"});
    ExpectFailure("Unexpected characters at end of expression", {"2^3", "2pi", "2(3)", "2e-(1)", "pi(2)", "1)", "1,2"});
}

// Far deeper than any stack would bear, if the routines called each other.

TEST(HugeExpression, OfBracketsOrSignsAloneJustEnds) {
    constexpr std::size_t kMebibyte = std::size_t{1} << 20;
    for (const char* text : {"(", "-", "+", "-(", "2**", "2+(", "sqrt(", "min(1,", "-2**-("}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Failure(Repeated(text, kMebibyte / std::string(text).size())), "Unexpected end of expression");
    }
}

TEST(HugeExpression, ThatIsBalancedHasItsValue) {
    constexpr std::size_t kDepth = 200'000;
    EXPECT_EQ(EvaluateExpression(Repeated("(", kDepth) + "7" + Repeated(")", kDepth)), 7.0);
    EXPECT_EQ(EvaluateExpression(Repeated("-(", kDepth + 1) + "7" + Repeated(")", kDepth + 1)), -7.0);
    EXPECT_EQ(EvaluateExpression(Repeated("abs(-", kDepth) + "7" + Repeated(")", kDepth)), 7.0);
    EXPECT_EQ(EvaluateExpression(Repeated("max(3,", kDepth) + "2" + Repeated(")", kDepth)), 3.0);
    EXPECT_EQ(EvaluateExpression(Repeated("2**", kDepth) + "0"), kInfinity);
}

// Quadratic work would take minutes here.
TEST(HugeExpression, IsReadInOnePass) {
    constexpr std::size_t kCount = std::size_t{1} << 20;
    EXPECT_EQ(EvaluateExpression(Repeated("1+", kCount) + "1"), 1'048'577.0);
    EXPECT_EQ(EvaluateExpression(Repeated(" ", kCount) + "1" + Repeated(" ", kCount)), 1.0);
    EXPECT_EQ(EvaluateExpression(Repeated("0", kCount) + "1"), 1.0);
    EXPECT_EQ(EvaluateExpression("0." + Repeated("3", kCount)), 1.0 / 3.0);
    EXPECT_EQ(EvaluateExpression(Repeated("7", kCount) + "e-1048576"), 7.0 / 9.0);
    EXPECT_EQ(Failure(Repeated("9", kCount)), "stod");
    EXPECT_EQ(Failure(Repeated("a", kCount)), "Unknown identifier: " + Repeated("a", kCount));
    EXPECT_EQ(Failure(Repeated("ab(", kCount) + "1"), "Missing closing parenthesis for function ab");
}

}  // namespace
}  // namespace orvanic_xr
