// AtomicM<T>: the cell for every field that more than one thread may touch
// without a lock (string handles, cached string fields, ready flags, ...).
//
// Reading is a plain aligned load; every write, the constructor's included, is
// an exchange done as a compare-and-swap loop on the last value read. There is
// deliberately no other operation: callers that need read-modify-write use
// their own protocol on top of exchange.
#ifndef KEEL_ATOMIC_H
#define KEEL_ATOMIC_H

namespace keel {

template <typename T>
class AtomicM {
public:
    AtomicM() : value_() { exchange(T()); }
    explicit AtomicM(T initial) : value_() { exchange(initial); }
    AtomicM(const AtomicM&) = delete;
    AtomicM& operator=(const AtomicM&) = delete;

    // A relaxed atomic load compiles to the plain aligned load on x86 and
    // keeps the race checkers informed.
    T load() const { return __atomic_load_n(&value_, __ATOMIC_RELAXED); }
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
    T value_;
};

}  // namespace keel

#endif
