// The library's values among std's: views of texts, keys of hash tables, clocks, lock guards, streams.
#include <CVQMutex.h>
#include <VQInteropChrono.h>
#include <VQInteropHash.h>
#include <VQInteropLock.h>
#include <VQInteropStream.h>
#include <VQInteropStringView.h>

#include <chrono>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

using namespace std::chrono_literals;

namespace {

/// Counts words for several threads.
class CWordCounts {
public:
    /// False when the counts could not be had within a second.
    bool add(std::string_view text) {
        const std::unique_lock guard(mLockable, 1s);
        if (!guard.owns_lock())
            return false;
        while (!text.empty()) {
            const std::size_t end = std::min(text.find(' '), text.size());
            ++mCounts[VQInterop::fromStringView(text.substr(0, end))];
            text.remove_prefix(std::min(end + 1, text.size()));
        }
        return true;
    }

    int operator[](const CVQString& word) {
        const std::lock_guard guard(mLockable);
        return mCounts[word];
    }

private:
    CVQMutex mMutex{/*unlocked*/ true, CVQMutex::NON_RECURSIVE};
    VQInterop::TVQLockable<CVQMutex> mLockable{mMutex};
    std::unordered_map<CVQString, int> mCounts;
};

}  // namespace

int main() {
    CWordCounts counts;
    std::vector<std::thread> readers;
    for (const std::string_view line : {"Öl und Wasser", "Wasser und Wein", "Wasser"})
        readers.emplace_back([&counts, line] { counts.add(line); });
    for (std::thread& reader : readers)
        reader.join();
    for (const CVQString word : {"Wasser", "und", "Wein"})
        std::cout << std::left << std::setw(8) << word << counts[word] << '\n';

    const auto start = std::chrono::system_clock::from_time_t(1'236'434'709);
    const CVQTimeSpan span = VQInterop::fromDuration(26h + 1500ms);
    CVQDateAndTime end = VQInterop::fromTimePoint(start);
    end.addTimeSpan(span);
    std::cout << VQInterop::fromTimePoint(start) << " + " << span << " = " << end << '\n'
              << "a time-out of 1.2 ms waits for " << VQInterop::toTimeoutMs(1200us) << " ms\n";
    return VQInterop::toTimePoint(end) == start + 26h + 1500ms ? 0 : 1;
}
