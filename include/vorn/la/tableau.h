#pragma once

// Tableau: linear equations over integer-numbered variables kept in solved form.
//
// Rows. `rows_` maps each basic variable b to its row, an Equation whose basic variable is b.
// A row b *mentions* v when it has an entry for v with v ≥ 1 and v ≠ b.
// Columns. `cols_[v]` is the set of basic variables whose rows mention v; nothing else is in it,
// and an empty column is erased before an operation returns ("no empty column"). Variables below
// 1 never get a column; no basic variable has one ("rows and columns are disjoint").
// Elimination. `elim_eqs_` records every elimination in order (variable, its former row);
// `elim_index_` maps each currently eliminated variable to its position there.
// Ownership. `equations_` owns every equation the tableau holds; its nodes never move, and
// `rows_` and `elim_eqs_` point into them.
//
// Costs: finding a row is one array access; substitution and pivoting visit only the rows in the
// substituted variable's column, updating each affected column with one set union; scratch lists
// are members, reused for every row.

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "vorn/hsh/hashtable.h"
#include "vorn/la/equation.h"
#include "vorn/la/varhashmap.h"
#include "vorn/la/varmap.h"
#include "vorn/la/varset.h"

namespace vorn::la {

// Orders eliminated variables latest-eliminated first: a before b when a's position in the
// elimination record is greater. Both must be eliminated.
struct Unelim_lt {
    const hsh::HashMap<int, unsigned long, hsh::hash<int>, std::equal_to<int>>& elim_index;
    bool operator()(int a, int b) const {
        return elim_index.find(a)->value.second > elim_index.find(b)->value.second;
    }
};

class Tableau {
  public:
    using ElimIndex = hsh::HashMap<int, unsigned long, hsh::hash<int>, std::equal_to<int>>;
    using Unelim_lt = la::Unelim_lt;

    explicit Tableau(int param);
    Tableau(const Tableau&) = delete;
    Tableau& operator=(const Tableau&) = delete;
    ~Tableau() = default;

    // Equation intake.
    void add_equation(const Equation& eq, bool enter_now, std::vector<int>* restored);
    bool check();
    void build_initial_matrix();
    void do_add_equation(Equation& eq, std::vector<int>* restored);

    // Rows and columns.
    void add_row(int x, Equation& eq);
    Equation* remove_row(int x);
    void pivot(int leaving, int entering);
    void substitute_var(int x, const Equation& eq);

    // Elimination, removal and restoration.
    void eliminate_variables(const VarSet& vars);
    void remove_variable(int x);
    void uneliminate(int x, std::vector<int>* restored);
    // The equation kept for an eliminated variable, or null when x is not eliminated.
    Equation* get_eliminated_equation(int x) const;

    // Queries.
    std::size_t get_num_variables() const;
    std::vector<int> get_all_variables() const;
    bool assert_valid() const;
    std::string to_str() const;

    // Read access for solvers that embed the tableau.
    const VarMap<Equation*, true, true>& rows() const { return rows_; }
    const VarHashMap<VarSet>& cols() const { return cols_; }
    const ElimIndex& elim_index() const { return elim_index_; }
    const std::vector<std::pair<int, Equation*>>& elim_eqs() const { return elim_eqs_; }
    bool elim_integral() const { return elim_integral_; }
    const std::list<Equation>& equations() const { return equations_; }
    bool initialized() const { return initialized_; }
    int param() const { return param_; }

  private:
    // Files row b under every variable it mentions.
    void file_row(int b, const Equation& eq);
    // Erases b from w's column, and the column itself once it is empty.
    void unfile(int w, int b);
    // The member of x's column with the shortest row (ties: smallest basic variable).
    int shortest_row_in(const VarSet& col) const;
    // Erases every column whose set is empty, found in bucket order first.
    void drop_empty_columns();
    // Records x (basic) as eliminated with its current row.
    void record_elimination(int x);
    // Deletes the element of `equations_` that holds `eq` (the first such element).
    void destroy_equation(const Equation* eq);

    int param_;
    VarMap<Equation*, true, true> rows_;
    VarHashMap<VarSet> cols_;
    std::vector<std::pair<int, Equation*>> elim_eqs_;
    ElimIndex elim_index_;
    bool elim_integral_ = true;
    std::list<Equation> equations_;
    bool initialized_ = false;
    std::vector<int> dropped_vars_;
    std::vector<Equation::VarCoeff> scratch_coeffs_;
    std::vector<int> aux_vec_;
    std::uint64_t aux_word_ = 0;
};

}  // namespace vorn::la
