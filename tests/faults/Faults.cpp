#include "Faults.h"

#include "Wrapping.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <execinfo.h>
#include <stdexcept>
#include <sys/mman.h>

namespace {

// Shared with forked children, so that what a child met is known when it has ended.
struct Armed {
    std::atomic<const faults::Call*> call;  // lives as long as the program
    std::atomic<int> error;
    std::atomic<int> first;
    std::atomic<int> last;
    std::atomic<int> seen;
    std::atomic<int> hits;
    std::atomic<unsigned> noted;
    std::array<faults::Hit, 8192> notes;
};

Armed& armed() {
    static Armed* const shared = static_cast<Armed*>(
        mmap(nullptr, sizeof(Armed), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    return *shared;
}

// What the library registers for forks at load time is refused, so that its first lock has to, where a fault can be
// armed. The objects under test are linked first: theirs is done when this is set.
bool sIsLoading = true;
__attribute__((constructor)) void endLoading() {
    sIsLoading = false;
}

// Of the process that armed a fault and of those that it forks: the one that waits for it is not to meet it.
std::atomic<bool> sHasFaults{false};

void note(const faults::Call* call, int error) {
    const unsigned index = armed().noted++;
    if (index < armed().notes.size()) {
        faults::Hit& hit = armed().notes[index];
        hit.call = call;
        hit.error = error;
        backtrace(hit.way.data(), static_cast<int>(hit.way.size()));
    }
}

}  // namespace

int faults::errorOfNext(const char* name) {
    if (sIsLoading)
        return std::strcmp(name, "pthread_atfork") == 0 ? ENOMEM : 0;
    Armed& state = armed();
    const Call* const wanted = sHasFaults ? state.call.load() : nullptr;
    if (wanted == nullptr || std::strcmp(wanted->name, name) != 0)
        return 0;
    const int nth = ++state.seen;
    if (nth < state.first || nth > state.last)
        return 0;
    ++state.hits;
    note(wanted, state.error);
    return state.error;
}

namespace {

// Filled before main, by the wrappers, in any order.
std::vector<faults::Call>& registry() {
    static std::vector<faults::Call> all;
    return all;
}

}  // namespace

faults::Registered::Registered(const char* name, const char* symbol, Failure failure, std::vector<int> errors) {
    registry().push_back({name, symbol, failure, std::move(errors)});
}

const std::vector<faults::Call>& faults::calls() {
    return registry();
}

const faults::Call& faults::callNamed(const std::string& name) {
    for (const Call& call : calls())
        if (name == call.name)
            return call;
    throw std::invalid_argument("no such call: " + name);
}

std::vector<int> faults::errorsBeside(const std::string& name, const std::vector<int>& others) {
    std::vector<int> errors = callNamed(name).errors;
    for (const int other : others) {
        const auto found = std::find(errors.begin(), errors.end(), other);
        if (found == errors.end())
            throw std::invalid_argument(name + " does not fail with " + errorName(other));
        errors.erase(found);
    }
    return errors;
}

faults::Arm::Arm(const std::string& call, int error, int nth, int times)
    : mCall(call.empty() ? nullptr : &callNamed(call)), mError(error), mNth(nth), mTimes(times) {
    armed().hits = 0;
    void* unused;
    backtrace(&unused, 1);  // the first one loads a library
}

faults::Arm::~Arm() {
    armed().call = nullptr;
    sHasFaults = false;
}

void faults::Arm::operator()() const {
    Armed& state = armed();
    state.error = mError;
    state.first = mNth;
    state.last = mNth + mTimes - 1;
    state.seen = 0;
    state.call = mCall;
    sHasFaults = true;
}

int faults::Arm::hits() {
    return armed().hits;
}

std::vector<faults::Hit> faults::hitsOfAll() {
    const Armed& state = armed();
    if (state.noted > state.notes.size())
        throw std::length_error("more calls failed than there is room for");
    return {state.notes.begin(), state.notes.begin() + state.noted};
}

std::string faults::errorName(int error) {
    const char* const name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

std::string faults::told(bool result) {
    const int error = errno;
    return result ? "true" : "false " + errorName(error);
}

std::string faults::told(int result) {
    const int error = errno;
    return result != -1 ? std::to_string(result) : "-1 " + errorName(error);
}

std::string faults::told(const void* result) {
    const int error = errno;
    return result != nullptr ? "set" : "null " + errorName(error);
}
