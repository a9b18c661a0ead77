#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

namespace camclock {

/// A queue whose memory goes round: entries stand in blocks, a consumer takes all blocks at
/// once and gives them back empty. A log at its steady rate thus allocates nothing, and a burst
/// never moves what is queued already.
///
/// Not locked; the owner guards it. `Entry` is default-constructible.
template <class Entry>
class EntryQueue {
public:
    struct Block {
        std::array<Entry, 8> entries;
        std::size_t used = 0;
        std::unique_ptr<Block> next;
    };

    /// Blocks in the order of their entries.
    struct Batch {
        std::unique_ptr<Block> first;

        Batch() = default;
        Batch(Batch&&) noexcept = default;
        Batch& operator=(Batch&& other) noexcept {
            _Release(first);
            first = std::move(other.first);
            return *this;
        }
        ~Batch() { _Release(first); }

        bool Empty() const { return !first; }
    };

    EntryQueue() = default;
    EntryQueue(const EntryQueue&) = delete;
    EntryQueue& operator=(const EntryQueue&) = delete;
    ~EntryQueue() { _Release(spare_); }

    bool Empty() const { return last_ == nullptr; }

    /// The place for one more entry, behind all others; it counts once `Commit` is called.
    Entry& Next() {
        if (last_ == nullptr || last_->used == last_->entries.size())
            _AddBlock();
        return last_->entries[last_->used];
    }

    void Commit() { ++last_->used; }

    /// Takes everything.
    Batch TakeAll() {
        last_ = nullptr;
        return std::move(queued_);
    }

    /// Takes blocks back, whose entries have been reset, as many as a busy moment
    /// needs; the rest stays in `batch`.
    void Recycle(Batch& batch) {
        while (batch.first && spareCount_ < kMostSpareBlocks) {
            std::unique_ptr<Block> block = std::move(batch.first);
            batch.first = std::move(block->next);
            block->used = 0;
            block->next = std::move(spare_);
            spare_ = std::move(block);
            ++spareCount_;
        }
    }

private:
    static constexpr std::size_t kMostSpareBlocks = 64;  // 512 entries: a tick of 51,200 messages a second

    void _AddBlock() {
        std::unique_ptr<Block> block;
        if (spare_) {
            block = std::move(spare_);
            spare_ = std::move(block->next);
            --spareCount_;
        } else {
            block = std::make_unique<Block>();
        }
        Block* const added = block.get();
        (last_ == nullptr ? queued_.first : last_->next) = std::move(block);
        last_ = added;
    }

    /// One block after the other: a long chain must not be freed by recursion.
    static void _Release(std::unique_ptr<Block>& chain) {
        while (chain)
            chain = std::move(chain->next);
    }

    Batch queued_;
    Block* last_ = nullptr;
    std::unique_ptr<Block> spare_;
    std::size_t spareCount_ = 0;
};

}  // namespace camclock
