#include "vorn/io/mps_reader.h"

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>

#include <array>
#include <vector>

#include "vorn/io/interrupted.h"
#include "vorn/io/linear_program.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/real_literal.h"
#include "vorn/io/source.h"

namespace vorn::io {

namespace {

enum class Section { None, Name, ObjSense, ObjName, Rows, Columns, Rhs, Ranges, Bounds, End };
enum class RowType { Objective, Free, E, L, G };

struct Field {
    std::string_view text;
    smt::SourcePos pos;
};

struct Row {
    RowType type;
    smt::SourcePos pos;
    smt::LinearExpr expr;
    QNumber rhs;
    std::optional<QNumber> range;
};

// Splits a line into blank-separated fields.
std::vector<Field> split(std::string_view line, int line_no) {
    std::vector<Field> fields;
    std::size_t i = 0;
    while (true) {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\t'))
            ++i;
        if (i == line.size()) return fields;
        std::size_t start = i;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t')
            ++i;
        fields.push_back({line.substr(start, i - start), {line_no, static_cast<int>(start) + 1}});
    }
}

// The six fixed fields (columns 2-3, 5-12, 15-22, 25-36, 40-47, 50-61), blank ones dropped.
std::vector<Field> split_fixed(std::string_view line, int line_no) {
    static constexpr std::array<std::pair<int, int>, 6> kFields{
        {{1, 2}, {4, 8}, {14, 8}, {24, 12}, {39, 8}, {49, 12}}};
    std::vector<Field> fields;
    for (auto [start, length] : kFields) {
        if (static_cast<std::size_t>(start) >= line.size()) break;
        std::string_view f =
            line.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(length));
        std::size_t first = f.find_first_not_of(" \t");
        if (first == std::string_view::npos) continue;
        std::size_t last = f.find_last_not_of(" \t");
        fields.push_back(
            {f.substr(first, last - first + 1), {line_no, start + 1 + static_cast<int>(first)}});
    }
    return fields;
}

class MpsReader {
  public:
    smt::Problem read(std::string_view text, const util::Stop* stop) {
        int line_no = 0;
        while (!text.empty()) {
            throw_if_interrupted(stop);
            std::size_t end = text.find('\n');
            std::string_view line = text.substr(0, end);
            text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
            ++line_no;
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            if (line.empty() || line[0] == '*') continue;
            if (line.find_first_not_of(" \t") == std::string_view::npos) continue;
            if (line[0] != ' ' && line[0] != '\t' && header(line, line_no)) continue;
            data(line, line_no);
            if (section_ == Section::End) break;
        }
        if (section_ != Section::End) throw ParseError({line_no + 1, 1}, "missing ENDATA");
        return finish();
    }

  private:
    // A section header; false when the line is data that starts in column 1 (free format).
    bool header(std::string_view line, int line_no) {
        std::vector<Field> f = split(line, line_no);
        static constexpr std::pair<std::string_view, Section> kSections[] = {
            {"NAME", Section::Name},         {"OBJSENSE", Section::ObjSense},
            {"OBJSENCE", Section::ObjSense}, {"OBJNAME", Section::ObjName},
            {"ROWS", Section::Rows},         {"COLUMNS", Section::Columns},
            {"RHS", Section::Rhs},           {"RANGES", Section::Ranges},
            {"BOUNDS", Section::Bounds},     {"ENDATA", Section::End}};
        if (f[0].text == "SOS" || f[0].text == "QUADOBJ" || f[0].text == "QMATRIX")
            throw ParseError(f[0].pos, "unsupported section " + quoted(f[0].text) +
                                           ": only linear constraints are decided");
        for (auto [name, section] : kSections) {
            if (f[0].text != name) continue;
            if (section == Section::Columns && section_ != Section::Rows)
                throw ParseError(f[0].pos, "COLUMNS before ROWS");
            section_ = section;
            if (section == Section::End) return true;
            if (section == Section::Name) return true;  // the problem's name is not needed
            if (f.size() > 1) data_fields({f.begin() + 1, f.end()});  // "OBJSENSE MAX"
            return true;
        }
        return false;
    }

    // Blank-separated fields, unless only the fixed columns make sense of the line (names
    // with blanks); when neither does, the blank-separated reading reports the error.
    void data(std::string_view line, int line_no) {
        std::vector<Field> f = split(line, line_no);
        drop_ignored_value(f);
        if (!fits(f)) {
            std::vector<Field> fixed = split_fixed(line, line_no);
            drop_ignored_value(fixed);
            if (fits(fixed)) f = fixed;
        }
        data_fields(f);
    }

    // Some writers give the bound types without a value one anyway ("BV BND x 1"); it is
    // ignored, as by other readers, when the field before it is a known column.
    void drop_ignored_value(std::vector<Field>& f) const {
        if (section_ != Section::Bounds || f.size() < 3 || takes_value(f[0].text) ||
            !parse_real_literal(f.back().text) || program_.find_column(f[f.size() - 2].text) == 0)
            return;
        f.pop_back();
    }

    // Whether the fields read as a line of the current section: the right count, known rows,
    // numbers where numbers go.
    bool fits(const std::vector<Field>& f) const {
        switch (section_) {
            case Section::Rows:
                return f.size() == 2;
            case Section::Columns:
                return is_marker(f) || ((f.size() == 3 || f.size() == 5) && pairs_fit(f, 1));
            case Section::Rhs:
            case Section::Ranges:
                return f.size() >= 2 && f.size() <= 5 && pairs_fit(f, f.size() % 2);
            case Section::Bounds: {
                // Type, optional set name, a known column, and a number when the type takes one.
                if (f.empty()) return false;
                bool valued = takes_value(f[0].text);
                std::size_t base = valued ? 3 : 2;
                if (f.size() != base && f.size() != base + 1) return false;
                if (valued && !parse_real_literal(f.back().text)) return false;
                return program_.find_column(f[f.size() - (valued ? 2 : 1)].text) != 0;
            }
            default:
                return true;
        }
    }

    bool pairs_fit(const std::vector<Field>& f, std::size_t first) const {
        for (std::size_t i = first; i + 1 < f.size(); i += 2)
            if (!row_index_.contains(f[i].text) || !parse_real_literal(f[i + 1].text)) return false;
        return (f.size() - first) % 2 == 0;
    }

    static bool takes_value(std::string_view type) {
        return type != "FR" && type != "MI" && type != "PL" && type != "BV";
    }

    static bool is_marker(const std::vector<Field>& f) {
        return f.size() == 3 && f[1].text == "'MARKER'";
    }

    void data_fields(const std::vector<Field>& f) {
        switch (section_) {
            case Section::ObjSense:
                if (f[0].text != "MAX" && f[0].text != "MIN" && f[0].text != "MAXIMIZE" &&
                    f[0].text != "MINIMIZE")
                    throw ParseError(f[0].pos, "expected MIN or MAX, not " + quoted(f[0].text));
                program_.set_maximize(f[0].text.starts_with("MAX"));
                return;
            case Section::ObjName:
                objective_name_ = f[0].text;
                return;
            case Section::Rows:
                return row(f);
            case Section::Columns:
                return column(f);
            case Section::Rhs:
                return values(f, false);
            case Section::Ranges:
                return values(f, true);
            case Section::Bounds:
                return bound(f);
            default:
                throw ParseError(f[0].pos, "data outside a section");
        }
    }

    void row(const std::vector<Field>& f) {
        if (f.size() != 2) throw ParseError(f[0].pos, "expected a row type and a row name");
        RowType type;
        if (f[0].text == "N")
            type = (objective_ < 0 && (objective_name_.empty() || objective_name_ == f[1].text))
                       ? RowType::Objective
                       : RowType::Free;
        else if (f[0].text == "E")
            type = RowType::E;
        else if (f[0].text == "L")
            type = RowType::L;
        else if (f[0].text == "G")
            type = RowType::G;
        else
            throw ParseError(f[0].pos, "unknown row type " + quoted(f[0].text));
        auto [it, fresh] = row_index_.emplace(f[1].text, rows_.size());
        if (!fresh) throw ParseError(f[1].pos, "row " + quoted(f[1].text) + " defined twice");
        if (type == RowType::Objective) objective_ = static_cast<int>(rows_.size());
        rows_.push_back({type, f[1].pos, {}, QNumber(0), std::nullopt});
    }

    void column(const std::vector<Field>& f) {
        if (is_marker(f)) {
            if (f[2].text == "'INTORG'")
                integer_ = true;
            else if (f[2].text == "'INTEND'")
                integer_ = false;
            else
                throw ParseError(f[2].pos, "unknown marker " + quoted(f[2].text));
            return;
        }
        if (f.size() != 3 && f.size() != 5)
            throw ParseError(f[0].pos, "expected a column, then pairs of row and value");
        int col = program_.column(f[0].text, f[0].pos);
        if (integer_) program_.set_integer(col);
        for (std::size_t i = 1; i + 1 < f.size(); i += 2) {
            Row& row = row_of(f[i]);
            auto pair = static_cast<std::uint64_t>(col) << 32 |
                        static_cast<std::uint64_t>(&row - rows_.data());
            if (!entries_.insert(pair).second)
                throw ParseError(f[i].pos, "a second value for column " + quoted(f[0].text) +
                                               " in row " + quoted(f[i].text));
            row.expr.add_entry(col, number(f[i + 1]));
        }
    }

    // RHS and RANGES: an optional set name, then pairs of row and value.
    void values(const std::vector<Field>& f, bool ranges) {
        std::size_t first = f.size() % 2 == 0 ? 0 : 1;
        if (f.size() < 2) throw ParseError(f[0].pos, "expected pairs of row and value");
        for (std::size_t i = first; i + 1 < f.size(); i += 2) {
            Row& r = row_of(f[i]);
            QNumber value = number(f[i + 1]);
            if (!ranges) {
                r.rhs = value;
            } else if (r.type == RowType::Objective || r.type == RowType::Free) {
                throw ParseError(f[i].pos, "a range on the free row " + quoted(f[i].text));
            } else {
                r.range = value;
            }
        }
    }

    void bound(const std::vector<Field>& f) {
        std::string_view type = f[0].text;
        bool valued = takes_value(type);
        // Type, optional set name, column, value (when the type takes one).
        std::size_t expected = valued ? 3 : 2;
        if (f.size() != expected && f.size() != expected + 1)
            throw ParseError(f[0].pos, "expected a bound type, a column and a value");
        const Field& name = f[f.size() - (valued ? 2 : 1)];
        int col = program_.find_column(name.text);
        if (col == 0) throw ParseError(name.pos, "unknown column " + quoted(name.text));
        std::optional<QNumber> value;
        if (valued) {
            QNumber v = number(f.back());
            if (!is_infinite(v)) value = v;
        }
        bool negative = value && value->sign() < 0;
        if (type == "UP" || type == "UI") {
            if (negative && program_.default_lower(col)) program_.set_lower(col, {}, f[0].pos);
            program_.set_upper(col, value ? value : upper_infinity(f.back()), f[0].pos);
        } else if (type == "LO" || type == "LI") {
            program_.set_lower(col, value ? value : lower_infinity(f.back()), f[0].pos);
        } else if (type == "FX") {
            bool below = number(f.back()).sign() < 0;
            program_.set_lower(col, value ? value : program_.infinite(true, below, f[0].pos),
                               f[0].pos);
            program_.set_upper(col, value ? value : program_.infinite(false, below, f[0].pos),
                               f[0].pos);
        } else if (type == "FR") {
            program_.set_lower(col, {}, f[0].pos);
            program_.set_upper(col, {}, f[0].pos);
        } else if (type == "MI") {
            program_.set_lower(col, {}, f[0].pos);
        } else if (type == "PL") {
            program_.set_upper(col, {}, f[0].pos);
        } else if (type == "BV") {
            program_.set_lower(col, QNumber(0), f[0].pos);
            program_.set_upper(col, QNumber(1), f[0].pos);
        } else if (type == "SC") {
            throw ParseError(f[0].pos, "semi-continuous bounds (SC) are not linear constraints");
        } else {
            throw ParseError(f[0].pos, "unknown bound type " + quoted(type));
        }
        if (type == "UI" || type == "LI" || type == "BV") program_.set_integer(col);
    }

    // An infinite value in a bound, by the rule of LinearProgram::infinite.
    std::optional<QNumber> upper_infinity(const Field& f) {
        return program_.infinite(false, number(f).sign() < 0, f.pos);
    }
    std::optional<QNumber> lower_infinity(const Field& f) {
        return program_.infinite(true, number(f).sign() < 0, f.pos);
    }

    Row& row_of(const Field& f) {
        auto it = row_index_.find(f.text);
        if (it == row_index_.end()) throw ParseError(f.pos, "unknown row " + quoted(f.text));
        return rows_[it->second];
    }

    static QNumber number(const Field& f) {
        std::optional<QNumber> value = parse_real_literal(f.text);
        if (!value) throw ParseError(f.pos, "expected a number, not " + quoted(f.text));
        return *value;
    }

    smt::Problem finish() {
        for (Row& r : rows_) {
            if (r.type == RowType::Free) continue;
            if (r.type == RowType::Objective) {
                r.expr.add_entry(0, -r.rhs);
                program_.set_objective(r.expr);
                continue;
            }
            auto [lower, upper] = interval(r);
            program_.add_row(r.expr, lower, upper, r.pos);
        }
        return program_.finish();
    }

    std::pair<LinearProgram::Bound, LinearProgram::Bound> interval(const Row& r) {
        LinearProgram::Bound rhs;
        if (!is_infinite(r.rhs)) rhs = r.rhs;
        if (!r.range) {
            bool below = r.rhs.sign() < 0;  // an infinite rhs: which infinity
            auto side = [&](bool lower_side) {
                return rhs ? rhs : program_.infinite(lower_side, below, r.pos);
            };
            LinearProgram::Bound none;
            if (r.type == RowType::E) return {side(true), side(false)};
            return r.type == RowType::L ? std::pair{none, side(false)}
                                        : std::pair{side(true), none};
        }
        if (!rhs) throw ParseError(r.pos, "a range on a row with an infinite right-hand side");
        QNumber width = r.range->sign() < 0 ? -*r.range : *r.range;
        if (r.type == RowType::L) return {*rhs - width, rhs};
        if (r.type == RowType::G) return {rhs, *rhs + width};
        return r.range->sign() < 0 ? std::pair{LinearProgram::Bound(*rhs - width), rhs}
                                   : std::pair{rhs, LinearProgram::Bound(*rhs + width)};
    }

    Section section_ = Section::None;
    LinearProgram program_;
    std::vector<Row> rows_;
    absl::flat_hash_map<std::string_view, std::size_t> row_index_;
    absl::flat_hash_set<std::uint64_t> entries_;  // (column, row) pairs given in COLUMNS
    std::string_view objective_name_;
    int objective_ = -1;
    bool integer_ = false;
};

}  // namespace

smt::Problem read_mps(std::string_view text, const util::Stop* stop) {
    return MpsReader().read(text, stop);
}

}  // namespace vorn::io
