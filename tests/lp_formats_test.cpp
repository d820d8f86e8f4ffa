// The MPS and CPLEX LP readers: each input of the table becomes exactly the listed atoms (rows
// in order, then each column's bounds), its integer columns and its objective; each malformed
// input is one positioned error.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "cli/output.h"
#include "vorn/io/lp_reader.h"
#include "vorn/io/mps_reader.h"
#include "vorn/io/parse_error.h"

using vorn::io::ParseError;
using vorn::smt::Problem;

namespace {

using Reader = Problem (*)(std::string_view, const vorn::util::Stop*);

struct Case {
    const char* name;
    Reader read;
    const char* text;
    std::vector<std::string> atoms;  // "term rel 0"
    std::string integers;            // names of the Int columns, blank-separated
    std::string objective;           // the objective's term, "" when there is none
};

std::string render(const Problem& p, std::uint32_t term) {
    std::string out;
    vorn::smt::append_sum(out, p.term(term), p.variables);
    return out;
}

const Case kCases[] = {
    {"free MPS",
     vorn::io::read_mps,
     "NAME demo\n* a comment\nOBJSENSE MAX\nROWS\n N cost\n E r1\n L r2\n G r3\n E r4\n N aux\n"
     "COLUMNS\n x r1 1 r2 2\n x cost 3\n MARKER 'MARKER' 'INTORG'\n y r1 1 r3 -1.5e1\n"
     " MARKER 'MARKER' 'INTEND'\n z r4 1 aux 9\n w r2 1\n"
     "RHS\n rhs r1 4 r2 1e30\n rhs r3 -2 cost 10\nRANGES\n rng r1 -3 r3 2\n rng r4 0\n"
     "BOUNDS\n UP bnd x 5\n UP bnd z -1\n FR bnd w\n BV bnd y\nENDATA\n",
     {"x + y - 1 >= 0", "x + y - 4 <= 0", "-15*y + 2 >= 0", "-15*y <= 0", "z = 0", "x >= 0",
      "x - 5 <= 0", "y >= 0", "y - 1 <= 0", "z + 1 <= 0"},
     "y",
     "3*x - 10"},
    {"MPS bound kinds",
     vorn::io::read_mps,
     "ROWS\n N obj\nCOLUMNS\n a obj 1\n b obj 1\n c obj 1\n d obj 1\n e obj 1\n f obj 1\n"
     " g obj 1\nBOUNDS\n LO b1 a -2\n MI b1 b\n PL b1 c\n FX b1 d 7\n LI b1 e 3\n"
     " UI b1 e 1e31\n UP b1 f 0\n BV b1 g 1\nENDATA\n",  // BV's value, written by some, ignored
     {"a + 2 >= 0", "c >= 0", "d - 7 = 0", "e - 3 >= 0", "f = 0", "g >= 0", "g - 1 <= 0"},
     "e g",
     "a + b + c + d + e + f + g"},
    {"fixed MPS with blanks in names",
     vorn::io::read_mps,
     "ROWS\n N  COST\n L  LIMIT A\nCOLUMNS\n    X ONE     LIMIT A   2.5\nRHS\n"
     "    RHS       LIMIT A   10\nENDATA\n",
     {"5/2*|X ONE| - 10 <= 0", "|X ONE| >= 0"},
     "",
     "0"},
    {"fixed MPS bounds without a value on names with blanks",
     vorn::io::read_mps,
     "ROWS\n N  COST\nCOLUMNS\n    V A2      COST      1\n    W B       COST      1\nBOUNDS\n"
     " FR BND       V A2\n BV BND       W B\nENDATA\n",
     {"|W B| >= 0", "|W B| - 1 <= 0"},
     "W B",
     "|V A2| + |W B|"},
    {"LP",
     vorn::io::read_lp,
     "\\ a comment\nMaximize\n obj: 3 x + 2y - z + 4\nSubject To\n c1: x + y <= 10\n"
     " c2: -x + 2 y >= -3\n x + y + z + 1 = 5\n -5e+0 <= x - y <= 5\n c5: 2 x < 8e-0\n"
     "Bounds\n 0 <= x <= 40\n y free\n -inf <= z <= 3\n b >= -5\nGenerals\n x\nBinary\n b\nEnd\n",
     {"x + y - 10 <= 0", "-x + 2*y + 3 >= 0", "x + y + z - 4 = 0", "x - y + 5 >= 0",
      "x - y - 5 <= 0", "2*x - 8 <= 0", "x >= 0", "x - 40 <= 0", "z - 3 <= 0", "b >= 0",
      "b - 1 <= 0"},
     "x b",
     "3*x + 2*y - z + 4"},
    // Large numbers are numbers; an infinity that no value meets is the false atom -1 >= 0 (the
    // problem is unsat), one beyond its side drops it. MPS reads 1e30 and more as infinite.
    {"LP infinities",
     vorn::io::read_lp,
     "min\n x\nst\n c1: x >= 1e31\n c2: - x <= -1e30\n c3: x >= infinity\n c4: x <= inf\n"
     " c5: -inf <= x <= 2\n c6: x = -inf\nbounds\n x <= -inf\nend\n",
     {"x - 10000000000000000000000000000000 >= 0", "-x + 1000000000000000000000000000000 <= 0",
      "-1 >= 0", "x - 2 <= 0", "-1 >= 0", "-1 >= 0", "x >= 0"},
     "",
     "x"},
    {"MPS infinities",
     vorn::io::read_mps,
     "ROWS\n N c\n G g\n L l\n E e\nCOLUMNS\n x g 1 l 1\n x e 1\nRHS\n r g 1e31 l 1e31\n"
     " r e -1e30\nBOUNDS\n FX b x -1e30\nENDATA\n",
     {"-1 >= 0", "-1 >= 0", "-1 >= 0"},
     "",
     "0"},
};

struct Bad {
    Reader read;
    const char* text;
    int line, col;
    const char* message_part;
};

const Bad kBad[] = {
    {vorn::io::read_mps, "ROWS\n N c\nCOLUMNS\n x r9 1\nENDATA\n", 4, 4, "unknown row"},
    {vorn::io::read_mps, "ROWS\n L r\nCOLUMNS\n x r one\nENDATA\n", 4, 6, "number"},
    {vorn::io::read_mps, "ROWS\n N c\nCOLUMNS\n x c 1\nBOUNDS\n SC b x 4\nENDATA\n", 6, 2,
     "semi-continuous"},
    {vorn::io::read_mps, "ROWS\n N c\n L c\nENDATA\n", 3, 4, "twice"},
    {vorn::io::read_mps, "ROWS\n N c\nRANGES\n r c 4\nENDATA\n", 4, 4, "free row"},
    {vorn::io::read_mps, "ROWS\n X c\nENDATA\n", 2, 2, "row type"},
    {vorn::io::read_mps, "ROWS\n N c\n", 3, 1, "ENDATA"},
    {vorn::io::read_lp, "min\n x + [ x ^ 2 ]\nst\n x >= 1\n", 2, 6, "quadratic"},
    {vorn::io::read_lp, "min\n x\nst\n c: 5 >= x <= 7\n", 4, 2, "range"},
    {vorn::io::read_lp, "min\n x\nst\n c: x >= \nend\n", 5, 1, "number"},
    {vorn::io::read_lp, "min\n x\nsemi-continuous\n x\n", 3, 1, "unsupported"},
    {vorn::io::read_lp, "min\n x\nst\n c: 2 3 x >= 1\n", 4, 7, "expected + or -"},
    {vorn::io::read_lp, "min\n x\nst\n c: x y >= 1\n", 4, 7, "expected + or -"},
    {vorn::io::read_mps, "ROWS\n N c\nCOLUMNS\n x c 1\nBOUNDS\n UP b y 4\nENDATA\n", 6, 7,
     "unknown column"},
    {vorn::io::read_mps, "ROWS\n N c\n L r\nCOLUMNS\n x r 1 c 2\n x r 3\nENDATA\n", 6, 4,
     "second value"},
};

}  // namespace

TEST(LpFormats, InputsBecomeTheirAtomsIntegersAndObjective) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        Problem p = c.read(c.text, nullptr);
        std::vector<std::string> atoms;
        for (const auto& atom : p.atoms)
            atoms.push_back(render(p, atom.first_term) + " " +
                            vorn::smt::relation_text(atom.relation) + " 0");
        EXPECT_EQ(atoms, c.atoms);
        std::string integers;
        for (int v = 1; v <= p.variables.size(); ++v)
            if (p.variables.sort(v) == vorn::smt::Sort::Int)
                integers += (integers.empty() ? "" : " ") + std::string(p.variables.name(v));
        EXPECT_EQ(integers, c.integers);
        EXPECT_EQ(p.objective ? render(p, *p.objective) : "", c.objective);
    }
}

TEST(LpFormats, MalformedInputIsOnePositionedError) {
    for (const Bad& bad : kBad) {
        SCOPED_TRACE(bad.text);
        try {
            bad.read(bad.text, nullptr);
            ADD_FAILURE() << "accepted";
        } catch (const ParseError& e) {
            EXPECT_EQ(e.pos().line, bad.line) << e.message();
            EXPECT_EQ(e.pos().col, bad.col) << e.message();
            EXPECT_NE(e.message().find(bad.message_part), std::string::npos) << e.message();
        }
    }
}
