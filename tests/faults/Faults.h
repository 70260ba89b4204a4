// Faults: each call that the library makes of the platform fails on demand, and what comes of it is compared.
//   Shape    A row names the unit that makes a call, the call, the operation that is tried and what is stated of it.
//            It is run once for each error that the call can give. The library's own objects are linked here, with
//            their calls (and no others) led through Calls.cpp.
//   Stated   the operation's result, in the words of `told`; then, each behind " | ", what is logged: an assertion as
//            "Unit:line", anything else as severity and text. `@` stands for the name of the error that was given,
//            `#` for its number, `?` for the platform's text for it.
//   Threads  a fault may be met by any thread or forked child; it is armed and asked for on the test's thread.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

namespace faults {

/// How a call tells that it failed.
enum class Failure { ERRNO, VALUE, NOTHING, NO_MAPPING };

struct Call {
    const char* name;
    const char* symbol;  // as the linker knows it
    Failure failure;
    std::vector<int> errors;
};

/// All that are led through a wrapper.
const std::vector<Call>& calls();
const Call& callNamed(const std::string& name);
/// The errors of the call `name` without `others`, for which another row states something else.
std::vector<int> errorsBeside(const std::string& name, const std::vector<int>& others);

/// From its call on, the `nth` call fails, and `times - 1` after it. Without a name none does.
class Arm {
public:
    Arm(const std::string& call, int error, int nth = 1, int times = 1);
    Arm(const Arm&) = delete;
    Arm& operator=(const Arm&) = delete;
    ~Arm();

    void operator()() const;
    /// How many calls have failed, in children as well.
    static int hits();

private:
    const Call* const mCall;
    const int mError;
    const int mNth;
    const int mTimes;
};

/// A call that failed: the way to it, as the innermost return addresses. Kept for all the program's life, by forked
/// children as well.
struct Hit {
    const Call* call;
    int error;
    std::array<void*, 10> way;
};
std::vector<Hit> hitsOfAll();

/// What an operation says: "true" or "false ERROR", a number or "-1 ERROR", "set" or "null ERROR".
std::string told(bool result);
std::string told(int result);
std::string told(const void* result);
std::string errorName(int error);

struct Row {
    int line;
    const char* unit;
    const char* call;
    /// Prepares, arms, does.
    std::function<std::string(const Arm&)> act;
    const char* stated;
    /// What is stated when a signal ends the call, twice in a row; null: the same as of any other error.
    const char* interrupted = nullptr;
    int nth = 1;
    /// The operation ends its process, which `stated` begins with: "exit 1" or "signal ABRT".
    bool ends = false;
    /// Instead of the call's own.
    std::vector<int> errors = {};
};

/// The tables of the rooms.
std::vector<Row> syncRows();
std::vector<Row> osRows();
std::vector<Row> shmRows();
std::vector<Row> fileRows();
std::vector<Row> diagRows();
std::vector<Row> otherRows();

}  // namespace faults
