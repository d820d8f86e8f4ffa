#pragma once

// Everything public in one include.

#include "vorn/hsh/hashtable.h"
#include "vorn/la/eliminate_greedy.h"
#include "vorn/la/equation.h"
#include "vorn/la/tableau.h"
#include "vorn/la/varhashmap.h"
#include "vorn/la/varmap.h"
#include "vorn/la/varset.h"
#include "vorn/lra/bound_trail.h"
#include "vorn/lra/branch_and_bound.h"
#include "vorn/lra/delta_rational.h"
#include "vorn/lra/relation.h"
#include "vorn/lra/simplex.h"
#include "vorn/lra/term_table.h"
#include "vorn/numbers/qnumber.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/solver.h"
#include "vorn/util/array_growth.h"
#include "vorn/util/memory_pool.h"
#include "vorn/util/result.h"
#include "vorn/util/sort.h"
