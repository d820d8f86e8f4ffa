#include "cli/names.h"

#include <absl/hash/hash.h>

#include <stdexcept>

namespace vorn::cli {

NameTable::NameTable()
    : storage_(std::make_unique<Storage>()),
      offsets_(0, Hash{storage_.get()}, Equal{storage_.get()}) {}

std::size_t NameTable::Hash::operator()(std::string_view name) const {
    // absl's own string_view: std::string_view would go through std::hash.
    return absl::Hash<absl::string_view>{}(absl::string_view(name.data(), name.size()));
}

std::uint32_t NameTable::intern(std::string_view name) {
    if (auto it = offsets_.find(name); it != offsets_.end()) return storage_->word_at(*it);
    Storage& s = *storage_;
    if (s.records.size() + 8 + name.size() > UINT32_MAX)
        throw std::length_error("names longer than 4 GiB in all");
    auto id = static_cast<std::uint32_t>(s.offsets.size());
    auto offset = static_cast<std::uint32_t>(s.records.size());
    const std::uint32_t header[2] = {id, static_cast<std::uint32_t>(name.size())};
    s.records.append(reinterpret_cast<const char*>(header), sizeof header);
    s.records.append(name);
    s.offsets.push_back(offset);
    offsets_.insert(offset);
    return id;
}

std::uint32_t NameTable::find(std::string_view name) const {
    auto it = offsets_.find(name);
    return it == offsets_.end() ? kNone : storage_->word_at(*it);
}

void NameTable::reserve(std::size_t names, std::size_t chars) {
    storage_->records.reserve(chars + 8 * names);
    storage_->offsets.reserve(names);
    offsets_.reserve(names);
}

}  // namespace vorn::cli
