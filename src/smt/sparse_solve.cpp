#include "sparse_solve.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <queue>

namespace vorn::smt {

namespace {

using Entry = std::pair<int, QNumber>;

bool by_column(const Entry& a, const Entry& b) {
    return a.first < b.first;
}

const QNumber* find(const SparseRow& row, int col) {
    auto it = std::lower_bound(row.begin(), row.end(), Entry{col, QNumber()}, by_column);
    return it != row.end() && it->first == col ? &it->second : nullptr;
}

class Eliminator {
  public:
    Eliminator(std::vector<SparseRow> rows, std::vector<QNumber> b)
        : rows_(std::move(rows)), b_(std::move(b)) {
        n_ = static_cast<int>(rows_.size());
        rows_of_.resize(static_cast<std::size_t>(n_));
        count_.assign(static_cast<std::size_t>(n_), 0);
        active_.assign(static_cast<std::size_t>(n_), 1);
        seen_.assign(static_cast<std::size_t>(n_), 0);
        for (int r = 0; r < n_; ++r) {
            SparseRow& row = rows_[static_cast<std::size_t>(r)];
            std::sort(row.begin(), row.end(), by_column);
            std::erase_if(row, [](const Entry& e) { return e.second.is_zero(); });
            for (const Entry& e : row)
                note_entry(r, e.first);
        }
        for (int c = 0; c < n_; ++c)
            queue_.push({count_[static_cast<std::size_t>(c)], c});
    }

    std::optional<std::vector<QNumber>> run(util::Stop* stop) {
        std::vector<std::pair<int, int>> order;  // (row, column) in pivot order
        std::vector<char> done(static_cast<std::size_t>(n_), 0);
        while (!queue_.empty()) {
            auto [count, col] = queue_.top();
            queue_.pop();
            if (done[static_cast<std::size_t>(col)] ||
                count != count_[static_cast<std::size_t>(col)])
                continue;
            if (stop != nullptr && stop->requested()) return std::nullopt;
            int pivot = shortest_row_with(col);
            if (pivot < 0) return std::nullopt;  // an empty column: singular
            done[static_cast<std::size_t>(col)] = 1;
            active_[static_cast<std::size_t>(pivot)] = 0;
            order.push_back({pivot, col});
            eliminate(pivot, col);
        }
        if (order.size() != static_cast<std::size_t>(n_)) return std::nullopt;
        std::vector<QNumber> x(static_cast<std::size_t>(n_));
        for (auto it = order.rbegin(); it != order.rend(); ++it) {
            auto [r, col] = *it;
            QNumber sum = b_[static_cast<std::size_t>(r)];
            QNumber pivot_value;
            for (const Entry& e : rows_[static_cast<std::size_t>(r)])
                if (e.first == col)
                    pivot_value = e.second;
                else
                    sum.add_product(-e.second, x[static_cast<std::size_t>(e.first)]);
            x[static_cast<std::size_t>(col)] = sum / pivot_value;
        }
        return x;
    }

  private:
    void note_entry(int row, int col) {
        rows_of_[static_cast<std::size_t>(col)].push_back(row);
        ++count_[static_cast<std::size_t>(col)];
    }

    // The active rows holding `col`, each once (the lists keep rows whose entry cancelled).
    void collect(int col, std::vector<int>& out) {
        out.clear();
        ++stamp_;
        auto& list = rows_of_[static_cast<std::size_t>(col)];
        std::size_t kept = 0;
        for (int r : list) {
            if (!active_[static_cast<std::size_t>(r)] ||
                seen_[static_cast<std::size_t>(r)] == stamp_ ||
                find(rows_[static_cast<std::size_t>(r)], col) == nullptr)
                continue;
            seen_[static_cast<std::size_t>(r)] = stamp_;
            list[kept++] = r;
            out.push_back(r);
        }
        list.resize(kept);
    }

    int shortest_row_with(int col) {
        collect(col, candidates_);
        int best = -1;
        for (int r : candidates_)
            if (best < 0 || rows_[static_cast<std::size_t>(r)].size() <
                                rows_[static_cast<std::size_t>(best)].size())
                best = r;
        return best;
    }

    // Removes `col` from every other active row by subtracting a multiple of the pivot row.
    void eliminate(int pivot, int col) {
        const SparseRow& p = rows_[static_cast<std::size_t>(pivot)];
        QNumber pivot_value = *find(p, col);
        for (const Entry& e : p)
            --count_[static_cast<std::size_t>(e.first)];
        for (int r : candidates_) {
            if (r == pivot) continue;
            SparseRow& row = rows_[static_cast<std::size_t>(r)];
            QNumber factor = *find(row, col) / pivot_value;
            merged_.clear();
            std::size_t i = 0, j = 0;
            while (i < row.size() || j < p.size()) {
                if (j == p.size() || (i < row.size() && row[i].first < p[j].first)) {
                    merged_.push_back(std::move(row[i++]));
                } else if (i == row.size() || p[j].first < row[i].first) {
                    merged_.push_back({p[j].first, -factor * p[j].second});
                    note_entry(r, p[j].first);
                    ++j;
                } else {
                    QNumber v = std::move(row[i].second);
                    v.add_product(-factor, p[j].second);
                    if (v.is_zero())
                        --count_[static_cast<std::size_t>(p[j].first)];
                    else
                        merged_.push_back({p[j].first, std::move(v)});
                    ++i, ++j;
                }
            }
            row.swap(merged_);
            b_[static_cast<std::size_t>(r)].add_product(-factor,
                                                        b_[static_cast<std::size_t>(pivot)]);
        }
        // Counts changed: requeue the pivot row's columns (their fill-ins and cancellations).
        for (const Entry& e : p)
            if (e.first != col) queue_.push({count_[static_cast<std::size_t>(e.first)], e.first});
    }

    int n_ = 0;
    std::vector<SparseRow> rows_;
    std::vector<QNumber> b_;
    std::vector<std::vector<int>> rows_of_;  // by column, a superset of its active rows
    std::vector<int> count_;                 // by column, entries in active rows
    std::vector<char> active_;
    std::vector<std::uint32_t> seen_;
    std::uint32_t stamp_ = 0;
    std::vector<int> candidates_;
    SparseRow merged_;
    std::priority_queue<std::pair<int, int>, std::vector<std::pair<int, int>>, std::greater<>>
        queue_;
};

}  // namespace

std::optional<std::vector<QNumber>> solve_square(std::vector<SparseRow> rows,
                                                 std::vector<QNumber> b, util::Stop* stop) {
    if (rows.size() != b.size()) return std::nullopt;
    for (const SparseRow& row : rows)
        for (const Entry& e : row)
            if (e.first < 0 || e.first >= static_cast<int>(rows.size())) return std::nullopt;
    return Eliminator(std::move(rows), std::move(b)).run(stop);
}

std::vector<SparseRow> transpose(const std::vector<SparseRow>& rows, int n) {
    std::vector<SparseRow> out(static_cast<std::size_t>(n));
    for (std::size_t r = 0; r < rows.size(); ++r)
        for (const Entry& e : rows[r])
            out[static_cast<std::size_t>(e.first)].push_back({static_cast<int>(r), e.second});
    return out;
}

}  // namespace vorn::smt
