#pragma once

#include <new>

namespace camclock {

/// Keeps a `T` that is never destroyed, for what static objects of the application may still need at the end
/// of the process: they are destroyed after every static object that was made later, whichever that was.
///
/// Made as a static object inside a function, so that its first user makes it. The `T` stands in static
/// storage itself, and nothing is left behind when the library is unloaded, provided that `T` owns nothing.
template <class T>
class Immortal {
public:
    Immortal() { ::new (static_cast<void*>(storage_)) T; }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& operator*() { return *std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() { return &**this; }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace camclock
