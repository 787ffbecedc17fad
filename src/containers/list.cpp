// Intrusive chains and the three list classes over them.
#include <keel/list.h>

namespace keel {

namespace {

// The address of the word that ends the chain starting at `link`: the word
// holding the end mark, or a 0 word in a chain that was cut short. Stopping
// at 0 as well keeps a broken chain from being followed into address 0.
uintptr_t* chainLastLink(uintptr_t* link) {
    while (*link != 0 && !chainIsEnd(*link)) link = chainElement(*link)->nextLink();
    return link;
}

}  // namespace

void ListElemI::print(FILE* stream) {
    if (!stream) stream = stdout;
    uintptr_t word = *nextLink();
    // The end mark is not an element: it shows as a null pointer.
    void* next = chainIsEnd(word) ? nullptr : reinterpret_cast<void*>(word);
    ListElemI** back = prevLink();
    if (!back) {
        fprintf(stream, "%p(n %p)", static_cast<void*>(this), next);
    } else {
        fprintf(stream, "%p(n %p, p %p)", static_cast<void*>(this), next, static_cast<void*>(*back));
    }
}

void chainInit(uintptr_t* head, const void* owner) {
    *head = chainEndMark(owner ? owner : head);
}

uintptr_t* chainAppend(uintptr_t* head, ListElemI* element) {
    uintptr_t* last = chainLastLink(head);
    uintptr_t* link = element->nextLink();
    *link = *last;
    *last = reinterpret_cast<uintptr_t>(element);
    return link;
}

uintptr_t* chainPrepend(uintptr_t* head, ListElemI* element) {
    uintptr_t* link = element->nextLink();
    *link = *head;
    *head = reinterpret_cast<uintptr_t>(element);
    return link;
}

uintptr_t* chainInsertAfter(uintptr_t* head, ListElemI* element, ListElemI* after) {
    if (!after) return chainAppend(head, element);
    uintptr_t* link = element->nextLink();
    uintptr_t* afterLink = after->nextLink();
    *link = *afterLink;
    *afterLink = reinterpret_cast<uintptr_t>(element);
    return link;
}

bool chainUnlink(uintptr_t* head, ListElemI* element) {
    uintptr_t* own = element->nextLink();
    if (*own == 0) return false;
    uintptr_t wanted = reinterpret_cast<uintptr_t>(element);
    uintptr_t* link = head;
    while (*link != 0 && !chainIsEnd(*link)) {
        if (*link == wanted) {
            *link = *own;
            *own = 0;
            return true;
        }
        link = chainElement(*link)->nextLink();
    }
    return false;
}

void chainClear(uintptr_t* head) {
    while (*head != 0 && !chainIsEnd(*head)) chainUnlink(head, chainElement(*head));
}

void chainSplice(uintptr_t* target, uintptr_t* source) {
    uintptr_t* last = chainLastLink(target);
    uintptr_t targetMark = *last;
    *last = *source;
    *source = targetMark;
}

void* chainOwner(ListElemI* element) {
    uintptr_t* last = chainLastLink(element->nextLink());
    return reinterpret_cast<void*>(*last & ~static_cast<uintptr_t>(1));
}

void* chainOwnerOfHead(const uintptr_t* head) {
    uintptr_t word = *head;
    if (chainIsEnd(word) || word == 0) return reinterpret_cast<void*>(word & ~static_cast<uintptr_t>(1));
    return chainOwner(chainElement(word));
}

void* chainSetOwner(uintptr_t* head, const void* owner, ListElemI* from) {
    uintptr_t* last = chainLastLink(from ? from->nextLink() : head);
    uintptr_t old = *last;
    *last = chainEndMark(owner);
    return reinterpret_cast<void*>(old & ~static_cast<uintptr_t>(1));
}

void printList(const uintptr_t* head, FILE* stream) {
    if (!stream) stream = stdout;
    fprintf(stream, "list@%p:", static_cast<const void*>(head));
    uintptr_t word = *head;
    while (word != 0 && !chainIsEnd(word)) {
        ListElemI* element = chainElement(word);
        fputc(' ', stream);
        element->print(stream);
        word = *element->nextLink();
    }
    fputc('\n', stream);
}

// ---------------------------------------------------------------------------

ListSingleUncountedC::ListSingleUncountedC(const void* owner) {
    chainInit(&head, owner ? owner : this);
}

uint32_t ListSingleUncountedC::size() {
    uint32_t n = 0;
    for (uintptr_t word = head; word != 0 && !chainIsEnd(word); word = *chainElement(word)->nextLink()) ++n;
    return n;
}

bool ListSingleUncountedC::contains(ListElemI* element) {
    uintptr_t wanted = reinterpret_cast<uintptr_t>(element);
    for (uintptr_t word = head; word != 0 && !chainIsEnd(word); word = *chainElement(word)->nextLink()) {
        if (word == wanted) return true;
    }
    return false;
}

void ListSingleUncountedC::append(ListElemI* element) { chainAppend(&head, element); }

void ListSingleUncountedC::prepend(ListElemI* element) { chainPrepend(&head, element); }

bool ListSingleUncountedC::remove(ListElemI* element) { return chainUnlink(&head, element); }

void ListSingleUncountedC::clear() {
    // Through the virtual remove, so that derived lists keep their counts. A
    // remove that refuses the first element (a broken derived list) ends the
    // loop instead of spinning on it.
    while (ListElemI* element = first()) {
        if (!remove(element)) break;
    }
}

void* ListSingleUncountedC::getOwner() { return chainOwnerOfHead(&head); }

void* ListSingleUncountedC::setOwner(const void* owner, ListElemI* from) {
    return chainSetOwner(&head, owner, from);
}

void ListSingleUncountedC::insertAfter(ListElemI* element, ListElemI* after) {
    chainInsertAfter(&head, element, after);
}

ListElemI* ListSingleUncountedC::elementAt(uint32_t index) {
    for (uintptr_t word = head; word != 0 && !chainIsEnd(word); word = *chainElement(word)->nextLink()) {
        if (index == 0) return chainElement(word);
        --index;
    }
    return nullptr;
}

// ---------------------------------------------------------------------------

ListSingleC::ListSingleC(const void* owner) : ListSingleUncountedC(owner), tail(nullptr), count(0) {}

void ListSingleC::append(ListElemI* element) {
    // Walks like the uncounted list although the tail is known: the tail may
    // still name an element that was removed.
    ListSingleUncountedC::append(element);
    ++count;
    tail = element;
}

void ListSingleC::prepend(ListElemI* element) {
    if (!first()) tail = element;
    chainPrepend(&head, element);
    ++count;
}

bool ListSingleC::remove(ListElemI* element) {
    if (!chainUnlink(&head, element)) return false;
    --count;
    return true;
}

void ListSingleC::insertAfter(ListElemI* element, ListElemI* after) {
    if (!after) {
        append(element);
        return;
    }
    if (tail == after) tail = element;
    chainInsertAfter(&head, element, after);
    ++count;
}

// ---------------------------------------------------------------------------

void ListDoubleC::append(ListElemI* element) {
    ListElemI* oldTail = tail;
    chainAppend(&head, element);
    if (ListElemI** back = element->prevLink()) *back = oldTail;
    ++count;
    tail = element;
}

void ListDoubleC::prepend(ListElemI* element) {
    uintptr_t* link = element->nextLink();
    ListElemI* oldFirst = first();
    *link = head;
    if (ListElemI** back = element->prevLink()) *back = nullptr;
    if (oldFirst) {
        if (ListElemI** back = oldFirst->prevLink()) *back = element;
    } else {
        tail = element;
    }
    ++count;
    head = reinterpret_cast<uintptr_t>(element);
}

bool ListDoubleC::remove(ListElemI* element) {
    uintptr_t* link = element->nextLink();
    if (*link == 0) return false;
    ListElemI** back = element->prevLink();
    ListElemI* before = back ? *back : nullptr;
    if (head == reinterpret_cast<uintptr_t>(element)) {
        head = *link;
    } else if (before) {
        *before->nextLink() = *link;
    } else {
        // Not our first element and nothing in front of it: it is the first
        // of some other list (or has no backward link). Writing through the
        // missing predecessor would touch address 0, so it is refused.
        return false;
    }
    if (chainIsEnd(*link)) {
        // Judged by the end mark rather than by `tail`, so that an element of
        // another list never makes us write into that list's owner.
        tail = before;
    } else if (ListElemI** nextBack = chainElement(*link)->prevLink()) {
        *nextBack = before;
    }
    *link = 0;
    if (back) *back = nullptr;
    --count;
    return true;
}

void ListDoubleC::insertAfter(ListElemI* element, ListElemI* after) {
    if (!after) {
        append(element);
        return;
    }
    ListSingleC::insertAfter(element, after);
    if (ListElemI** back = element->prevLink()) *back = after;
    uintptr_t next = *element->nextLink();
    if (tail != element && next != 0 && !chainIsEnd(next)) {
        if (ListElemI** nextBack = chainElement(next)->prevLink()) *nextBack = element;
    }
}

void ListDoubleC::insertBefore(ListElemI* element, ListElemI* before) {
    if (!before) {
        prepend(element);
        return;
    }
    ListElemI** beforeBack = before->prevLink();
    ListElemI* front = beforeBack ? *beforeBack : nullptr;
    bool isFirst = head == reinterpret_cast<uintptr_t>(before);
    // `before` is neither our first element nor linked behind another one:
    // there is no word that could point at the new element, so nothing is done.
    if (!isFirst && !front) return;
    *element->nextLink() = reinterpret_cast<uintptr_t>(before);
    if (ListElemI** back = element->prevLink()) *back = front;
    if (isFirst) {
        head = reinterpret_cast<uintptr_t>(element);
    } else {
        *front->nextLink() = reinterpret_cast<uintptr_t>(element);
    }
    if (beforeBack) *beforeBack = element;
    ++count;
}

ListElemI* ListDoubleC::previous(ListElemI* element) {
    ListElemI** back = element->prevLink();
    return back ? *back : nullptr;
}

}  // namespace keel
