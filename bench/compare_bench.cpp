// Solving the same random sparse systems (4 entries per equation, m equations over 2m
// variables) with vorn and, when they are installed, with Z3 (its solve-eqs tactic and then
// check-sat, through the C API) and FLINT (exact dense row reduction, fmpq_mat_rref).

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "vorn/la/eliminate_greedy.h"
#include "vorn/la/tableau.h"

#ifdef VORN_HAVE_Z3
#include <z3.h>
#endif
#ifdef VORN_HAVE_FLINT
#include <flint/fmpq_mat.h>
#endif

namespace {

struct Term {
    int var;  // 1..2m
    long coeff;
};
struct SparseEquation {
    std::vector<Term> terms;
    long rhs;
};

std::vector<SparseEquation> make_system(int m) {
    std::mt19937_64 rng(12);
    std::vector<SparseEquation> system(static_cast<std::size_t>(m));
    for (auto& eq : system) {
        for (int i = 0; i < 4; ++i) {
            long c = static_cast<long>(rng() % 9) + 1;
            eq.terms.push_back({1 + static_cast<int>(rng() % (2 * m)), rng() % 2 ? c : -c});
        }
        eq.rhs = static_cast<long>(rng() % 19) - 9;
    }
    return system;
}

void BM_Solve_vorn(benchmark::State& state) {
    int m = static_cast<int>(state.range(0));
    auto system = make_system(m);
    vorn::la::VarSet vars;
    for (int v = 1; v <= 2 * m; ++v)
        vars.insert(v);
    for (auto _ : state) {
        auto t = std::make_unique<vorn::la::Tableau>(0);
        int slack = 2 * m;
        for (const auto& eq : system) {
            std::vector<vorn::la::Equation::VarCoeff> entries{{++slack, vorn::QNumber(-1)},
                                                              {0, vorn::QNumber(-eq.rhs)}};
            for (const auto& term : eq.terms)
                entries.push_back({term.var, vorn::QNumber(term.coeff)});
            t->add_equation(vorn::la::Equation(slack, std::move(entries)), false, nullptr);
        }
        t->check();
        vorn::la::eliminate_greedy(*t, vars);
        benchmark::DoNotOptimize(t->elim_eqs().size());
    }
    state.SetItemsProcessed(state.iterations() * m);
}
BENCHMARK(BM_Solve_vorn)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

#ifdef VORN_HAVE_Z3
void BM_Solve_z3(benchmark::State& state) {
    int m = static_cast<int>(state.range(0));
    auto system = make_system(m);
    for (auto _ : state) {
        Z3_config cfg = Z3_mk_config();
        Z3_context ctx = Z3_mk_context(cfg);
        Z3_del_config(cfg);
        Z3_sort real = Z3_mk_real_sort(ctx);
        std::vector<Z3_ast> vars(static_cast<std::size_t>(2 * m + 1));
        for (int v = 1; v <= 2 * m; ++v)
            vars[v] = Z3_mk_const(ctx, Z3_mk_int_symbol(ctx, v), real);
        Z3_goal goal = Z3_mk_goal(ctx, false, false, false);
        Z3_goal_inc_ref(ctx, goal);
        for (const auto& eq : system) {
            std::vector<Z3_ast> sum;
            for (const auto& term : eq.terms) {
                Z3_ast factors[2] = {Z3_mk_real(ctx, static_cast<int>(term.coeff), 1),
                                     vars[term.var]};
                sum.push_back(Z3_mk_mul(ctx, 2, factors));
            }
            Z3_ast lhs = Z3_mk_add(ctx, static_cast<unsigned>(sum.size()), sum.data());
            Z3_goal_assert(ctx, goal,
                           Z3_mk_eq(ctx, lhs, Z3_mk_real(ctx, static_cast<int>(eq.rhs), 1)));
        }
        Z3_tactic tactic = Z3_mk_tactic(ctx, "solve-eqs");
        Z3_tactic_inc_ref(ctx, tactic);
        Z3_apply_result result = Z3_tactic_apply(ctx, tactic, goal);
        Z3_apply_result_inc_ref(ctx, result);
        Z3_solver solver = Z3_mk_solver(ctx);
        Z3_solver_inc_ref(ctx, solver);
        for (unsigned g = 0; g < Z3_apply_result_get_num_subgoals(ctx, result); ++g) {
            Z3_goal sub = Z3_apply_result_get_subgoal(ctx, result, g);
            for (unsigned i = 0; i < Z3_goal_size(ctx, sub); ++i)
                Z3_solver_assert(ctx, solver, Z3_goal_formula(ctx, sub, i));
        }
        benchmark::DoNotOptimize(Z3_solver_check(ctx, solver));
        Z3_solver_dec_ref(ctx, solver);
        Z3_apply_result_dec_ref(ctx, result);
        Z3_tactic_dec_ref(ctx, tactic);
        Z3_goal_dec_ref(ctx, goal);
        Z3_del_context(ctx);
    }
    state.SetItemsProcessed(state.iterations() * m);
}
BENCHMARK(BM_Solve_z3)->Arg(1000)->Arg(3000)->Iterations(1)->Unit(benchmark::kMillisecond);
#endif

#ifdef VORN_HAVE_FLINT
// Dense: an m × (2m + 1) rational matrix, so only the smaller sizes fit in time and memory.
// (Z3 above is limited the same way: its solve-eqs takes minutes from 10^4 equations on.)
void BM_Solve_flint(benchmark::State& state) {
    int m = static_cast<int>(state.range(0));
    auto system = make_system(m);
    for (auto _ : state) {
        fmpq_mat_t a;
        fmpq_mat_init(a, m, 2 * m + 1);
        for (int r = 0; r < m; ++r) {
            for (const auto& term : system[r].terms) {
                fmpq* entry = fmpq_mat_entry(a, r, term.var - 1);
                fmpq_add_si(entry, entry, term.coeff);
            }
            fmpq_set_si(fmpq_mat_entry(a, r, 2 * m), system[r].rhs, 1);
        }
        benchmark::DoNotOptimize(fmpq_mat_rref(a, a));
        fmpq_mat_clear(a);
    }
    state.SetItemsProcessed(state.iterations() * m);
}
BENCHMARK(BM_Solve_flint)->Arg(250)->Arg(1000)->Unit(benchmark::kMillisecond);
#endif

}  // namespace
