#pragma once

// Hashtable: separate chaining with prime bucket counts and pooled nodes.
//
// The bucket count is 31 at construction and afterwards always one of `primes`. Every node is a
// block of the table's own MemoryPool and lies in the chain of its key's bucket (hash modulo the
// bucket count); new nodes go to the head of their chain. operator[] first tests the load
// (count / buckets in 32-bit floats, strictly above 0.7) and grows to the next prime. Growth
// relinks the existing nodes, so a reference to a stored value stays valid until its own key is
// erased. Iteration visits buckets in index order and each chain from its head.
//
// Costs: expected O(1) find/insert/erase; the general allocator is called only for the bucket
// array and for pool chunks.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "vorn/util/memory_pool.h"

namespace vorn::hsh {

// Bucket counts: prime, roughly doubling from 151 on, the last just below 2^32. One table for the
// whole program (inline), since the table's templates read it from every translation unit.
inline constexpr std::uint64_t primes[28] = {
    31ul,       73ul,        151ul,       313ul,       643ul,        1291ul,       2593ul,
    5233ul,     10501ul,     21013ul,     42073ul,     84181ul,      168451ul,     337219ul,
    674701ul,   1349473ul,   2699299ul,   5398891ul,   10798093ul,   21596719ul,   43193641ul,
    86387383ul, 172775299ul, 345550609ul, 691101253ul, 1382202559ul, 2764405229ul, 4294867387ul};

template <class T>
struct hash;

// Sign-extends: the key -1 hashes to 2^64 - 1.
template <>
struct hash<int> {
    std::size_t operator()(int key) const {
        return static_cast<std::size_t>(static_cast<std::int64_t>(key));
    }
};

template <class K, class V>
struct GetKey_pair {
    const K& operator()(const std::pair<K, V>& value) const { return value.first; }
};

template <class Value, class GetKey, class Key, class Hash, class Eq>
class Hashtable {
  public:
    struct Bucket {
        Bucket* next;
        Value value;
    };

    // Buckets in index order, each chain from its head; a const table hands out const values.
    template <bool kConst>
    class basic_iterator {
      public:
        using Node = std::conditional_t<kConst, const Bucket, Bucket>;
        using Ref = std::conditional_t<kConst, const Value&, Value&>;

        basic_iterator(const Hashtable* table, std::size_t bucket, Node* node)
            : table_(table), bucket_(bucket), node_(node) {}
        operator basic_iterator<true>() const { return {table_, bucket_, node_}; }
        Ref operator*() const { return node_->value; }
        auto* operator->() const { return &node_->value; }
        Node* node() const { return node_; }
        basic_iterator& operator++() {
            node_ = node_->next;
            if (node_ == nullptr) seek(bucket_ + 1);
            return *this;
        }
        bool operator==(const basic_iterator& o) const { return node_ == o.node_; }

      private:
        friend class Hashtable;
        // Moves to the head of the first non-empty bucket at or after `from`.
        void seek(std::size_t from) {
            const auto& heads = table_->buckets_;
            for (bucket_ = from; bucket_ < heads.size(); ++bucket_)
                if (heads[bucket_] != nullptr) {
                    node_ = heads[bucket_];
                    return;
                }
            node_ = nullptr;
        }
        const Hashtable* table_;
        std::size_t bucket_;
        Node* node_;
    };
    using iterator = basic_iterator<false>;
    using const_iterator = basic_iterator<true>;

    Hashtable() : buckets_(primes[0], nullptr) {}
    Hashtable(const Hashtable&) = delete;
    Hashtable& operator=(const Hashtable&) = delete;
    ~Hashtable() {
        for (Bucket* head : buckets_)
            for (Bucket* node = head; node != nullptr;) {
                Bucket* next = node->next;
                release(node);
                node = next;
            }
    }

    // Never inserts and never rehashes; an empty table is not even hashed into.
    Bucket* find(const Key& key) {
        return count_ == 0 ? nullptr : find_in_chain(bucket_of(key), key);
    }
    const Bucket* find(const Key& key) const {
        return count_ == 0 ? nullptr : find_in_chain(bucket_of(key), key);
    }

    void erase(const Key& key) {
        Bucket** link = &buckets_[bucket_of(key)];
        while (*link != nullptr && !eq_(get_key_((*link)->value), key))
            link = &(*link)->next;
        Bucket* node = *link;
        if (node == nullptr) return;
        *link = node->next;
        --count_;
        release(node);
    }

    Bucket* new_Bucket(const Value& value) {
        Value copy(value);
        void* block = pool_.allocate();
        return ::new (block) Bucket{nullptr, std::move(copy)};
    }

    // The bucket count rehash(n) grows to: the first prime not below n, or the largest prime.
    static std::size_t bucket_count_for(unsigned long n) {
        const std::uint64_t* end = primes + std::size(primes);
        const std::uint64_t* target = std::lower_bound(primes, end, std::uint64_t{n});
        return target == end ? primes[std::size(primes) - 1] : *target;
    }

    void rehash(unsigned long n) {
        if (buckets_.size() >= n) return;
        // The fresh array exists before the old one is touched: a failure leaves the table as is.
        std::vector<Bucket*> fresh(bucket_count_for(n), nullptr);
        fresh.swap(buckets_);
        for (Bucket* head : fresh)
            for (Bucket* node = head; node != nullptr;) {
                Bucket* next = node->next;
                Bucket*& chain = buckets_[bucket_of(get_key_(node->value))];
                node->next = chain;
                chain = node;
                node = next;
            }
    }

    std::size_t size() const { return count_; }
    bool empty() const { return count_ == 0; }
    std::size_t bucket_count() const { return buckets_.size(); }
    const std::vector<Bucket*>& buckets() const { return buckets_; }
    const MemoryPool<sizeof(Bucket), false>& pool() const { return pool_; }

    iterator begin() { return first<false>(); }
    iterator end() { return iterator(this, buckets_.size(), nullptr); }
    const_iterator begin() const { return first<true>(); }
    const_iterator end() const { return const_iterator(this, buckets_.size(), nullptr); }

  protected:
    std::size_t bucket_of(const Key& key) const {
        return static_cast<std::uint64_t>(hash_(key)) % buckets_.size();
    }

    // The load test every inserting lookup makes first.
    void grow_if_loaded() {
        double load =
            static_cast<double>(static_cast<float>(count_) / static_cast<float>(buckets_.size()));
        if (load > 0.7) rehash(buckets_.size() + 1);
    }

    Bucket* find_in_chain(std::size_t bucket, const Key& key) const {
        for (Bucket* node = buckets_[bucket]; node != nullptr; node = node->next)
            if (eq_(get_key_(node->value), key)) return node;
        return nullptr;
    }

    Bucket* link_at_head(std::size_t bucket, Bucket* node) {
        node->next = buckets_[bucket];
        buckets_[bucket] = node;
        ++count_;
        return node;
    }

  private:
    template <bool kConst>
    basic_iterator<kConst> first() const {
        basic_iterator<kConst> it(this, 0, nullptr);
        it.seek(0);
        return it;
    }

    void release(Bucket* node) {
        node->~Bucket();
        pool_.deallocate(node);
    }

    MemoryPool<sizeof(Bucket), false> pool_;
    std::vector<Bucket*> buckets_;
    std::size_t count_ = 0;
    [[no_unique_address]] GetKey get_key_;
    [[no_unique_address]] Hash hash_;
    [[no_unique_address]] Eq eq_;
};

template <class K, class V, class Hash = hash<K>, class Eq = std::equal_to<K>>
class HashMap : public Hashtable<std::pair<K, V>, GetKey_pair<K, V>, K, Hash, Eq> {
    using Base = Hashtable<std::pair<K, V>, GetKey_pair<K, V>, K, Hash, Eq>;

  public:
    // Finds k, inserting it with a default value if absent; the reference survives growth.
    V& operator[](const K& k) {
        this->grow_if_loaded();
        std::size_t bucket = this->bucket_of(k);
        if (typename Base::Bucket* node = this->find_in_chain(bucket, k)) return node->value.second;
        return this->link_at_head(bucket, this->new_Bucket(std::pair<K, V>(k, V())))->value.second;
    }
};

}  // namespace vorn::hsh
