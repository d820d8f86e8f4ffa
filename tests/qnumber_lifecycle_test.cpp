// QNumber forms: construction, parsing, printing, and the copy/assign/destroy rules with their
// GMP allocation counts.

#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/gmp_trace.h"
#include "vorn/numbers/qnumber.h"

using vorn::QNumber;
using vorn::test::GmpRecord;
using vorn::test::GmpTrace;

namespace {

// A number made one way or another, its printed form and whether it came out big. Printing
// writes the small form's words as they are, so the text also shows the normalization.
struct Made {
    const char* how;
    QNumber value;
    const char* text;
    bool big;
};

QNumber parse(const char* text) {
    return QNumber::from_string(text);
}

}  // namespace

TEST(QNumberConstruction, ConstructorsParsingAndPrintingAgree) {
    const Made made[] = {
        {"default", QNumber(), "0", false},
        {"6/-4", QNumber(6, -4), "-3/2", false},
        {"INT64_MIN/2", QNumber(INT64_MIN, 2), "-4611686018427387904", false},
        {"INT64_MIN", QNumber(INT64_MIN), "-9223372036854775808", false},
        {"-5/(INT64_MIN+1)", QNumber(-5, INT64_MIN + 1), "5/9223372036854775807", false},
        {"INT64_MIN/-1", QNumber(INT64_MIN, -1), "9223372036854775808", true},
        {"1/INT64_MIN", QNumber(1, INT64_MIN), "-1/9223372036854775808", true},
        {"uint64 2^63", QNumber(std::uint64_t{1} << 63), "9223372036854775808", true},
        {"parse -12", parse("-12"), "-12", false},
        {"parse +7", parse("+7"), "7", false},
        {"parse 6/8", parse("6/8"), "3/4", false},
        {"parse -0.125", parse("-0.125"), "-1/8", false},
        {"parse .5", parse(".5"), "1/2", false},
        {"parse 3.", parse("3."), "3", false},
        {"parse INT64_MAX", parse("9223372036854775807"), "9223372036854775807", false},
        {"parse INT64_MIN", parse("-9223372036854775808"), "-9223372036854775808", false},
        {"parse 2^63", parse("9223372036854775808"), "9223372036854775808", true},
        {"parse leading zeros", parse("00000000000000000000000012/0000000000000000000000018"),
         "2/3", false},
        {"parse long", parse("-123456789012345678901234567891/7"),
         "-123456789012345678901234567891/7", true},
        {"make_big 10/4", QNumber::make_big(QNumber(10, 4)), "5/2", true},
    };
    for (const Made& m : made) {
        EXPECT_EQ(m.value.to_string(), m.text) << m.how;
        EXPECT_EQ(m.value.is_big(), m.big) << m.how;
        EXPECT_EQ(m.value, parse(m.text)) << m.how;
    }
}

TEST(QNumberParse, RejectsMalformedTextNamingIt) {
    for (const char* bad :
         {"", "-", "1/", "/2", "1.2.3", "abc", "1/0", " 1", "1e5", "--1", ".", "1/-2", "0x10"}) {
        try {
            (void)QNumber::from_string(bad);
            ADD_FAILURE() << "accepted '" << bad << "'";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find("'" + std::string(bad) + "'"), std::string::npos)
                << e.what();
        }
    }
}

namespace {

using Calls = std::vector<std::string>;

enum class Form { Small, Big };

QNumber in_form(Form form, const QNumber& value) {
    return form == Form::Big ? QNumber::make_big(value) : value;
}

// One lifecycle operation and what it must do: the destination's form afterwards, the GMP calls
// in order, and the blocks allocated and freed.
struct FormRule {
    const char* operation;  // "copy", "assign", "self-assign", "destroy", "is_integer"
    Form destination;       // the destination's form before (the number itself for the others)
    Form source;
    Form result;
    Calls calls;
    int allocated;
    int freed;
};

const FormRule kFormRules[] = {
    {"copy", Form::Small, Form::Small, Form::Small, {}, 0, 0},
    {"copy", Form::Small, Form::Big, Form::Big, {"init_set", "init_set"}, 1, 0},
    {"assign", Form::Small, Form::Small, Form::Small, {}, 0, 0},
    {"assign", Form::Small, Form::Big, Form::Big, {"init", "init", "set", "set"}, 1, 0},
    {"assign", Form::Big, Form::Big, Form::Big, {"set", "set"}, 0, 0},
    {"assign", Form::Big, Form::Small, Form::Big, {"set_si", "set_si"}, 0, 0},
    {"self-assign", Form::Small, Form::Small, Form::Small, {}, 0, 0},
    {"self-assign", Form::Big, Form::Big, Form::Big, {}, 0, 0},
    {"destroy", Form::Small, Form::Small, Form::Small, {}, 0, 0},
    {"destroy", Form::Big, Form::Big, Form::Big, {"clear", "clear"}, 0, 1},
    {"is_integer", Form::Small, Form::Small, Form::Small, {}, 0, 0},
    {"is_integer", Form::Big, Form::Big, Form::Big, {"cmp_ui"}, 0, 0},
};

// Runs one rule with the source given as an lvalue or as an rvalue; returns the trace and checks
// the destination, and that the source kept its value, form and block.
GmpRecord run_rule(const FormRule& rule, bool rvalue) {
    const QNumber value(-7, 3);
    QNumber source = in_form(rule.source, QNumber(5, 2));
    const mpq_srcptr source_block = source.big_block();
    const std::string op = rule.operation;
    std::optional<QNumber> dest;  // in place: a heap QNumber would look like a block
    if (op != "copy") dest.emplace(in_form(rule.destination, value));
    const mpq_srcptr dest_block = dest ? dest->big_block() : nullptr;
    QNumber&& source_ref = std::move(source);
    GmpRecord record;
    bool integer = true;  // becomes "not an integer" when is_integer runs
    {
        GmpTrace trace;
        if (op == "copy") {
            if (rvalue)
                dest.emplace(std::move(source_ref));
            else
                dest.emplace(source);
        } else if (op == "assign") {
            if (rvalue)
                *dest = std::move(source_ref);
            else
                *dest = source;
        } else if (op == "self-assign") {
            QNumber& self = *dest;
            if (rvalue)
                *dest = std::move(self);
            else
                *dest = self;
        } else if (op == "destroy") {
            dest.reset();
        } else {
            integer = !dest->is_integer();
        }
        record = trace.stop();
    }
    EXPECT_EQ(source.big_block(), source_block);
    EXPECT_EQ(source.is_big(), rule.source == Form::Big);
    EXPECT_EQ(source, QNumber(5, 2));
    if (op == "destroy") return record;
    const bool takes_source = op == "copy" || op == "assign";
    EXPECT_EQ(dest->is_big(), rule.result == Form::Big);
    EXPECT_EQ(*dest, takes_source ? QNumber(5, 2) : value);
    EXPECT_TRUE(integer);  // -7/3 and 5/2 are not integers: false here would be a wrong answer
    const bool keeps_block = rule.destination == Form::Big && op != "copy";
    EXPECT_TRUE(!keeps_block || dest->big_block() == dest_block);
    EXPECT_TRUE(!dest->is_big() || dest->big_block() != source.big_block());
    return record;
}

}  // namespace

TEST(QNumberForms, CopyAssignDestroyFollowTheFormRules) {
    for (const FormRule& rule : kFormRules) {
        for (bool rvalue : {false, true}) {
            SCOPED_TRACE(std::string(rule.operation) + (rvalue ? " from an rvalue" : "") +
                         (rule.destination == Form::Big ? ", big destination" : "") +
                         (rule.source == Form::Big ? ", big source" : ""));
            GmpRecord record = run_rule(rule, rvalue);
            EXPECT_EQ(record.calls, rule.calls);
            EXPECT_EQ(record.blocks_allocated, rule.allocated);
            EXPECT_EQ(record.blocks_freed, rule.freed);
        }
    }
}

TEST(QNumberForms, SmallNumbersNeverReachGmp) {
    GmpTrace trace;
    {
        QNumber a(3, 4);
        QNumber b(a);
        QNumber c;
        c = b;
        c += QNumber(1, 4);
        c *= QNumber(-5, 3);
        EXPECT_EQ(c, QNumber(-5, 3));
    }
    EXPECT_TRUE(trace.stop().calls.empty());  // a big form would begin with mpz_init
}

TEST(QNumberConversion, RoundTripsThroughGmp) {
    mpq_t q;
    mpq_init(q);
    mpq_set_str(q, "-84/6", 10);  // not canonical on purpose
    QNumber value(q);
    EXPECT_EQ(value, QNumber(-14));
    EXPECT_FALSE(value.is_big());
    mpq_set_str(q, "1/36893488147419103232", 10);
    QNumber tiny(q);
    EXPECT_TRUE(tiny.is_big());
    mpq_t back;
    mpq_init(back);
    tiny.get_mpq(back);
    EXPECT_TRUE(mpq_equal(q, back));
    mpq_clear(back);
    mpq_clear(q);
}
