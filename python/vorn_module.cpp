// vorn._vorn: the Python extension under the vorn package (python/vorn/__init__.py).
//
// It only converts: smt::Solver with its terms, formulas and objectives as opaque handles,
// numbers between Python's int and Fraction and QNumber, answers and counters to Python values,
// library errors to Python exceptions; and the file entry points of `vorn check` and of the
// optimizer. The pythonic surface (sorts, operators, models) is the package's.
//
// Every check runs with the GIL released on a worker thread while the calling thread waits and
// looks at Python's signals every few milliseconds: a Ctrl-C interrupts the check
// (Solver::interrupt or the stop of a file's check) and raises KeyboardInterrupt once it has
// stopped, so the solver stays usable.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <sstream>
#include <streambuf>
#include <string>
#include <thread>
#include <vector>

#include "cli/check.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/source.h"
#include "vorn/smt/optimize.h"
#include "vorn/smt/solver.h"

namespace py = pybind11;
using namespace vorn;

namespace {

QNumber from_python(py::handle value) {
    if (PyLong_Check(value.ptr()) && !PyBool_Check(value.ptr())) {
        int overflow = 0;
        long long small = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
        if (overflow == 0) return QNumber(small);
        return QNumber::from_string(py::str(value).cast<std::string>());
    }
    if (py::isinstance<py::str>(value)) return QNumber::from_string(value.cast<std::string>());
    if (py::hasattr(value, "numerator") && py::hasattr(value, "denominator")) {
        QNumber q = from_python(value.attr("numerator"));
        q /= from_python(value.attr("denominator"));
        return q;
    }
    throw py::type_error("expected an int, a Fraction or a str, not " +
                         py::str(py::type::of(value)).cast<std::string>());
}

// (numerator, denominator) in lowest terms, as Python ints.
py::tuple to_python(const QNumber& q) {
    std::string text = q.to_string();
    std::size_t slash = text.find('/');
    auto as_int = [](const std::string& digits) {
        return py::reinterpret_steal<py::int_>(PyLong_FromString(digits.c_str(), nullptr, 10));
    };
    if (slash == std::string::npos) return py::make_tuple(as_int(text), py::int_(1));
    return py::make_tuple(as_int(text.substr(0, slash)), as_int(text.substr(slash + 1)));
}

// Runs `work` on a worker thread with the GIL released; a signal that Python reports meanwhile
// calls `interrupt` and, once `work` has returned, raises its exception (KeyboardInterrupt).
void run_interruptible(const std::function<void()>& work, const std::function<void()>& interrupt) {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false, signalled = false;
    std::exception_ptr error;
    {
        py::gil_scoped_release release;
        std::thread worker([&] {
            try {
                work();
            } catch (...) {
                error = std::current_exception();
            }
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
            finished.notify_one();
        });
        std::unique_lock<std::mutex> lock(mutex);
        while (!done) {
            if (finished.wait_for(lock, std::chrono::milliseconds(20), [&] { return done; })) break;
            if (signalled) continue;
            lock.unlock();
            {
                py::gil_scoped_acquire acquire;
                signalled = PyErr_CheckSignals() != 0;
            }
            lock.lock();
            // A check that has ended keeps no interrupt for the next one.
            if (signalled && !done) interrupt();
        }
        lock.unlock();
        worker.join();
    }
    if (signalled) throw py::error_already_set();
    if (error) std::rethrow_exception(error);
}

// Collects what `vorn check` writes, one answer per flush (it flushes after every command).
class AnswerBuffer : public std::stringbuf {
  public:
    std::vector<std::string> answers;

  protected:
    int sync() override {
        std::string text = str();
        while (!text.empty() && text.back() == '\n')
            text.pop_back();
        if (!text.empty()) answers.push_back(std::move(text));
        str({});
        return 0;
    }
};

// Runs `read` on the file at `path`, its ParseErrors naming the file.
template <class Read>
auto with_file_name(const std::string& path, Read&& read) {
    try {
        return read();
    } catch (io::ParseError& e) {
        if (e.file().empty()) e.set_file(path);
        throw;
    }
}

std::vector<std::string> check_answers(const std::string& path) {
    io::SourceText source = io::SourceText::read(path);
    util::Stop stop;
    cli::CheckRequest request;
    request.options.decide.stop = &stop;
    AnswerBuffer buffer;
    std::ostream out(&buffer);
    smt::CheckStats stats;
    run_interruptible([&] { (void)cli::run_check(source, request, out, stats); },
                      [&] { stop.interrupt(); });
    out.flush();
    return buffer.answers;
}

// (status, optimum or None, {column: value}, reason)
py::tuple optimum(const std::string& path) {
    io::SourceText source = io::SourceText::read(path);
    util::Stop stop;
    smt::DecideOptions options;
    options.stop = &stop;
    smt::Problem problem(smt::NameSyntax::Plain);
    smt::Optimization answer;
    bool maximize = false;
    run_interruptible(
        [&] {
            problem = frontend::read_problem(source, std::nullopt, &stop);
            if (!problem.objective)
                throw std::invalid_argument(path + ": the input states no objective");
            maximize = problem.maximize;
            answer = smt::optimize(problem, *problem.objective, maximize, options);
        },
        [&] { stop.interrupt(); });
    static constexpr const char* kStatus[] = {"optimal", "infeasible", "unbounded", "unknown"};
    py::dict model;
    if (answer.kind == smt::Optimization::Kind::Optimal)
        for (int v = 1; v <= problem.variables.size(); ++v)
            model[py::str(std::string(problem.variables.name(v)))] =
                to_python(static_cast<std::size_t>(v) < answer.model.size()
                              ? answer.model[static_cast<std::size_t>(v)]
                              : QNumber(0));
    py::object optimum = py::none();
    if (answer.kind == smt::Optimization::Kind::Optimal) optimum = to_python(answer.optimum);
    return py::make_tuple(kStatus[static_cast<int>(answer.kind)], optimum, model,
                          answer.reason_unknown);
}

std::vector<std::string> check_file(const std::string& path) {
    return with_file_name(path, [&] { return check_answers(path); });
}

py::tuple optimize_file(const std::string& path) {
    return with_file_name(path, [&] { return optimum(path); });
}

// A solver shared by Python threads: while one thread's check runs without the GIL, any other
// call but interrupt() is refused instead of racing with it. The flag is read and written with
// the GIL held.
class GuardedSolver {
  public:
    smt::Solver& use() {
        if (checking_)
            throw smt::UsageError(
                "the solver is checking in another thread: only interrupt() may be called "
                "meanwhile");
        return solver_;
    }
    void interrupt() { solver_.interrupt(); }

    int check(const std::vector<smt::Formula>& assumptions) {
        smt::Solver& s = use();
        checking_ = true;
        util::Result r = util::Result::Unknown;
        try {
            run_interruptible([&] { r = assumptions.empty() ? s.check() : s.check(assumptions); },
                              [&] { s.interrupt(); });
        } catch (...) {
            checking_ = false;
            throw;
        }
        checking_ = false;
        return static_cast<int>(r);
    }

  private:
    smt::Solver solver_;
    bool checking_ = false;
};

}  // namespace

PYBIND11_MODULE(_vorn, m) {
    m.doc() = "The C++ solver under the vorn package: use `import vorn`.";
    py::register_exception<smt::UsageError>(m, "UsageError", PyExc_RuntimeError);
    // "FILE:LINE:COL: message", as the tool shows it.
    static py::exception<io::ParseError> parse_error(m, "ParseError", PyExc_ValueError);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const io::ParseError& e) {
            parse_error(io::format_error(e.file(), e).c_str());
        }
    });
    py::register_exception<smt::VerificationFailure>(m, "VerificationFailure", PyExc_RuntimeError);

    py::class_<smt::Term>(m, "Term", "A linear term of one solver.");
    py::class_<smt::Formula>(m, "Formula", "A formula of one solver.");
    py::class_<smt::Objective>(m, "Objective", "An objective of one solver.");

    m.def(
        "linear",
        [](const std::vector<std::pair<smt::Term, py::handle>>& parts, py::handle constant) {
            smt::Term t(from_python(constant));
            for (const auto& [term, coefficient] : parts)
                t += term * from_python(coefficient);
            return t;
        },
        "Σ coefficient · term + constant.");
    m.def(
        "compare",
        [](int relation, const smt::Term& t) -> smt::Formula {
            switch (relation) {
                case 0:
                    return t <= 0;
                case 1:
                    return t < 0;
                case 2:
                    return t >= 0;
                case 3:
                    return t > 0;
                case 4:
                    return t == 0;
                case 5:
                    return t != 0;
            }
            throw py::value_error("relation 0..5: <=, <, >=, >, ==, !=");
        },
        "term ⋈ 0, ⋈ by its number: <=, <, >=, >, ==, !=.");
    m.def("constant", [](bool value) { return smt::Formula(value); });
    m.def("not_", [](const smt::Formula& f) { return !f; });
    m.def("and_", [](const std::vector<smt::Formula>& fs) {
        smt::Formula all = true;
        for (const smt::Formula& f : fs)
            all = all && f;
        return all;
    });
    m.def("or_", [](const std::vector<smt::Formula>& fs) {
        smt::Formula any = false;
        for (const smt::Formula& f : fs)
            any = any || f;
        return any;
    });
    m.def("implies", &smt::implies);
    m.def("ite", &smt::ite);
    m.def("check_file", &check_file, "The answers of `vorn check FILE`, one per command.");
    m.def("optimize_file", &optimize_file,
          "(status, optimum, model, reason) of `vorn optimize FILE`.");

    py::class_<GuardedSolver>(m, "Solver", "smt::Solver, one check at a time.")
        .def(py::init<>())
        .def("real", [](GuardedSolver& g, const std::string& name) { return g.use().real(name); })
        .def("integer",
             [](GuardedSolver& g, const std::string& name) { return g.use().integer(name); })
        .def("boolean",
             [](GuardedSolver& g, const std::string& name) { return g.use().boolean(name); })
        .def("add", [](GuardedSolver& g, const smt::Formula& f) { g.use().add(f); })
        .def("add_named", [](GuardedSolver& g, const smt::Formula& f,
                             const std::string& name) { g.use().add(f, name); })
        .def("check", &GuardedSolver::check, "0 sat, 1 unsat, 2 unknown.")
        .def("push", [](GuardedSolver& g, unsigned n) { g.use().push(n); })
        .def("pop", [](GuardedSolver& g, unsigned n) { g.use().pop(n); })
        .def("level", [](GuardedSolver& g) { return g.use().level(); })
        .def("values",
             [](GuardedSolver& g, const std::vector<smt::Term>& terms) {
                 py::list values;
                 for (const smt::Term& t : terms)
                     values.append(to_python(g.use().value(t)));
                 return values;
             })
        .def("truths",
             [](GuardedSolver& g, const std::vector<smt::Formula>& formulas) {
                 std::vector<bool> truths;
                 for (const smt::Formula& f : formulas)
                     truths.push_back(g.use().value(f));
                 return truths;
             })
        .def("core_indices",
             [](GuardedSolver& g, const std::vector<smt::Formula>& assumptions) {
                 std::vector<std::size_t> indices;
                 for (const smt::Formula& f : g.use().unsat_core())
                     for (std::size_t i = 0; i < assumptions.size(); ++i)
                         if (f.identical(assumptions[i])) {
                             indices.push_back(i);
                             break;
                         }
                 return indices;
             })
        .def("unsat_core_names", [](GuardedSolver& g) { return g.use().unsat_core_names(); })
        .def("reason_unknown",
             [](GuardedSolver& g) { return std::string(g.use().reason_unknown()); })
        .def("set_time_limit",
             [](GuardedSolver& g, std::int64_t ms) {
                 g.use().set_time_limit(std::chrono::milliseconds(ms));
             })
        .def("set_conflict_limit",
             [](GuardedSolver& g, std::uint64_t n) { g.use().set_conflict_limit(n); })
        .def("interrupt", &GuardedSolver::interrupt)
        .def("statistics",
             [](GuardedSolver& g) {
                 py::dict stats;
                 for (const smt::Statistic& st : g.use().statistics())
                     stats[py::str(std::string(st.name))] =
                         st.seconds ? py::object(py::float_(st.value))
                                    : py::object(py::int_(static_cast<std::uint64_t>(st.value)));
                 return stats;
             })
        .def("set_certificates", [](GuardedSolver& g, bool on) { g.use().set_certificates(on); })
        .def("certificate", [](GuardedSolver& g) { return g.use().certificate(); })
        .def("to_smt2", [](GuardedSolver& g) { return g.use().to_smt2(); })
        .def("minimize", [](GuardedSolver& g, const smt::Term& t) { return g.use().minimize(t); })
        .def("maximize", [](GuardedSolver& g, const smt::Term& t) { return g.use().maximize(t); })
        .def("add_soft",
             [](GuardedSolver& g, const smt::Formula& f, py::handle weight, const std::string& id) {
                 return g.use().add_soft(f, from_python(weight), id);
             })
        .def("objective_value",
             [](GuardedSolver& g, const smt::Objective& o) -> py::object {
                 std::optional<QNumber> v = g.use().value(o);
                 if (!v) return py::none();
                 return to_python(*v);
             })
        .def("objective_epsilon",
             [](GuardedSolver& g, const smt::Objective& o) { return g.use().epsilon(o); })
        .def("objective_certificate",
             [](GuardedSolver& g, const smt::Objective& o) { return g.use().certificate(o); })
        .def("set_box",
             [](GuardedSolver& g, bool box) {
                 g.use().set_priority(box ? smt::Solver::Priority::Box
                                          : smt::Solver::Priority::Lexicographic);
             })
        .def("objectives_unknown",
             [](GuardedSolver& g) { return std::string(g.use().objectives_unknown()); });
}
