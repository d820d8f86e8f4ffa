#include "vorn/frontend/problem_reader.h"

#include "vorn/io/lin_reader.h"
#include "vorn/io/lp_reader.h"
#include "vorn/io/mps_reader.h"
#include "vorn/io/parse_error.h"

namespace vorn::frontend {

smt::Problem read_problem(const io::SourceText& source, std::optional<io::InputFormat> forced,
                          const util::Stop* stop) {
    try {
        switch (io::input_format(source, forced)) {
            case io::InputFormat::Smt2:
                return read_smt2(source.text, stop);
            case io::InputFormat::Mps:
                return io::read_mps(source.text, stop);
            case io::InputFormat::Lp:
                return io::read_lp(source.text, stop);
            case io::InputFormat::Cnf:
                throw io::ParseError({1, 1},
                                     "a DIMACS file states clauses, not linear constraints");
            default:
                return io::read_lin(source.text, stop);
        }
    } catch (io::ParseError& e) {
        e.set_file(source.name);
        throw;
    }
}

}  // namespace vorn::frontend
