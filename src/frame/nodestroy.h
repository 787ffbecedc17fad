// NoDestroyM<T> and InPlaceM<T>: the two ways this library keeps a
// process-wide object whose lifetime it decides itself.
//
// NoDestroyM<T> is for an object made once, on first use, and never
// destroyed (the string factory, the encodings, the tracer, ...): declared
// as a function-local static, it is built under the compiler's one-time
// guard, and since its own destructor is trivial no exit action is
// registered for it, so the object stays usable through exit and through
// the destructors of other statics.
//
// InPlaceM<T> is for an object that a load step makes and an exit action
// ends (the latches, the shared empty argument list, the default trim set):
// plain static storage, zero until the step runs, with no constructor of its
// own that the compiler could run after the load steps and so overwrite what
// a step built.
#ifndef KEEL_FRAME_NODESTROY_H
#define KEEL_FRAME_NODESTROY_H

#include <new>
#include <utility>

namespace keel {

template <typename T>
class NoDestroyM {
public:
    template <typename... Args>
    explicit NoDestroyM(Args&&... args) {
        new (storage_) T(std::forward<Args>(args)...);
    }
    NoDestroyM(const NoDestroyM&) = delete;
    NoDestroyM& operator=(const NoDestroyM&) = delete;

    T* get() { return std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() { return get(); }
    T& operator*() { return *get(); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

template <typename T>
class InPlaceM {
public:
    template <typename... Args>
    T* make(Args&&... args) {
        return new (storage_) T(std::forward<Args>(args)...);
    }
    void destroy() { get()->~T(); }

    T* get() { return std::launder(reinterpret_cast<T*>(storage_)); }
    T* operator->() { return get(); }
    T& operator*() { return *get(); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace keel

#endif
