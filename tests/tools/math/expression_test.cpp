// What an expression gives, or says: the grammar with its oddities, and texts that no agent would write.
#include "tools/math/expression.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/fakes/comma_locale.h"

namespace orvanic_xr {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

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

struct ValueRow {
    const char* expression;
    double value;
};

void ExpectValues(const std::vector<ValueRow>& rows) {
    for (const ValueRow& row : rows) {
        SCOPED_TRACE(row.expression);
        try {
            EXPECT_THAT(EvaluateExpression(row.expression), testing::NanSensitiveDoubleEq(row.value));
        } catch (const std::exception& failure) {
            ADD_FAILURE() << failure.what();
        }
    }
}

struct FailureRow {
    const char* expression;
    const char* message;
};

void ExpectFailures(const std::vector<FailureRow>& rows) {
    for (const FailureRow& row : rows) {
        SCOPED_TRACE(row.expression);
        EXPECT_EQ(Failure(row.expression), row.message);
    }
}

TEST(Expression, BindsAndAssociates) {
    ExpectValues({
        {"2 + 3 * 4", 14},
        {"(1+2)*3", 9},
        {"10/4", 2.5},
        {"10-3-2", 5},
        {"10-(3-2)", 9},
        {"100/10/5", 2},
        {"2*6/4*3", 9},
        {"1-2+3*4/2-5", 0},
        {"2**3**2", 512},
        {"(2**3)**2", 64},
        {"2*3**2", 18},
        {"2**3*2", 16},
        {"2**2+1", 5},
        {"((((7))))", 7},
        {"sqrt(3**2+4**2)*2-1", 9},
        {"2*(3+4)*(1-(2-4))", 42},
        {"max(1,2)**2", 4},
    });
}

TEST(Expression, BindsASignTighterThanAPower) {
    ExpectValues({
        {"-2**2", 4},
        {"-(2)**2", 4},
        {"-abs(2)**2", 4},
        {"0-2**2", -4},
        {"2**-1", 0.5},
        {"2**-1**2", 2},
        {"--3", 3},
        {"-+-+3", 3},
        {"---3", -3},
        {"+3", 3},
        {"2--3", 5},
        {"2*-3", -6},
        {"6/-(1+1)", -3},
        {"-(1-3)", 2},
        {"-pi", -3.141592653589793},
        {"-min(1,-(2))", 2},
    });
    EXPECT_TRUE(std::signbit(EvaluateExpression("-0")));
    EXPECT_TRUE(std::signbit(EvaluateExpression("-(0)")));
}

TEST(Expression, DropsBlanksEvenInsideOfTokens) {
    ExpectValues({
        {"1 2", 12},
        {" si n(0) ", 0},
        {"2 * * 3", 8},
        {"\t1\n+\v1\f\r", 2},
        {"1 . 5 e 1", 15},
        {"p i", 3.141592653589793},
    });
    ExpectFailures({
        {"", "Unexpected end of expression"},
        {" \t\r\n ", "Unexpected end of expression"},
        {"1+\xc2\xa0"
         "1",
         "Unexpected character: \xc2"},
    });
}

TEST(Expression, ReadsNumbersAsFarAsTheyConvert) {
    ExpectValues({
        {"1.5", 1.5},
        {".5", 0.5},
        {"5.", 5},
        {"1e3", 1000},
        {"1E-3", 0.001},
        {"1.5e+2", 150},
        {"007", 7},
        {"2e", 2},
        {"2e+", 2},
        {"2e-", 2},
        {"2e*3", 6},
        {"2e+*3", 6},
        {"2e-1", 0.2},
        {"0e999", 0},
        {"1.7976931348623157e308", 1.7976931348623157e308},
        {"2.2250738585072014e-308", 2.2250738585072014e-308},
    });
}

TEST(Expression, SaysStodOfWhatDoesNotConvert) {
    ExpectFailures({
        {".", "stod"},
        {".e5", "stod"},
        {"-.", "stod"},
        {"1+.e", "stod"},
        {"1e999", "stod"},
        {"1.7976931348623159e308", "stod"},
        {"1e99999999999999999999", "stod"},
        {"1e-400", "stod"},
        {"1e-310", "stod"},  // would only be held with fewer digits
        {"1.2.3", "Unexpected characters at end of expression"},
        {"1e5e3", "Unexpected characters at end of expression"},
        {"2e5.5", "Unexpected characters at end of expression"},
        {"0x10", "Unexpected characters at end of expression"},
        {"0x1p-9999", "Unexpected characters at end of expression"},
    });
}

TEST(Expression, KnowsItsConstantsAndFunctions) {
    ExpectValues({
        {"pi", 3.141592653589793},
        {"e", 2.718281828459045},
        {"2*e", 5.43656365691809},
        {"sqrt(16)", 4},
        {"sin(pi/2)", 1},
        {"cos(0)", 1},
        {"tan(0)", 0},
        {"asin(1)", 1.5707963267948966},
        {"acos(1)", 0},
        {"atan(1)", 0.7853981633974483},
        {"log(e)", 1},
        {"exp(1)", 2.718281828459045},
        {"abs(-5)", 5},
        {"floor(-1.5)", -2},
        {"ceil(-1.5)", -1},
        {"round(2.5)", 3},
        {"round(-2.5)", -3},
        {"pow(2, 8)", 256},
        {"min(2, 1)", 1},
        {"min(1, 2)", 1},
        {"max(2, 1)", 2},
        {"max(1, 2)", 2},
        {"sqrt(4, 9)", 2},
        {"min(max(1,2),pow(3,min(4,5)))", 2},
        {"min(sqrt(-1),1)", kNan},
        {"min(1,sqrt(-1))", 1},
    });
}

TEST(Expression, LetsValuesThatAreNoNumbersTravelOn) {
    ExpectValues({
        {"sqrt(-1)", kNan},
        {"log(0)", -kInfinity},
        {"1e308*10", kInfinity},
        {"-1e308*10", -kInfinity},
        {"log(0)-log(0)", kNan},
        {"exp(log(0))", 0},
        {"(0-8)**(1/3)", kNan},
        {"0**-1", kInfinity},
        {"1/log(0)+2", 2},
    });
}

TEST(Expression, RefusesToDivideByZeroAndNothingElse) {
    ExpectFailures({
        {"1/0", "Division by zero"},
        {"1/(2-2)", "Division by zero"},
        {"1/-0", "Division by zero"},
        {"0/0", "Division by zero"},
        {"1/0**2", "Division by zero"},
        {"foo(1/0)", "Division by zero"},
        {"sqrt(4, 1/0)", "Division by zero"},
        {"1/0+", "Division by zero"},
        {"1/0)", "Division by zero"},
    });
}

TEST(Expression, NamesWhatItDoesNotKnow) {
    ExpectFailures({
        {"foo", "Unknown identifier: foo"},
        {"PI", "Unknown identifier: PI"},
        {"a_b+1", "Unknown identifier: a_b"},
        {"foo(1)", "Unknown function: foo"},
        {"foo(1,2)", "Unknown function: foo"},
        {"Sqrt(1)", "Unknown function: Sqrt"},
        {"foo(1", "Missing closing parenthesis for function foo"},
        {"log10(100)", "Unknown identifier: log"},
        {"atan2(1, 1)", "Unknown identifier: atan"},
        {"sqrt", "Unknown identifier: sqrt"},
        {"pix", "Unknown identifier: pix"},
    });
}

TEST(Expression, SaysWhatIsMissing) {
    ExpectFailures({
        {"1+", "Unexpected end of expression"},
        {"2*", "Unexpected end of expression"},
        {"2**", "Unexpected end of expression"},
        {"-", "Unexpected end of expression"},
        {"(", "Unexpected end of expression"},
        {"min(1,", "Unexpected end of expression"},
        {"(1", "Missing closing parenthesis"},
        {"(1,2)", "Missing closing parenthesis"},
        {"(1 2 (3))", "Missing closing parenthesis"},
        {"sqrt(4", "Missing closing parenthesis for function sqrt"},
        {"min(1,2,3)", "Missing closing parenthesis for function min"},
        {"-pow(1,(2)", "Missing closing parenthesis for function pow"},
        {"min(1)", "min requires two arguments"},
        {"max(1)", "max requires two arguments"},
        {"pow(2)", "pow requires two arguments"},
    });
}

TEST(Expression, StopsAtWhatDoesNotBelong) {
    ExpectFailures({
        {"sqrt()", "Unexpected character: )"},
        {"[1, 2, 3]", "Unexpected character: ["},
        {"^3", "Unexpected character: ^"},
        {"_a", "Unexpected character: _"},
        {",", "Unexpected character: ,"},
        {"2***3", "Unexpected character: *"},
        {"2*/3", "Unexpected character: /"},
        {"min(,1)", "Unexpected character: ,"},
        {"\xc3\xa9", "Unexpected character: \xc3"},
        {"2^3", "Unexpected characters at end of expression"},
        {"2pi", "Unexpected characters at end of expression"},
        {"2(3)", "Unexpected characters at end of expression"},
        {"2e-(1)", "Unexpected characters at end of expression"},
        {"pi(2)", "Unexpected characters at end of expression"},
        {"1)", "Unexpected characters at end of expression"},
        {"1,2", "Unexpected characters at end of expression"},
    });
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
    EXPECT_EQ(EvaluateExpression(Repeated("(1+", kDepth) + "7" + Repeated(")", kDepth)), 200'007.0);
    EXPECT_EQ(EvaluateExpression(Repeated("-(", kDepth + 1) + "7" + Repeated(")", kDepth + 1)), -7.0);
    EXPECT_EQ(EvaluateExpression(Repeated("abs(-", kDepth) + "7" + Repeated(")", kDepth)), 7.0);
    EXPECT_EQ(EvaluateExpression(Repeated("max(3,", kDepth) + "2" + Repeated(")", kDepth)), 3.0);
    EXPECT_EQ(EvaluateExpression(Repeated("2**", kDepth) + "0"), kInfinity);
    EXPECT_EQ(EvaluateExpression(Repeated("1**", kDepth) + "3"), 1.0);
    EXPECT_EQ(EvaluateExpression(Repeated("-", kDepth + 1) + "7"), -7.0);
    EXPECT_EQ(Failure(Repeated("(", kDepth + 1) + "7" + Repeated(")", kDepth)), "Missing closing parenthesis");
    EXPECT_EQ(Failure(Repeated("(", kDepth) + "7" + Repeated(")", kDepth + 1)),
              "Unexpected characters at end of expression");
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

TEST(Expression, ReadsItsPointUnderAHostWithCommas) {
    const CommaLocale host;
    if (!host.active()) GTEST_SKIP() << "no locale with a comma can be made here";
    EXPECT_EQ(EvaluateExpression("1.5"), 1.5);
    EXPECT_EQ(EvaluateExpression("min(1,5)"), 1.0);
    EXPECT_EQ(Failure("1,5"), "Unexpected characters at end of expression");
}

struct NumberRow {
    const char* text;
    double value;
    std::size_t end;
};

TEST(ParseNumber, StandsAloneAndTakesASign) {
    for (const NumberRow& row : std::vector<NumberRow>{
             {"-5", -5, 2}, {"+5*2", 5, 2}, {"-.5e1e", -5, 5}, {"+1e-2-3", 0.01, 5}, {"3e+x", 3, 3}, {"4-1", 4, 1}}) {
        SCOPED_TRACE(row.text);
        std::size_t position = 0;
        EXPECT_EQ(parse_number(row.text, position), row.value);
        EXPECT_EQ(position, row.end);
    }
    for (const char* text : {"", "-", "+.", "--5", "x"}) {
        SCOPED_TRACE(text);
        std::size_t position = 0;
        EXPECT_THROW(parse_number(text, position), std::invalid_argument);
    }
}

TEST(ParseIdentifier, TakesLettersAndUnderscoresOnly) {
    std::size_t position = 2;
    EXPECT_EQ(parse_identifier("1+log_x10", position), "log_x");
    EXPECT_EQ(position, 7u);
}

}  // namespace
}  // namespace orvanic_xr
