#pragma once

// Interned names: each distinct name is stored once and numbered from 0 in order of first
// appearance. A name lives in one byte buffer as a record (its number, its length, its bytes);
// the index is an open-addressing hash set (absl::flat_hash_set) of record offsets whose hash and
// equality read the records. A slot is 4 bytes, so the index of 10^5 names stays within a
// megabyte, a lookup touches one group of control bytes, one slot and one record and copies
// nothing, and the buffer may grow and move. (Slots holding short names inline, which spare the
// record, measured 2.5 times slower on 2·10^5 names: the larger table misses more than it saves.)
// intern and find cost one hash of the name and, on a hit, one comparison; name(id) is two array
// reads.

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::smt {

class NameTable {
  public:
    static constexpr std::uint32_t kNone = UINT32_MAX;

    NameTable();
    NameTable(NameTable&&) noexcept = default;
    NameTable& operator=(NameTable&&) noexcept = default;

    // The number of `name`, added when it is new.
    std::uint32_t intern(std::string_view name);
    // The number of `name`, or kNone.
    std::uint32_t find(std::string_view name) const;
    // Valid until the next intern.
    std::string_view name(std::uint32_t id) const {
        return storage_->name_at(storage_->offsets[id]);
    }
    std::uint32_t size() const { return static_cast<std::uint32_t>(storage_->offsets.size()); }
    void reserve(std::size_t names, std::size_t chars);

    // The records, on the heap, so that the hash functions' pointer to it survives a move of the
    // table.
    struct Storage {
        std::string records;                 // per name: id, length (two uint32), bytes
        std::vector<std::uint32_t> offsets;  // by id
        std::uint32_t word_at(std::size_t at) const {
            std::uint32_t w;
            std::memcpy(&w, records.data() + at, sizeof w);
            return w;
        }
        std::string_view name_at(std::uint32_t offset) const {
            return {records.data() + offset + 8, word_at(offset + 4)};
        }
    };

  private:
    // The hash set of offsets; its type stays out of this header.
    struct Index;
    struct IndexDeleter {
        void operator()(Index* index) const;
    };

    std::unique_ptr<Storage> storage_;
    std::unique_ptr<Index, IndexDeleter> offsets_;
};

}  // namespace vorn::smt
