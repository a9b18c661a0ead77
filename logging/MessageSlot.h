#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <sstream>
#include <type_traits>
#include <utility>

namespace camclock {

/// A place for one message callable, inside the log's own memory: a timing-log row fits, so that posting it
/// allocates nothing. A callable that is larger takes a `std::function`'s way to the heap.
class MessageSlot {
public:
    MessageSlot() = default;
    MessageSlot(const MessageSlot&) = delete;
    MessageSlot& operator=(const MessageSlot&) = delete;
    ~MessageSlot() { Clear(); }

    /// Does a message of this type stand in the slot itself?
    template <class Message>
    static constexpr bool Fits() {
        constexpr bool kIsSmall = sizeof(Message) <= kSize;
        return kIsSmall && alignof(Message) <= alignof(std::max_align_t);
    }

    /// Keeps `message`. The slot is empty before.
    template <class Message>
    void Put(Message&& message) {
        using Kept = std::decay_t<Message>;
        if constexpr (Fits<Kept>()) {
            ::new (static_cast<void*>(memory_)) Kept(std::forward<Message>(message));
            run_ = [](void* kept, std::stringstream& out) { (*static_cast<Kept*>(kept))(out); };
            destroy_ = [](void* kept) { static_cast<Kept*>(kept)->~Kept(); };
        } else {
            Put(std::function<void(std::stringstream&)>(std::forward<Message>(message)));
        }
    }

    /// Writes the message. The slot is not empty.
    void Run(std::stringstream& out) { run_(memory_, out); }

    void Clear() {
        if (destroy_ != nullptr)
            std::exchange(destroy_, nullptr)(memory_);
    }

private:
    static constexpr std::size_t kSize = 144;  // a timing-log row has 136 bytes

    void (*run_)(void*, std::stringstream&) = nullptr;
    void (*destroy_)(void*) = nullptr;
    alignas(std::max_align_t) std::byte memory_[kSize];
};

}  // namespace camclock
