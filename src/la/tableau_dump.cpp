// The tableau's text: every present row in ascending order, then the columns header.

#include <string>

#include "vorn/la/tableau.h"

namespace vorn::la {

std::string Tableau::to_str() const {
    std::string text = "ROWS:\n";
    for (auto it = rows_.begin(); it != rows_.end(); ++it) {
        text += "s: ";
        text += std::to_string(it.index());
        text += " <--> ";
        text += it.value() != nullptr ? it.value()->to_str(false) : " NULL! ";
        text += '\n';
    }
    text += "\nCOLS:\n";
    return text;
}

}  // namespace vorn::la
