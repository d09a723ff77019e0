// Singly linked queue of pointers that it does not own; optionally synchronised by one lock for all its
// operations. Nodes are made and freed outside the lock. `size()` and the iterator take no lock. An operation
// that finds no memory changes nothing and says so: the value is still the caller's.
#pragma once

#include "NamedObject.h"
#include "Relaxed.h"
#include "ZykLock.h"

#include <cstdint>
#include <new>
#include <type_traits>

template <typename T>
class ZykList : public virtual NamedObject {
    static_assert(std::is_pointer_v<T>, "ZykList holds pointers");

    struct Node {
        T value;
        Node *next;
    };

public:
    explicit ZykList(bool isSynchronised)
        : NamedObject("ZykList"), lock(isSynchronised), synchronised(isSynchronised) {}

    ~ZykList() override { clear(); }

    // False, and not queued, for a null value and when memory is out.
    bool append(T value) {
        Node *node = value != nullptr ? new (std::nothrow) Node{value, nullptr} : nullptr;
        if (node == nullptr) {
            return false;
        }
        const ZykLockGuard guard(ownLock());
        (tail != nullptr ? tail->next : head) = node;
        tail = node;
        count += 1;
        return true;
    }

    // False, and not queued, when memory is out.
    bool prepend(T value) {
        Node *node = new (std::nothrow) Node{value, nullptr};
        if (node == nullptr) {
            return false;
        }
        const ZykLockGuard guard(ownLock());
        node->next = head;
        head = node;
        if (tail == nullptr) {
            tail = node;
        }
        count += 1;
        return true;
    }

    // Null when empty.
    T removeFirst() {
        Node *node = unlinkFirst();
        T value = node != nullptr ? node->value : nullptr;
        delete node;
        return value;
    }

    // Removes the first node that holds `value`; false if there is none.
    bool remove(T value) {
        Node *node = unlink(value);
        delete node;
        return node != nullptr;
    }

    // Removes every value that `wanted` picks, in one walk under the lock.
    template <typename Wanted>
    void removeIf(Wanted wanted) {
        Node *removed = nullptr;
        {
            const ZykLockGuard guard(ownLock());
            Node *before = nullptr;
            for (Node **link = &head; *link != nullptr;) {
                Node *node = *link;
                if (!wanted(node->value)) {
                    before = node;
                    link = &node->next;
                    continue;
                }
                takeOut(link, before);
                node->next = removed;
                removed = node;
            }
        }
        freeChain(removed);
    }

    // Puts the whole chain of `other` in front and leaves `other` empty. Null does nothing.
    void prependAll(ZykList *other) {
        if (other == nullptr) {
            return;
        }
        const ZykLockGuard guard(ownLock());
        const ZykLockGuard otherGuard(other->ownLock());
        if (other->head == nullptr) {
            return;
        }
        other->tail->next = head;
        head = other->head;
        if (tail == nullptr) {
            tail = other->tail;
        }
        count += other->count;
        other->forget();
    }

    // Moves up to `most` nodes from the head, in order, to the end of `other`, which is private to the
    // caller, in one hold of this list's lock. Returns how many.
    int32_t cutFirst(int32_t most, ZykList &other) {
        const ZykLockGuard guard(ownLock());
        Node *first = head;
        Node *last = nullptr;
        int32_t moved = 0;
        for (Node *node = head; node != nullptr && moved < most; node = node->next) {
            last = node;
            ++moved;
        }
        if (moved == 0) {
            return 0;
        }
        head = last->next;
        if (head == nullptr) {
            tail = nullptr;
        }
        last->next = nullptr;
        (other.tail != nullptr ? other.tail->next : other.head) = first;
        other.tail = last;
        count -= moved;
        other.count += moved;
        return moved;
    }

    // Frees the nodes; the values are untouched.
    void clear() {
        Node *chain = nullptr;
        {
            const ZykLockGuard guard(ownLock());
            chain = head;
            forget();
        }
        freeChain(chain);
    }

    int32_t size() const { return count; }

    // Takes the lock once, so that its monitor exists before threads race for it.
    void prepareLock() { const ZykLockGuard guard(ownLock()); }

    // A cursor over a list that no other thread shortens meanwhile. `next()` is null at the end.
    class Iterator {
    public:
        explicit Iterator(const ZykList &list) : cursor(list.head) {}
        T next() {
            if (cursor == nullptr) {
                return nullptr;
            }
            T value = cursor->value;
            cursor = cursor->next;
            return value;
        }

    private:
        const Node *cursor;
    };

    // Copies up to `most` values from the head, in order, into `room`. Returns how many.
    int32_t copyFirst(T *room, int32_t most) {
        const ZykLockGuard guard(ownLock());
        int32_t copied = 0;
        for (const Node *node = head; node != nullptr && copied < most; node = node->next) {
            room[copied++] = node->value;
        }
        return copied;
    }

private:
    ZykLock *ownLock() { return synchronised ? &lock : nullptr; }

    static void freeChain(Node *chain) {
        while (chain != nullptr) {
            Node *next = chain->next;
            delete chain;
            chain = next;
        }
    }

    void forget() {
        head = nullptr;
        tail = nullptr;
        count = 0;
    }

    Node *unlinkFirst() {
        const ZykLockGuard guard(ownLock());
        Node *node = head;
        if (node != nullptr) {
            takeOut(&head, nullptr);
        }
        return node;
    }

    Node *unlink(T value) {
        const ZykLockGuard guard(ownLock());
        Node *before = nullptr;
        for (Node **link = &head; *link != nullptr; link = &(*link)->next) {
            if ((*link)->value == value) {
                Node *node = *link;
                takeOut(link, before);
                return node;
            }
            before = *link;
        }
        return nullptr;
    }

    void takeOut(Node **link, Node *before) {
        Node *node = *link;
        *link = node->next;
        if (tail == node) {
            tail = before;
        }
        count -= 1;
    }

    Relaxed<int32_t> count{0};
    Node *tail = nullptr;
    Node *head = nullptr;
    ZykLock lock;
    const bool synchronised;
};
