// Tableau lifecycle and queries.

#include "vorn/la/tableau.h"

#include "vorn/util/array_growth.h"

namespace vorn::la {

static_assert(sizeof(VarHashMap<VarSet>::Bucket) == 48, "column nodes fill 48-byte pool blocks");
static_assert(sizeof(Tableau::ElimIndex::Bucket) == 24, "index nodes fill 24-byte pool blocks");

Tableau::Tableau(int param) : param_(param) {}

std::size_t Tableau::get_num_variables() const {
    return rows_.size() + cols_.size();
}

std::vector<int> Tableau::get_all_variables() const {
    std::vector<int> vars;
    util::reserve_exact(vars, get_num_variables());
    for (auto it = rows_.begin(); it != rows_.end(); ++it)
        vars.push_back(it.index());
    for (const auto& column : cols_)
        vars.push_back(column.first);
    return vars;
}

bool Tableau::assert_valid() const {
    return true;
}

}  // namespace vorn::la
