// CVQRamwatcher: a small table of allocation statistics, one element per key and thread.
//   Shape    512 elements of four 32-bit words, allocated when the environment variable "ENABLE_RAMWATCH" is
//            present at the first question; the containers feed it. The 513th pair of key and thread, and everybody
//            while there is no table, gets the shared dummy element.
//   Errors   a null target for a dump is a cheap assertion (line 134 of `CVQRamWatch`).
//   Threads  any thread. The words of an element are read by `dumpWatches` while their owner changes them, and the
//            dummy belongs to everybody: change them atomically.
//   Kept     ramwatch-packed-dump: a dump packs thread and instances into one word (docs/kept.md).
//            ramwatch-count-past-table: a dump counts the indices given out, also those that are past the table.
#pragma once

#include <VQExport.h>

#include <atomic>

class VQ_EXPORT CVQRamwatcher {
public:
    /// One line of the table.
    struct sElement {
        /// Objects that were given this element; each takes itself off again.
        unsigned instances;
        /// Both are the owner's; a vector keeps its element count and its capacity here.
        unsigned counterA;
        unsigned counterB;
        unsigned key;
    };

    /// The answer of the last `evalIsEnabled`, which is called if it has not been yet.
    static bool isEnabled();
    /// Looks for "ENABLE_RAMWATCH" and, if it is present, allocates the tables unless they are there.
    static bool evalIsEnabled();
    /// Takes the next free index of the table: 0, 1, ... and on past its end; it stays at the last number.
    static unsigned getNewIndex();
    /// The element for `key` in the calling thread, with one more instance; or the dummy element, uncounted.
    static sElement* getElement(unsigned key);
    /// Writes the first `count` rows, or as many as indices were given out, and sets `count` to how many. A row is
    /// a copy of its element, with instances + thread id * 100000, modulo 2^32, as the first word; rows without an
    /// element (past the table, or all while there is no table) are zero.
    static void dumpWatches(sElement* out, unsigned& count);
    /// Gives the tables back, if enabled. From now on everybody gets the dummy element. Tables with elements in use
    /// (instances left, or a call under way in another thread) stay allocated, and come back with their content at
    /// the next `evalIsEnabled`.
    static void releaseElements();

    static std::atomic<sElement*> elements;
    static std::atomic<unsigned> mIndex;
    static std::atomic<bool> mIsEnabled;
    static std::atomic<bool> mIsInitialized;
    static sElement dummyElement;
};
