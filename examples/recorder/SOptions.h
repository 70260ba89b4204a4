// SOptions: what the recorder was asked to do.
#pragma once

#include <string>

struct SOptions {
    std::string path;             // "-" for standard input; empty for a text that the machine has anyway
    unsigned blockSize = 262144;  // bytes of records that are sent at once
    unsigned spoilEvery = 0;      // 0: never
};

/// Ends the process after `--help` (0) and, with a message, after a wrong command line (2).
SOptions parseOptions(int argc, char* argv[]);
