#pragma once

// The variables of a problem: numbered from 1 in order of creation, each with its name, its sort
// and where it was declared (its first use in the plain format). Names stay interned for good;
// variables can be truncated (pops), which gives their numbers out again.

#include <cstdint>
#include <string_view>
#include <vector>

#include "vorn/smt/name_table.h"
#include "vorn/smt/source_pos.h"

namespace vorn::smt {

// Bool variables occur in the Boolean structure only; their model values are 0 and 1.
enum class Sort : std::uint8_t { Real, Int, Bool };

// How names are written back: SMT-LIB symbols need |bars| when their plain form would not read
// back; names of the plain format are identifiers and never do.
enum class NameSyntax : std::uint8_t { Plain, SmtLib };

class Variables {
  public:
    explicit Variables(NameSyntax syntax = NameSyntax::Plain) : syntax_(syntax) {}

    // The variable called `name`, added with `sort` and `pos` when there is none yet.
    int intern(std::string_view name, Sort sort, SourcePos pos) {
        std::uint32_t id = names_.intern(name);
        if (id == latest_.size() || latest_[id] == 0) return add(name, sort, pos);
        return latest_[id];
    }
    // A new variable called `name`, even when one is called so already: a name declared again
    // after a pop names a new variable, and find() gives the newest.
    int add(std::string_view name, Sort sort, SourcePos pos) {
        std::uint32_t id = names_.intern(name);
        if (id == latest_.size()) return new_variable(id, sort, pos);
        int v = new_variable(id, sort, pos);
        info_.back().shadowed = latest_[id];
        latest_[id] = v;
        return v;
    }
    // Forgets the variables after the first n (a pop): their numbers are given out again, and
    // each name finds the variable it found before they were added. O(variables forgotten).
    void truncate(int n) {
        while (size() > n) {
            const Info& gone = info_.back();
            latest_[gone.name] = gone.shadowed;
            info_.pop_back();
        }
    }
    // 0 when there is no such variable.
    int find(std::string_view name) const {
        std::uint32_t id = names_.find(name);
        return id == NameTable::kNone ? 0 : latest_[id];
    }
    std::string_view name(int v) const { return names_.name(info(v).name); }
    Sort sort(int v) const { return info(v).sort; }
    void set_sort(int v, Sort sort) { info_[static_cast<std::size_t>(v - 1)].sort = sort; }
    SourcePos declared(int v) const { return info(v).declared; }
    int size() const { return static_cast<int>(info_.size()); }
    NameSyntax syntax() const { return syntax_; }
    void reserve(std::size_t variables, std::size_t name_chars) {
        names_.reserve(variables, name_chars);
        info_.reserve(variables);
        latest_.reserve(variables);
    }

  private:
    struct Info {
        SourcePos declared;
        Sort sort;
        std::uint32_t name;
        int shadowed;  // the variable its name found before it, 0: none
    };

    const Info& info(int v) const { return info_[static_cast<std::size_t>(v - 1)]; }
    int new_variable(std::uint32_t name, Sort sort, SourcePos pos) {
        info_.push_back({pos, sort, name, 0});
        int v = static_cast<int>(info_.size());
        if (name == latest_.size()) latest_.push_back(v);
        return v;
    }

    NameTable names_;
    std::vector<Info> info_;   // by variable − 1
    std::vector<int> latest_;  // by name: its newest variable
    NameSyntax syntax_;
};

}  // namespace vorn::smt
