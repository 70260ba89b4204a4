// CPartner: the second process, which reads the records back.
//   Errors   the constructor and `finish` throw std::runtime_error with a message for the user.
//   Threads  one thread at a time.
#pragma once

#include "CPipeStream.h"
#include "STotals.h"

#include <optional>
#include <sys/types.h>

class CPartner {
public:
    CPartner();
    CPartner(const CPartner&) = delete;
    CPartner& operator=(const CPartner&) = delete;
    /// Waits for the process, which ends when its pipe does.
    ~CPartner();

    /// Where blocks of records go; an empty block is the last.
    CPipeOStream& blocks() { return *mBlocks; }
    /// Waits for the partner's end and returns what it counted.
    STotals finish();

private:
    int wait();

    pid_t mProcess = -1;
    std::optional<CPipeOStream> mBlocks;
    std::optional<CPipeIStream> mReport;
};
