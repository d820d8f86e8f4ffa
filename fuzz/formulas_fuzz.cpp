// Small SMT-LIB scripts with Boolean structure, drawn from the input bytes, through `vorn check
// --verify --certificate`: every model is evaluated against the assertions and every unsat
// certificate checked, so a wrong answer aborts (VerificationFailure), like a crash or a
// sanitizer report. The bytes steer a generator rather than being parsed, so every input is a
// well-formed script and the search spends its time in the solver, not in the reader.

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "vorn/frontend/script_interpreter.h"

namespace {

class Draw {
  public:
    Draw(const std::uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}
    unsigned next(unsigned n) { return pos_ < size_ ? bytes_[pos_++] % n : 0; }
    bool done() const { return pos_ >= size_; }

  private:
    const std::uint8_t* bytes_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

const char* const kVars[] = {"x", "y", "n"};  // Real, Real, Int (or all of one sort)
const char* const kRelations[] = {"<=", "<", ">=", ">", "="};

std::string term(Draw& d) {
    unsigned kind = d.next(7);
    std::string x = kVars[d.next(3)], y = kVars[d.next(3)];
    std::string c = std::to_string(static_cast<int>(d.next(9)) - 4);
    if (c[0] == '-') c = "(- " + c.substr(1) + ")";
    switch (kind) {
        case 0:
            return x;
        case 1:
            return "(- " + x + " " + y + ")";
        case 2:
            return "(+ (* " + std::to_string(d.next(3) + 1) + " " + x + ") " + y + ")";
        case 4:
            return "(abs (- " + x + " " + y + "))";
        case 5:  // a quotient by a nonzero constant, a remainder, a floor
        case 6: {
            std::string k = std::to_string(d.next(3) + 2);
            if (d.next(2) != 0) k = "(- " + k + ")";
            std::string op = kind == 5 ? "div" : d.next(2) != 0 ? "mod" : "";
            return op.empty() ? "(to_int " + x + ")" : "(" + op + " (to_int " + x + ") " + k + ")";
        }
        default:
            return "(+ " + x + " " + c + ")";
    }
}

std::string formula(Draw& d, int depth) {
    unsigned kind = depth == 0 ? d.next(3) : d.next(11);
    auto sub = [&] { return formula(d, depth - 1); };
    switch (kind) {
        case 0:
        case 1: {
            std::string c = std::to_string(static_cast<int>(d.next(9)) - 4);
            if (c[0] == '-') c = "(- " + c.substr(1) + ")";
            return "(" + std::string(kRelations[d.next(5)]) + " " + term(d) + " " + c + ")";
        }
        case 2:
            return d.next(2) != 0 ? "p" : "q";
        case 3:
            return "(not " + sub() + ")";
        case 4:
            return "(and " + sub() + " " + sub() + ")";
        case 5:
            return "(or " + sub() + " " + sub() + " " + sub() + ")";
        case 6:
            return "(=> " + sub() + " " + sub() + ")";
        case 7:
            return "(xor " + sub() + " " + sub() + ")";
        case 8:
            return "(= " + sub() + " " + sub() + ")";
        case 9:
            return "(ite " + sub() + " " + sub() + " " + sub() + ")";
        default:
            return "(distinct " + term(d) + " " + term(d) + " " + term(d) + ")";
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < 2 || size > 4096) return 0;
    Draw d(bytes, size);
    unsigned sorts = d.next(3);  // mixed, all Real, all Int
    std::string script = "(set-option :produce-models true)\n";
    for (int v = 0; v < 3; ++v) {
        bool is_int = sorts == 2 || (sorts == 0 && v == 2);
        script +=
            "(declare-fun " + std::string(kVars[v]) + " () " + (is_int ? "Int" : "Real") + ")\n";
    }
    script += "(declare-fun p () Bool)\n(declare-fun q () Bool)\n";
    while (!d.done() && script.size() < 4000) {
        switch (d.next(8)) {
            case 0:
                script += "(push 1)\n";
                break;
            case 1:
                script += "(pop 1)\n";
                break;
            case 2:
                script += "(check-sat)\n";
                break;
            default:
                script += "(assert " + formula(d, 3) + ")\n";
        }
    }
    script += "(check-sat)\n";
    vorn::frontend::CheckOptions options;
    options.verify = true;
    options.certificate = true;
    options.decide.bb_limit = 200;
    std::ostringstream out;
    vorn::smt::CheckStats stats;
    try {
        vorn::frontend::run_script(script, "fuzz.smt2", options, out, stats);
    } catch (const vorn::smt::VerificationFailure& e) {
        std::fprintf(stderr, "%s\n--- script ---\n%s\n", e.what(), script.c_str());
        std::abort();
    }
    return 0;
}
