#include "vorn/lra/delta_rational.h"

namespace vorn::lra {

std::string DeltaRational::to_string() const {
    std::string out = real_.to_string();
    if (delta_.is_zero()) return out;
    bool negative = delta_.sign() < 0;
    out += negative ? " - " : " + ";
    QNumber magnitude = negative ? -delta_ : delta_;
    if (!magnitude.is_one()) out += magnitude.to_string();
    out += "δ";
    return out;
}

}  // namespace vorn::lra
