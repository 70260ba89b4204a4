// SlogCapture: the system log of a test. While it lives, NTO_SLOG names its socket, so that what this process and
// the children it starts log arrives here, in the order in which it was sent.
//   Shape    a process of its own empties the socket all the time: the kernel queues only about ten datagrams.
//            It is no child of the test's (nobody's `wait` finds it) and ends with it.
//   Errors   throws std::system_error when the socket cannot be had, std::runtime_error when the reader is stuck.
//   Threads  make it and ask it on the test's thread; any thread and any process may log.
#pragma once

#include "support/ScopedEnvironment.h"
#include "support/TemporaryFolder.h"

#include <ostream>
#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

struct LoggedRecord {
    unsigned code = 0;     // low 20 bits of the opcode
    unsigned subCode = 0;  // its upper 12 bits
    int severity = -1;
    pid_t pid = -1;
    pid_t tid = -1;
    std::string text;  // as sent; for records of integers or raw data, their bytes

    unsigned opcode() const { return code | subCode << 20; }
};

std::ostream& operator<<(std::ostream& stream, const LoggedRecord& record);

class SlogCapture {
public:
    SlogCapture();
    SlogCapture(const SlogCapture&) = delete;
    SlogCapture& operator=(const SlogCapture&) = delete;
    ~SlogCapture();

    /// All records since the beginning (or the last `clear`) that had been sent when this was called.
    std::vector<LoggedRecord> records();
    /// The texts alone, of all severities.
    std::vector<std::string> texts();
    /// Datagrams that were no records.
    std::size_t malformed();
    /// Forgets what has arrived so far.
    void clear();

    const std::string& socketPath() const { return mSocketPath; }

private:
    void startReader(int socket, int acknowledge, int lifeline);
    void synchronise() const;
    void collect();

    TemporaryFolder mFolder;
    std::string mSocketPath;
    ScopedEnvironment mVariable;
    int mSpill = -1;         // what the reader received: length and bytes, one after the other
    int mAcknowledged = -1;  // one byte each time the reader has come across a marker
    int mLifeline = -1;      // closed by the end of this process, and of the children it forked
    off_t mCollected = 0;
    std::vector<LoggedRecord> mRecords;
    std::size_t mMalformed = 0;
};

}  // namespace support
