// AtomicM<T>: the cell for every field that more than one thread may touch
// without a lock (string handles, cached string fields, ready flags, ...).
//
// Reading is an aligned acquire load; every write, the constructor's included,
// is an exchange done as a compare-and-swap loop on the last value read. There
// is deliberately no other operation: callers that need read-modify-write use
// their own protocol on top of exchange.
//
// Cells of pointers, 32-bit integers and bytes, and 64-bit cells (the string
// cursor keeps its index and offset in one), all without a lock on both
// targets: on i386 an 8-byte cell is aligned to 8 so that its load is one
// memory access and its exchange a cmpxchg8b.
#ifndef KEEL_ATOMIC_H
#define KEEL_ATOMIC_H

namespace keel {

template <typename T>
class AtomicM {
    static_assert(sizeof(T) == 1 || sizeof(T) == 4 || sizeof(T) == 8, "a cell of 1, 4 or 8 bytes");
    static_assert(__atomic_always_lock_free(sizeof(T), 0), "a cell that needs no lock");

public:
    AtomicM() : value_() { exchange(T()); }
    explicit AtomicM(T initial) : value_() { exchange(initial); }
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
    T exchange(T desired) {
        T seen = load();
        while (!__atomic_compare_exchange_n(&value_, &seen, desired, false, __ATOMIC_ACQ_REL,
                                            __ATOMIC_RELAXED)) {
        }
        return seen;
    }
    AtomicM& operator=(T desired) {
        exchange(desired);
        return *this;
    }

private:
    alignas(sizeof(T)) T value_;
};

}  // namespace keel

#endif
