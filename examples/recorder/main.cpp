// recorder: sends the lines of a text as records to a second process and checks that they arrive as they were.
//
// Read it from here: a CTextSource delivers lines, `writeRecords` makes records of them (CVQString), serialises them
// (CVQByteStream) and sends them through a CPipeOStream; in the partner process `readRecords` does the reverse.
#include "CPartner.h"
#include "CProgress.h"
#include "CTextSource.h"
#include "Interrupt.h"
#include "SOptions.h"
#include "Table.h"
#include "recording.h"

#include <VQStartupOptions.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace {

constexpr int kInterrupted = 130;  // what a shell reports for a program that Ctrl-C ended

/// The heap is traced from a process's first allocation on or not at all, as its arguments say: start anew with the
/// switch. Where that cannot be, the recording goes on and the table says "not traced".
void traceHeap(int argc, char* argv[]) {
    const auto isSwitch = [](const char* word) { return std::strncmp(word, "--memtrace=", 11) == 0; };
    if (std::any_of(argv + 1, argv + argc, isSwitch))
        return;
    char traced[] = "--memtrace=1";
    std::vector<char*> arguments(argv, argv + argc + 1);
    arguments.insert(arguments.begin() + 1, traced);
    char program[4096];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    program[std::max<ssize_t>(length, 0)] = '\0';
    execv(length > 0 ? program : argv[0], arguments.data());
}

void compare(const STotals& written, const STotals& read) {
    if (written.records != read.records || written.bytes != read.bytes)
        throw std::runtime_error("the reading process has not got all records");
    if (written.checksum != read.checksum)
        throw std::runtime_error("the texts that were read are not those that were written");
}

void print(const CTextSource& source, const STotals& written, const STotals& read, double seconds) {
    const bool isHeapTraced = VQStartupOptions::getMemoryTraceLevel() != 0;
    std::printf("Recorded %s\n\n%s\n", source.getName().c_str(), makeTable(written, read, isHeapTraced).c_str());
    std::printf("%sRecords, their order and their texts are the same on both sides. %.2f s in all.\n",
                Interrupt::hasCome() ? "Interrupted. " : "", seconds);
    if (std::fflush(stdout) != 0)
        throw std::runtime_error("cannot write the table");
}

int record(const SOptions& options) {
    CTextSource source(options.path);
    Interrupt::listen();
    const auto begin = std::chrono::steady_clock::now();
    CPartner partner;
    CProgress progress(source.getSize());
    const STotals written = writeRecords(source, options, partner.blocks(), progress);
    const STotals read = partner.finish();
    progress.clear();
    compare(written, read);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    print(source, written, read, elapsed.count());
    return Interrupt::hasCome() ? kInterrupted : 0;
}

}  // namespace

int main(int argc, char* argv[]) {
    const SOptions options = parseOptions(argc, argv);
    traceHeap(argc, argv);
    std::signal(SIGPIPE, SIG_IGN);  // a partner that died is noticed by what it no longer takes
    try {
        return record(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "recorder: %s\n", error.what());
        return 1;
    }
}
