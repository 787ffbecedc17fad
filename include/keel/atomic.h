// AtomicM<T>: the cell for every field that more than one thread may touch
// without a lock (string handles, cached string fields, ready flags, ...).
//
// Reading is an aligned acquire load; every write to a cell that other
// threads may reach is one atomic exchange (`xchg`, which on x86 is a full
// barrier already; a compare-and-swap loop would only add a retry). There is
// deliberately no other operation: callers that need read-modify-write use
// their own protocol on top of exchange. The constructors, and
// `initialize`, store plainly: an object under construction is not yet
// reachable by any other thread, and whatever later hands it over (an
// exchange into a shared cell, a lock, a thread start) orders these stores
// before the other thread's reads.
//
// Cells of pointers, 32-bit integers and bytes, and 64-bit cells (the string
// cursor keeps its index and offset in one), all without a lock on both
// targets: on i386 an 8-byte cell is aligned to 8 so that its load is one
// memory access and its exchange a cmpxchg8b.
//
// Below the cell, the few atomic operations on plain fields that AtomicM
// deliberately leaves out (a counter's increment, a relaxed flag, a
// compare-and-swap publication). Every atomic access in the library goes
// through AtomicM or one of these, never through the compiler's builtins
// directly, so that the memory order of each is named where it is used.
#ifndef KEEL_ATOMIC_H
#define KEEL_ATOMIC_H

namespace keel {

template <typename T>
class AtomicM {
    static_assert(sizeof(T) == 1 || sizeof(T) == 4 || sizeof(T) == 8, "a cell of 1, 4 or 8 bytes");
    static_assert(__atomic_always_lock_free(sizeof(T), 0), "a cell that needs no lock");

public:
    AtomicM() : value_() {}
    explicit AtomicM(T initial) : value_(initial) {}
    AtomicM(const AtomicM&) = delete;
    AtomicM& operator=(const AtomicM&) = delete;

    // An acquire load, not a relaxed one: a reader that follows a pointer
    // read here (the current file service, the process catalog, a string
    // handle) must see everything the writer did before its exchange, and a
    // relaxed load would not order those reads after it. On x86 it is still
    // the plain aligned load.
    T load() const { return __atomic_load_n(&value_, __ATOMIC_ACQUIRE); }
    operator T() const { return load(); }

    // Stores `desired` and answers the value it replaced.
    T exchange(T desired) { return __atomic_exchange_n(&value_, desired, __ATOMIC_ACQ_REL); }
    // A store into a cell that holds null and that only its owner writes
    // (a list adding its first entry): a release store, so that a reader that
    // loads the pointer sees the object whole. On x86 a plain store.
    void publish(T value) { __atomic_store_n(&value_, value, __ATOMIC_RELEASE); }
    // The first store into a cell that its owner is still constructing and
    // no other thread can see yet (a handle's constructor): a plain store.
    void initialize(T value) { __atomic_store_n(&value_, value, __ATOMIC_RELAXED); }
    AtomicM& operator=(T desired) {
        exchange(desired);
        return *this;
    }

private:
    alignas(sizeof(T)) T value_;
};

// Loads and stores by memory order.
template <typename T>
inline T atomicLoadRelaxed(const T* cell) {
    return __atomic_load_n(cell, __ATOMIC_RELAXED);
}
template <typename T>
inline T atomicLoadAcquire(const T* cell) {
    return __atomic_load_n(cell, __ATOMIC_ACQUIRE);
}
template <typename T, typename U>
inline void atomicStoreRelaxed(T* cell, U value) {
    __atomic_store_n(cell, static_cast<T>(value), __ATOMIC_RELAXED);
}
template <typename T, typename U>
inline void atomicStoreRelease(T* cell, U value) {
    __atomic_store_n(cell, static_cast<T>(value), __ATOMIC_RELEASE);
}

// Read-modify-write on a counter. The add-and-fetch forms answer the new
// value, the fetch-and-add form the value before.
template <typename T, typename U>
inline T atomicAddRelaxed(T* cell, U delta) {
    return __atomic_add_fetch(cell, static_cast<T>(delta), __ATOMIC_RELAXED);
}
template <typename T, typename U>
inline T atomicAddAcqRel(T* cell, U delta) {
    return __atomic_add_fetch(cell, static_cast<T>(delta), __ATOMIC_ACQ_REL);
}
template <typename T, typename U>
inline T atomicFetchAddRelaxed(T* cell, U delta) {
    return __atomic_fetch_add(cell, static_cast<T>(delta), __ATOMIC_RELAXED);
}

// Stores `desired` and answers the value it replaced, in one step (the
// exchange of a plain pointer field that AtomicM's own loop does for a cell).
template <typename T>
inline T atomicExchange(T* cell, T desired) {
    return __atomic_exchange_n(cell, desired, __ATOMIC_ACQ_REL);
}

// Publication of a value made without a lock: stores `desired` when the cell
// still holds `expected` and answers true; otherwise answers false with
// `expected` set to what the cell holds (acquired, so the winner's object is
// seen whole).
template <typename T>
inline bool atomicCompareExchange(T* cell, T& expected, T desired) {
    return __atomic_compare_exchange_n(cell, &expected, desired, false, __ATOMIC_ACQ_REL,
                                       __ATOMIC_ACQUIRE);
}

}  // namespace keel

#endif
