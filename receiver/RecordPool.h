#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <new>

namespace camclock::receiver {

/// Memory for records that are made on one thread, shared with the library's logs and let go there: a record
/// takes the place of an earlier one, so that in steady state nothing is allocated.
///
/// Any thread. Records may outlive the pool.
///
///     auto timing = pool.Make<TimingData>();
class RecordPool {
public:
    template <class Record>
    std::shared_ptr<Record> Make() {
        return std::allocate_shared<Record>(Allocator<Record>(store_));
    }

private:
    /// Free blocks of one size, which the first allocation tells.
    class Store {
    public:
        Store() = default;
        Store(const Store&) = delete;
        Store& operator=(const Store&) = delete;
        ~Store() {
            while (free_ != nullptr)
                ::operator delete(_Pop());
        }

        void* Take(std::size_t size) {
            const std::lock_guard<std::mutex> guard(mutex_);
            if (size_ == 0)
                size_ = size < sizeof(Block) ? sizeof(Block) : size;
            return free_ != nullptr && size <= size_ ? _Pop() : ::operator new(size < size_ ? size_ : size);
        }

        void GiveBack(void* memory, std::size_t size) {
            const std::lock_guard<std::mutex> guard(mutex_);
            if (size > size_) {
                ::operator delete(memory);
                return;
            }
            free_ = new (memory) Block{free_};
        }

    private:
        struct Block {
            Block* next;
        };

        void* _Pop() {
            Block* block = free_;
            free_ = block->next;
            return block;
        }

        std::mutex mutex_;  // guards all below
        Block* free_ = nullptr;
        std::size_t size_ = 0;
    };

    template <class T>
    class Allocator {
    public:
        using value_type = T;

        explicit Allocator(std::shared_ptr<Store> store)
            : store_(std::move(store)) {}

        template <class Other>
        Allocator(const Allocator<Other>& other)  // NOLINT(google-explicit-constructor): allocators convert
            : store_(other.store_) {}

        T* allocate(std::size_t count) { return static_cast<T*>(store_->Take(count * sizeof(T))); }
        void deallocate(T* memory, std::size_t count) { store_->GiveBack(memory, count * sizeof(T)); }

        friend bool operator==(const Allocator& a, const Allocator& b) { return a.store_ == b.store_; }
        friend bool operator!=(const Allocator& a, const Allocator& b) { return !(a == b); }

    private:
        template <class>
        friend class Allocator;
        std::shared_ptr<Store> store_;
    };

    std::shared_ptr<Store> store_ = std::make_shared<Store>();
};

}  // namespace camclock::receiver
