#include "cli/replay.h"

#include <set>
#include <vector>

#include "cli/output.h"
#include "vorn/io/lin_reader.h"
#include "vorn/io/parse_error.h"
#include "vorn/la/tableau.h"

namespace vorn::cli {

namespace {

struct Word {
    std::string_view text;
    smt::SourcePos pos;
};

bool name_like(std::string_view w) {
    auto start = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    if (w.empty() || !start(w[0])) return false;
    for (char c : w)
        if (!start(c) && !(c >= '0' && c <= '9')) return false;
    return true;
}

std::vector<Word> split(std::string_view line, int line_no) {
    std::vector<Word> words;
    std::size_t i = 0;
    while (i < line.size()) {
        if (line[i] == ' ' || line[i] == '\t') {
            ++i;
            continue;
        }
        std::size_t begin = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t')
            ++i;
        words.push_back({line.substr(begin, i - begin), {line_no, static_cast<int>(begin) + 1}});
    }
    return words;
}

class Replay {
  public:
    std::string run(std::string_view text) {
        int line_no = 0;
        while (!text.empty()) {
            std::size_t end = text.find('\n');
            std::string_view line = text.substr(0, end);
            text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
            if (auto mark = line.find('#'); mark != std::string_view::npos)
                line = line.substr(0, mark);
            else if (!line.empty() && line.back() == '\r')
                line.remove_suffix(1);
            step(line, ++line_no);
        }
        return out_;
    }

  private:
    void step(std::string_view line, int line_no) {
        std::vector<Word> words = split(line, line_no);
        if (words.empty()) return;
        std::string_view op = words[0].text;
        if (op == "add") {
            add(line, words);
        } else if (op == "check") {
            arity(words, 1);
            t_.check();
            pending_.clear();
            pending_mentions_.clear();
        } else if (op == "pivot") {
            pivot(words);
        } else if (op == "eliminate") {
            eliminate(words);
        } else if (op == "uneliminate") {
            uneliminate(words);
        } else if (op == "remove") {
            arity(words, 2);
            t_.remove_variable(known(words[1]));
        } else if (op == "dump") {
            arity(words, 1);
            out_ += t_.to_str();
            out_ += names_legend(variables_);
        } else if (op == "stats") {
            arity(words, 1);
            out_ += tableau_counts(t_);
        } else {
            throw io::ParseError(words[0].pos, "unknown operation " + io::quoted(op));
        }
    }

    static void arity(const std::vector<Word>& words, std::size_t n) {
        if (words.size() > n)
            throw io::ParseError(words[n].pos, "unexpected " + io::quoted(words[n].text));
        if (words.size() < n)
            throw io::ParseError(words[0].pos, io::quoted(words[0].text) + " needs " +
                                                   std::to_string(n - 1) + " argument" +
                                                   (n == 2 ? "" : "s"));
    }

    int known(const Word& w) const {
        int v = variables_.find(w.text);
        if (v == 0) throw io::ParseError(w.pos, "unknown variable " + io::quoted(w.text));
        return v;
    }

    bool eliminated(int v) const { return t_.elim_index().find(v) != nullptr; }
    bool mentioned(int v) const {
        return t_.cols().find(v) != nullptr || pending_mentions_.count(v);
    }

    void add(std::string_view line, const std::vector<Word>& words) {
        if (words.size() < 4 || words[2].text != "=")
            throw io::ParseError(words[0].pos, "expected 'add NAME = TERM [now]'");
        const Word& name = words[1];
        if (!name_like(name.text)) throw io::ParseError(name.pos, "expected a variable name");
        bool now = words.back().text == "now" && words.size() > 4;
        // check enters every stored equation: one entered before it would be entered twice, one
        // stored after it would never be.
        if (now && !t_.initialized())
            throw io::ParseError(words.back().pos,
                                 "'now' needs check first (check enters every "
                                 "equation stored before it)");
        if (!now && t_.initialized())
            throw io::ParseError(words[0].pos,
                                 "after check, an equation must enter at once: add 'now'");
        int basic = variables_.intern(name.text, smt::Sort::Real, name.pos);
        if (t_.rows().contains(basic))
            throw io::ParseError(name.pos, io::quoted(name.text) + " is basic already");
        if (eliminated(basic))
            throw io::ParseError(name.pos, io::quoted(name.text) + " is eliminated");
        if (mentioned(basic) || pending_.count(basic))
            throw io::ParseError(name.pos,
                                 io::quoted(name.text) + " is mentioned by a row already");
        auto term_begin = static_cast<std::size_t>(words[3].pos.col - 1);
        std::size_t term_end =
            now ? static_cast<std::size_t>(words.back().pos.col - 1) : line.size();
        smt::LinearExpr term = io::read_lin_sum(line.substr(term_begin, term_end - term_begin),
                                                words[3].pos, variables_);
        std::vector<la::Equation::VarCoeff> entries{{basic, QNumber(-1)}};
        for (const auto& e : term.entries()) {
            if (e.var == basic)
                throw io::ParseError(words[3].pos, "the term mentions the variable it defines");
            if (!t_.initialized() && pending_.count(e.var))
                throw io::ParseError(words[3].pos,
                                     "before check, a term may not mention a basic variable");
            entries.push_back(e);
        }
        if (!t_.initialized()) {
            pending_.insert(basic);
            for (const auto& e : entries)
                if (e.var >= 1 && e.var != basic) pending_mentions_.insert(e.var);
        }
        t_.add_equation(la::Equation(basic, std::move(entries)), now, nullptr);
    }

    void pivot(const std::vector<Word>& words) {
        arity(words, 3);
        int leaving = known(words[1]);
        int entering = known(words[2]);
        if (!t_.rows().contains(leaving))
            throw io::ParseError(words[1].pos, io::quoted(words[1].text) + " has no row");
        if (entering == leaving || t_.rows().at(leaving)->coeff_of(entering) == nullptr)
            throw io::ParseError(words[2].pos, "the row of " + io::quoted(words[1].text) +
                                                   " does not mention " +
                                                   io::quoted(words[2].text));
        t_.pivot(leaving, entering);
    }

    void eliminate(const std::vector<Word>& words) {
        if (!t_.initialized()) throw io::ParseError(words[0].pos, "eliminate needs check first");
        la::VarSet vars;
        for (std::size_t i = 1; i < words.size(); ++i)
            vars.insert(known(words[i]));
        t_.eliminate_variables(vars);
    }

    void uneliminate(const std::vector<Word>& words) {
        arity(words, 2);
        int v = known(words[1]);
        if (!eliminated(v))
            throw io::ParseError(words[1].pos, io::quoted(words[1].text) + " is not eliminated");
        t_.uneliminate(v, nullptr);
    }

    la::Tableau t_{0};
    smt::Variables variables_;
    std::set<int> pending_;           // basic variables of equations waiting for check
    std::set<int> pending_mentions_;  // variables those equations mention
    std::string out_;
};

}  // namespace

std::string replay(std::string_view text) {
    return Replay().run(text);
}

}  // namespace vorn::cli
