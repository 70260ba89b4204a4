// The words after a program's name, as server and client read them.
#pragma once

#include <CVQString.h>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>

[[noreturn]] inline void offerHelp(const char* program) {
    std::fprintf(stderr, "Try '%s --help'.\n", program);
    std::exit(2);
}

[[noreturn]] inline void refuse(const char* program, const CVQString& problem) {
    std::fprintf(stderr, "%s: %s\n", program, problem.c_str());
    offerHelp(program);
}

/// Takes the options off, so that the operands stand from `optind` on. Asked for help, and for an option that is
/// neither that nor `flag`, it ends the program. True when `flag`, which may be null, was among them.
inline bool readOptions(const char* program, int argc, char** argv, const char* help, const char* flag) {
    const option options[] = {
        {"help", no_argument, nullptr, 'h'}, {flag, no_argument, nullptr, 'f'}, {nullptr, 0, nullptr, 0}};
    bool isFlagSet = false;
    for (int found; (found = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        switch (found) {
        case 'f':
            isFlagSet = true;
            break;
        case 'h':
            std::fputs(help, stdout);
            std::exit(0);
        default:
            offerHelp(program);
        }
    }
    return isFlagSet;
}
