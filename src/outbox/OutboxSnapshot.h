#pragma once

#include "outbox/OutboxItem.h"

#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace cadora {

// The items of the outbox at one moment. Copies share them; whoever walks over them is handed a copy of one
// item at a time, which is his to change: so many passes over many items hold them once.
class OutboxSnapshot {
public:
    class Iterator {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = OutboxItem;
        using difference_type = std::ptrdiff_t;
        using pointer = OutboxItem*;
        using reference = OutboxItem&;

        Iterator(const std::vector<OutboxItem>& items, std::size_t index) : items_(&items), index_(index) {
            fetch();
        }

        // Belongs to this iterator, and lives until it moves on.
        OutboxItem& operator*() { return item_; }
        Iterator& operator++() {
            ++index_;
            fetch();
            return *this;
        }
        friend bool operator==(const Iterator& a, const Iterator& b) { return a.index_ == b.index_; }

    private:
        void fetch() {
            if (index_ < items_->size()) {
                item_ = (*items_)[index_];
            }
        }

        const std::vector<OutboxItem>* items_;
        std::size_t index_;
        OutboxItem item_;
    };

    OutboxSnapshot() : OutboxSnapshot(std::vector<OutboxItem>()) {}
    explicit OutboxSnapshot(std::vector<OutboxItem> items)
        : items_(std::make_shared<const std::vector<OutboxItem>>(std::move(items))) {}

    const std::vector<OutboxItem>& items() const { return *items_; }
    bool empty() const { return items_->empty(); }
    std::size_t size() const { return items_->size(); }
    const OutboxItem& at(std::size_t index) const { return items_->at(index); }
    const OutboxItem& operator[](std::size_t index) const { return (*items_)[index]; }
    const OutboxItem& back() const { return items_->back(); }

    // The snapshot outlives them.
    Iterator begin() const { return {*items_, 0}; }
    Iterator end() const { return {*items_, items_->size()}; }

    // Of one and the same reading of the index, without a look at the items.
    bool isSameAs(const OutboxSnapshot& other) const { return items_ == other.items_; }

    friend bool operator==(const OutboxSnapshot& a, const std::vector<OutboxItem>& b) {
        return *a.items_ == b;
    }

private:
    std::shared_ptr<const std::vector<OutboxItem>> items_;
};

} // namespace cadora
