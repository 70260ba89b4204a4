#include "Table.h"

#include "Numbers.h"

#include <cstdio>

namespace {

std::string row(const char* name, const std::string& written, const std::string& read) {
    char text[128];
    std::snprintf(text, sizeof text, "  %-22s %15s %15s\n", name, written.c_str(), read.c_str());
    return text;
}

std::string row(const char* name, unsigned long long written, unsigned long long read) {
    return row(name, grouped(written), grouped(read));
}

/// Bytes a microsecond are megabytes a second.
std::string speed(const STotals& totals) {
    if (totals.bytes == 0 || totals.busyMicros == 0)
        return "-";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f",
                  static_cast<double>(totals.bytes) / static_cast<double>(totals.busyMicros));
    return text;
}

std::string heap(const STotals& totals, bool isTraced) {
    return isTraced ? withUnit(totals.peakHeap) : "not traced";
}

}  // namespace

std::string makeTable(const STotals& written, const STotals& read, bool isHeapTraced) {
    std::string table = row("", "written", "read back");
    table += row("records", written.records, read.records);
    table += row("bytes", written.bytes, read.bytes);
    table += row("invalid lines cut", written.invalidLines, read.invalidLines);
    if (written.zeroByteLines != 0)
        table += row("cut at a zero byte", written.zeroByteLines, read.zeroByteLines);
    table += row("MB/s of its own work", speed(written), speed(read));
    table += row("peak heap", heap(written, isHeapTraced), heap(read, isHeapTraced));
    return table;
}
