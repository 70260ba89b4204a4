// IdTable: objects under small ids, the lowest that is free, as Neutrino gives them.
#pragma once

#include <stdlib.h>
#include <string.h>

namespace host {

/// Constant-initialised and never destroyed. Its user guards it.
template <class T>
struct IdTable {
    T** entries;
    int capacity;
    int lowestFree;  // no id below is free

    /// The id, or -1 without memory.
    int add(T* object) {
        while (lowestFree < capacity && entries[lowestFree] != nullptr)
            ++lowestFree;
        if (lowestFree >= capacity && !grow())
            return -1;
        entries[lowestFree] = object;
        return lowestFree++;
    }

    T* find(int id) const { return id >= 0 && id < capacity ? entries[id] : nullptr; }

    void remove(int id) {
        entries[id] = nullptr;
        if (id < lowestFree)
            lowestFree = id;
    }

    /// The next id will be `first`.
    void clear(int first) {
        if (capacity != 0)
            memset(entries, 0, static_cast<size_t>(capacity) * sizeof(T*));
        lowestFree = first;
    }

private:
    static constexpr int kMaxIds = 1 << 20;

    bool grow() {
        const int larger = capacity == 0 ? 16 : 2 * capacity;
        if (larger > kMaxIds)
            return false;
        void* const block = realloc(entries, static_cast<size_t>(larger) * sizeof(T*));
        if (block == nullptr)
            return false;
        entries = static_cast<T**>(block);
        memset(entries + capacity, 0, static_cast<size_t>(larger - capacity) * sizeof(T*));
        capacity = larger;
        return true;
    }
};

}  // namespace host
