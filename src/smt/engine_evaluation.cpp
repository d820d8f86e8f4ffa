// Engine: the model of the last Sat check, evaluated once and extended as formulas are added.

#include "vorn/smt/engine.h"
#include "vorn/smt/model_check.h"

namespace vorn::smt {

const std::vector<QNumber>& Engine::model_values() {
    if (model_evaluated_) return encoder_.extend_model();
    model_evaluated_ = true;
    return encoder_.evaluate_model(last_.model);
}

int Engine::holds(FormulaRef ref) {
    (void)model_values();
    return encoder_.holds(ref);
}

QNumber Engine::value(const LinearExpr& term) {
    return evaluate(term.entries(), model_values());
}

}  // namespace vorn::smt
