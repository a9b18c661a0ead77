#pragma once

#include "util/CriticalSection.h"
#include "util/Immortal.h"

#include <cstddef>
#include <memory>
#include <mutex>

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace camclock {

/// The process's one `T`, while anybody holds it: made with its first holder, destroyed with its last. A
/// static `T` would be destroyed before static objects that still use it, and its thread would outlive an
/// unloaded library.
///
/// Any number of threads may make and destroy holders at once.
///
///     const ProcessWide<Tick> tick;
///     tick->Join(*this);
///
/// A child of fork() has a `T` of its own, as threads do not come along; holders that it inherited keep the
/// parent's, in the state of that moment, and never free it.
template <class T>
class ProcessWide {
public:
    ProcessWide() {
        Shared& shared = _TheShared();
        const std::lock_guard<CriticalSection> guard(shared.lock);
        if (shared.process != _ThisProcess()) {
            shared.process = _ThisProcess();
            shared.object = nullptr;
            shared.holders = 0;
        }
        if (shared.holders == 0)
            shared.object = new T;
        ++shared.holders;
        object_ = shared.object;
    }

    ~ProcessWide() {
        std::unique_ptr<T> last;  // destroyed without the lock: a thread may have to be joined
        Shared& shared = _TheShared();
        const std::lock_guard<CriticalSection> guard(shared.lock);
        if (object_ == shared.object && --shared.holders == 0) {
            last.reset(shared.object);
            shared.object = nullptr;
        }
    }

    ProcessWide(const ProcessWide&) = delete;
    ProcessWide& operator=(const ProcessWide&) = delete;

    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }

private:
    struct Shared {
        CriticalSection lock;  // guards the rest
        T* object = nullptr;
        std::size_t holders = 0;
        long process = 0;  // that made `object`
    };

    static Shared& _TheShared() {
        static Immortal<Shared> shared;
        return *shared;
    }

    static long _ThisProcess() {
#if defined(_WIN32)
        return 1;  // never forks
#else
        return getpid();
#endif
    }

    T* object_;
};

}  // namespace camclock
