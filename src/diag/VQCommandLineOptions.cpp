#include <VQCommandLineOptions.h>

#include <CVQAsserter.h>
#include <VQMemory.h>
#include <VQSyslog.h>
#include <sync/CVQProcessLock.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <process.h>

namespace {

constexpr char kUnit[] = "VQCommandLineOptions";
constexpr unsigned kLineGrow = 300;

constexpr int kTableSize = 128;
constexpr unsigned kMostArguments = 100;  // that a process is believed to have been started with
constexpr std::size_t kBlockSize = 1024;

VQ_CONSTINIT CVQProcessLock sLock;
VQ_CONSTINIT std::atomic<bool> sIsBuilt{false};
VQ_CONSTINIT std::atomic<bool> sSlashPrefixes{true};

// Written under the lock until the table is built, and only read from then on.
int sCount = 0;
char* sTable[kTableSize + 1];

// The block that takes the texts of added arguments, one after the other. One that is full is left to the arguments
// in it, and a new one takes the next. Kept: cmdline-addresses.
char* sBlock = nullptr;
std::size_t sBlockRest = 0;

void addArgumentsFrom(const char* fileName) {
    VQCommandLineOptions::CommandLineConfigParser handler;
    CVQConfigFileParser parser;
    parser.addSectionCallback("COMMANDLINE", 0, &handler);
    if (!parser.parse(fileName)) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "Error opening command line option file %s", fileName);
    }
}

void build() {
    const std::lock_guard<CVQProcessLock> guard(sLock);
    if (sIsBuilt.load(std::memory_order_relaxed)) {
        return;
    }
    if (static_cast<unsigned>(_argc) - 1 >= kMostArguments) {
        VQSyslog::logMsg(0, VQSyslog::NOTICE,
                         "VQCommandLineOptions: _argc corrupt due to bug in statically linked libc on ARM");
        VQSyslog::logMsg(0, VQSyslog::NOTICE, "VQCommandLineOptions: command line arguments will NOT be evaluated");
        _argc = 0;
        return;  // Kept: cmdline-notices-again.
    }
    sCount = _argc;
    std::copy_n(_argv, sCount, sTable);
    for (int i = 1; i < sCount; ++i) {  // those that a file adds are visited as well
        if (sTable[i] != nullptr && sTable[i][0] == '@') {
            addArgumentsFrom(sTable[i] + 1);
        }
    }
    sIsBuilt.store(true, std::memory_order_release);
}

void buildUnlessThere() {
    if (!sIsBuilt.load(std::memory_order_acquire)) {
        build();
    }
}

bool isPrefix(char character) {
    return character == '-' || (character == '/' && sSlashPrefixes.load(std::memory_order_relaxed));
}

const char* stripPrefixes(const char* text) {
    while (isPrefix(*text)) {
        ++text;
    }
    return text;
}

bool isOption(const char* argument) {
    return argument != nullptr && isPrefix(*argument);
}

/// Calls `visit(rest, index)` for each option that begins with `name`, with what stands behind the name in it, until
/// that is a result.
template <class Result, class Visit>
Result forEachOption(const char* name, Visit visit) {
    buildUnlessThere();
    if (name == nullptr) {
        return Result();
    }
    name = stripPrefixes(name);
    const std::size_t length = std::strlen(name);
    for (int i = 1; i < sCount; ++i) {
        if (isOption(sTable[i])) {
            const char* const option = stripPrefixes(sTable[i]);
            if (std::strncmp(option, name, length) == 0) {
                if (const Result result = visit(option + length, i)) {
                    return result;
                }
            }
        }
    }
    return Result();
}

}  // namespace

int VQCommandLineOptions::getARGC() {
    buildUnlessThere();
    return sCount;
}

char** VQCommandLineOptions::getARGV() {
    buildUnlessThere();
    return sTable;
}

const char* VQCommandLineOptions::getARG(int index) {
    buildUnlessThere();
    return index >= 0 && index < sCount ? sTable[index] : nullptr;
}

bool VQCommandLineOptions::isOptionSet(const char* name) {
    return forEachOption<bool>(name, [](const char* rest, int) { return *rest == '\0' || *rest == '='; });
}

const char* VQCommandLineOptions::getOptionArg(const char* name) {
    return forEachOption<const char*>(name, [](const char* rest, int index) -> const char* {
        if (*rest == '=') {
            return rest + 1;
        }
        const bool hasNext = *rest == '\0' && index + 1 < sCount && !isOption(sTable[index + 1]);
        return hasNext ? sTable[index + 1] : nullptr;
    });
}

bool VQCommandLineOptions::win32PrefixesEnabled() {
    buildUnlessThere();
    return sSlashPrefixes.load(std::memory_order_relaxed);
}

void VQCommandLineOptions::disableWin32Prefixes() {
    buildUnlessThere();
    sSlashPrefixes.store(false, std::memory_order_relaxed);
}

bool VQCommandLineOptions::CommandLineConfigParser::addArgument(const char* text) {
    if (text == nullptr || sCount >= kTableSize) {
        return false;
    }
    const std::size_t bytes = std::strlen(text) + 1;
    if (bytes > sBlockRest) {
        const std::size_t size = std::max(bytes, kBlockSize);
        char* const block = static_cast<char*>(VQMemory::alloc(size));
        if (block == nullptr) {
            doCheapAssert(kLineGrow, kUnit);
            return false;
        }
        sBlock = block;
        sBlockRest = size;
    }
    std::memcpy(sBlock, text, bytes);
    sTable[sCount++] = sBlock;
    sBlock += bytes;
    sBlockRest -= bytes;
    return true;
}
