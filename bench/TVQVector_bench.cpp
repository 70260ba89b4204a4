// TVQVector beside the arrays in TVQVector_peers.cpp, and beside std::vector with the same elements.
#include "TVQVector_workload.h"

#include <CVQString.h>
#include <TVQVector.h>

#include <vector>

namespace {

template <class T>
struct OurArray {
    using Array = TVQVector<T>;
    using Element = T;
    static T make(int number) { return T(number); }
    static void push(Array& array, const T& element) { array.push_back(element); }
    static void insert(Array& array, int at, const T& element) { array.insert(at, element); }
    static void erase(Array& array, int at) { array.erase(at); }
    static int sizeOf(const Array& array) { return array.size(); }
};

struct OurTexts : OurArray<CVQString> {
    static CVQString make(int /*number*/) { return CVQString(bench::elementText()); }
};

using StandardTexts = bench::StandardTexts<std::vector<CVQString>>;

MARLIX_BENCH_INTS("ours", OurArray<int>)
MARLIX_BENCH_TEXTS("ours", OurTexts)
MARLIX_BENCH_TEXTS("std::vector of CVQString", StandardTexts)

}  // namespace
