// CallScript: what one of the platform's file calls answers, for what the real one does not do on demand. It answers
// while the object lives; otherwise the real call is made.
//   Calls    access chdir chmod close closedir getcwd lstat64 mkdir mmap64 munmap open opendir read readdir readdir64
//            remove rename rmdir stat64 statvfs symlink unlink unlinkat
//   Threads  one script at a time, made and ended on the test's thread; it sees the calls of all threads.
#pragma once

#include <functional>
#include <string>

namespace doubles {

class CallScript {
public:
    /// Asked before each call, which is counted from 1: 0 has it made, another number has it fail with that `errno`.
    using Answer = std::function<int(int nth)>;

    CallScript(std::string name, Answer answer);
    ~CallScript();
    CallScript(const CallScript&) = delete;
    CallScript& operator=(const CallScript&) = delete;

    int calls() const { return mCalls; }
    /// The last descriptor or directory that was handed to such a call: its descriptor.
    int lastDescriptor = -1;
    /// The call is made also when it is to fail.
    bool actsAnyway = false;

    bool answers(const char* name) const { return mName == name; }
    int ask() { return mAnswer(++mCalls); }

private:
    std::string mName;
    Answer mAnswer;
    int mCalls = 0;
};

}  // namespace doubles
