// Intrusive chains: an element carries its own link words, and a list
// allocates nothing.
//
// Every chain word holds one of three things: 0 (the element is in no list),
// the address of the next element (bit 0 clear), or the end mark, which is the
// address of the list's owner with bit 0 set. The head word of a list holds
// the first element or, when the list is empty, the end mark. Walking from
// any element therefore finds the owner without a back pointer, and a bare
// head word may be moved by a byte copy because no element points at it (the
// hash table keeps its heads in a growable array for exactly that reason).
// Elements and owners must lie at even addresses.
//
//     #include <keel/list.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     struct NodeC : keel::ListElemI {
//         uintptr_t next = 0;
//         uintptr_t* nextLink() override { return &next; }
//         keel::ListElemI** prevLink() override { return nullptr; }
//     };
//     keel::ListSingleC list(nullptr);
//     NodeC a, b;
//     list.append(&a);
//     list.prepend(&b);         // b, a
//     list.getOwner();          // &list
//
// The chain functions below work on a bare head word and are what the hash
// table uses for its lists; the list classes wrap them with a head of their
// own. Nothing here locks: the owner of a list guards it.
#ifndef KEEL_LIST_H
#define KEEL_LIST_H

#include <stdint.h>
#include <stdio.h>

namespace keel {

// The element interface.
class ListElemI {
public:
    virtual ~ListElemI() {}
    // Address of the element's chain word.
    virtual uintptr_t* nextLink() = 0;
    // Address of the element's backward link, or null when it has none.
    virtual ListElemI** prevLink() = 0;
    // "%p(n %p)" or "%p(n %p, p %p)"; the end mark shows as a null pointer.
    virtual void print(FILE* stream);
};

// Word helpers shared by the chain functions and the hash table.
inline bool chainIsEnd(uintptr_t word) { return (word & 1) != 0; }
inline uintptr_t chainEndMark(const void* owner) { return reinterpret_cast<uintptr_t>(owner) | 1; }
inline ListElemI* chainElement(uintptr_t word) { return reinterpret_cast<ListElemI*>(word); }

// `head` becomes the end mark of `owner`, or of `head` itself when `owner` is null.
void chainInit(uintptr_t* head, const void* owner);
// Links `element` at the end; returns the address of its chain word.
uintptr_t* chainAppend(uintptr_t* head, ListElemI* element);
// Links `element` at the front; returns the address of its chain word.
uintptr_t* chainPrepend(uintptr_t* head, ListElemI* element);
// Links `element` directly behind `after`; with `after` null this appends.
uintptr_t* chainInsertAfter(uintptr_t* head, ListElemI* element, ListElemI* after);
// False when the element is in no list or is not found from `head`; otherwise
// unlinks it, leaves its chain word 0 and answers true.
bool chainUnlink(uintptr_t* head, ListElemI* element);
// Unlinks every element from the front; nothing is destroyed.
void chainClear(uintptr_t* head);
// Links the chain of `source` behind the last element of `target`; `source`
// gets `target`'s end mark, so the two lists exchange their end marks.
void chainSplice(uintptr_t* target, uintptr_t* source);
// Walks from the element to the end mark and answers the owner's address
// (null for an element in no list).
void* chainOwner(ListElemI* element);
// The same from a head word.
void* chainOwnerOfHead(const uintptr_t* head);
// Walks from `from` (or from `head` when `from` is null) to the end and writes
// the end mark of `owner` there; a 0 word counts as the end. Answers the old
// owner, or null when the chain ended in a 0.
void* chainSetOwner(uintptr_t* head, const void* owner, ListElemI* from);

// "list@%p:", each element behind a blank, a newline. A null stream is stdout.
void printList(const uintptr_t* head, FILE* stream);

// The abstract list.
class ListI {
public:
    virtual ~ListI() {}
    virtual uint32_t size() = 0;
    virtual bool contains(ListElemI* element) = 0;
    virtual void append(ListElemI* element) = 0;
    virtual void prepend(ListElemI* element) = 0;
    virtual bool remove(ListElemI* element) = 0;
    virtual void clear() = 0;
    virtual void* getOwner() = 0;
    virtual void* setOwner(const void* owner, ListElemI* from) = 0;
};

// A singly linked list that knows only its head; size() walks.
class ListSingleUncountedC : public ListI {
public:
    explicit ListSingleUncountedC(const void* owner = nullptr);
    // The elements are left as they are.
    ~ListSingleUncountedC() override {}

    uint32_t size() override;
    bool contains(ListElemI* element) override;
    void append(ListElemI* element) override;
    void prepend(ListElemI* element) override;
    bool remove(ListElemI* element) override;
    void clear() override;
    void* getOwner() override;
    void* setOwner(const void* owner, ListElemI* from) override;
    virtual void insertAfter(ListElemI* element, ListElemI* after);

    // The element at a 0-based index, or null past the end.
    ListElemI* elementAt(uint32_t index);
    // The first element, or null when the list is empty.
    ListElemI* first() const { return chainIsEnd(head) || head == 0 ? nullptr : chainElement(head); }

    uintptr_t head;
};

// A singly linked list with a count and a tail pointer. `remove` leaves the
// tail alone, so after removing the last element `tail` still names it; only
// `insertAfter` looks at it, and `append` walks the chain anyway.
class ListSingleC : public ListSingleUncountedC {
public:
    explicit ListSingleC(const void* owner = nullptr);

    uint32_t size() override { return count; }
    void append(ListElemI* element) override;
    void prepend(ListElemI* element) override;
    bool remove(ListElemI* element) override;
    void insertAfter(ListElemI* element, ListElemI* after) override;

    ListElemI* tail;
    uint32_t count;
};

// A doubly linked list; its elements must have a backward link.
class ListDoubleC : public ListSingleC {
public:
    explicit ListDoubleC(const void* owner = nullptr) : ListSingleC(owner) {}

    void append(ListElemI* element) override;
    void prepend(ListElemI* element) override;
    bool remove(ListElemI* element) override;
    void insertAfter(ListElemI* element, ListElemI* after) override;
    // Links `element` directly in front of `before`; with `before` null it prepends.
    void insertBefore(ListElemI* element, ListElemI* before);
    // The element in front of `element` (its backward link).
    ListElemI* previous(ListElemI* element);
};

}  // namespace keel

#endif
