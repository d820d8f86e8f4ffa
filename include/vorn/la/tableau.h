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

    // `param` is kept for the owner (param()); no operation reads it.
    explicit Tableau(int param);
    Tableau(const Tableau&) = delete;
    Tableau& operator=(const Tableau&) = delete;
    ~Tableau() = default;

    // --- Equation intake ---------------------------------------------------------------------
    // Appends a copy of `eq` to equations_ (a failed copy leaves the list unchanged) and enters
    // it at once when `enter_now`. Before check() an entered equation is installed unchanged;
    // after it, see do_add_equation. Pre: eq is in the variable form and its basic variable is
    // neither basic, eliminated nor mentioned by a row. Cost: one copy of eq (its big
    // coefficients allocate), plus the entry.
    void add_equation(const Equation& eq, bool enter_now, std::vector<int>* restored);
    // First call: reserves rows_ up to the largest basic variable, enters every stored equation
    // unchanged in the order received, and marks the tableau initialized. Later calls do
    // nothing. Always true. Cost: one pass over equations_ plus installing each row.
    bool check();
    // Steps 1 and 2 of check() without touching `initialized`.
    void build_initial_matrix();
    // Enters `eq` (held by this tableau) as the row of its basic variable. Once initialized, it
    // first restores the eliminated variables eq mentions (latest elimination first, appended to
    // *restored as one block before any of them is restored, recursively) and substitutes every
    // basic variable it mentions by its row. Cost: visits eq's entries, the rows of the variables
    // it substitutes, and the columns of its final entries; allocates two short scratch lists.
    void do_add_equation(Equation& eq, std::vector<int>* restored);

    // --- Rows and columns --------------------------------------------------------------------
    // Installs `eq` (which outlives the row) as x's row and files x in the column of every
    // variable the row mentions. Pre: x has no row; eq's basic variable is x. Cost: one column
    // lookup and set insertion per entry.
    void add_row(int x, Equation& eq);
    // Takes x's row out of rows_ and out of every column (erasing columns left empty) and
    // returns it unchanged; it stays owned by equations_. Pre: x has a row (asserted). Cost: one
    // column lookup per entry of the row.
    Equation* remove_row(int x);
    // Makes `entering` basic in `leaving`'s row: remove_row, change_basic_var, substitute_var,
    // add_row. Pre: leaving has a row that mentions entering, which has none. Cost: rewrites
    // every row in entering's column; one union per entry of the pivot row on the columns.
    void pivot(int leaving, int entering);
    // Rewrites every row that mentions x through `eq` (which defines x) and erases x's column.
    // Pre: x has no row; eq's basic variable is x and eq is not a row. Cost: visits only the
    // rows in x's column; one column union per entry of eq, then one erase per cancellation.
    void substitute_var(int x, const Equation& eq);

    // --- Elimination, removal and restoration -------------------------------------------------
    // Eliminates the members of `vars` in ascending order: a non-basic one is first pivoted into
    // its pivot row (pivot_row_in); its row then leaves the tableau and is kept as its defining
    // equation. Absent and already eliminated variables are passed over. Cost: the pivots, then
    // one sweep over every column to drop the empty ones, even for an empty `vars`.
    void eliminate_variables(const VarSet& vars);
    // Takes x out for good: its row (after a pivot, if x is not basic) leaves the tableau and its
    // equation is destroyed. Any x is accepted; an absent or eliminated one only drops empty
    // columns. Cost: the pivot, a sweep over every column, and a linear search of equations_.
    void remove_variable(int x);
    // Enters x's kept equation again (restoring first what it mentions, appended to *restored)
    // and forgets x's elimination; x itself is not appended. A variable that is not eliminated
    // is left alone. Cost: as do_add_equation.
    void uneliminate(int x, std::vector<int>* restored);
    // The equation kept for an eliminated variable (the stored object itself), or null when x
    // is not eliminated. Cost: one hash lookup.
    Equation* get_eliminated_equation(int x) const;
    // The row eliminate_variables and remove_variable pivot into for a variable whose column is
    // `column` (not empty): the fewest entries, ties to the smallest basic variable. Cost: one
    // look at each member's row.
    int pivot_row_in(const VarSet& column) const;

    // --- Queries ------------------------------------------------------------------------------
    // Rows plus columns: the distinct variables that are basic or mentioned by a row.
    std::size_t get_num_variables() const;
    // Basic variables ascending, then the column keys in bucket order; one allocation.
    std::vector<int> get_all_variables() const;
    bool assert_valid() const;
    // "ROWS:\n", then "s: <var> <--> <row text>\n" per present row in ascending order, then
    // "\nCOLS:\n".
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
