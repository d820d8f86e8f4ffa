#include "vorn/smt/name_table.h"

#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>

#include <stdexcept>

namespace vorn::smt {

namespace {

using Storage = NameTable::Storage;

struct Hash {
    using is_transparent = void;
    const Storage* storage;
    std::size_t operator()(std::string_view name) const {
        // absl's own string_view: std::string_view would go through std::hash.
        return absl::Hash<absl::string_view>{}(absl::string_view(name.data(), name.size()));
    }
    std::size_t operator()(std::uint32_t offset) const { return (*this)(storage->name_at(offset)); }
};

struct Equal {
    using is_transparent = void;
    const Storage* storage;
    bool operator()(std::uint32_t a, std::uint32_t b) const { return a == b; }
    bool operator()(std::uint32_t offset, std::string_view name) const {
        return storage->name_at(offset) == name;
    }
    bool operator()(std::string_view name, std::uint32_t offset) const {
        return storage->name_at(offset) == name;
    }
};

}  // namespace

struct NameTable::Index : absl::flat_hash_set<std::uint32_t, Hash, Equal> {
    using flat_hash_set::flat_hash_set;
};

void NameTable::IndexDeleter::operator()(Index* index) const {
    delete index;
}

NameTable::NameTable()
    : storage_(std::make_unique<Storage>()),
      offsets_(new Index(0, Hash{storage_.get()}, Equal{storage_.get()})) {}

std::uint32_t NameTable::intern(std::string_view name) {
    if (auto it = offsets_->find(name); it != offsets_->end()) return storage_->word_at(*it);
    Storage& s = *storage_;
    if (s.records.size() + 8 + name.size() > UINT32_MAX)
        throw std::length_error("names longer than 4 GiB in all");
    auto id = static_cast<std::uint32_t>(s.offsets.size());
    auto offset = static_cast<std::uint32_t>(s.records.size());
    const std::uint32_t header[2] = {id, static_cast<std::uint32_t>(name.size())};
    s.records.append(reinterpret_cast<const char*>(header), sizeof header);
    s.records.append(name);
    s.offsets.push_back(offset);
    offsets_->insert(offset);
    return id;
}

std::uint32_t NameTable::find(std::string_view name) const {
    auto it = offsets_->find(name);
    return it == offsets_->end() ? kNone : storage_->word_at(*it);
}

void NameTable::reserve(std::size_t names, std::size_t chars) {
    storage_->records.reserve(chars + 8 * names);
    storage_->offsets.reserve(names);
    offsets_->reserve(names);
}

}  // namespace vorn::smt
