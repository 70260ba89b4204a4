// CArguments: the words after a program's name, checked.
//   Form     options are --NAME or --NAME=VALUE; of those that are given twice the first counts. "@FILE" stands for the
//            lines in the section COMMANDLINE of that file. Everything else is an operand.
//   Errors   a wrong command line ends the process with status 2 and a line that says why; --help and -h end it with
//            status 0.
#pragma once

#include <CVQString.h>
#include <TVQVector.h>
#include <initializer_list>

class CArguments {
public:
    struct SOption {
        const char* name;
        bool hasValue;
    };

    CArguments(const char* program, const char* help, std::initializer_list<SOption> options, int fewestOperands,
               int mostOperands);

    const TVQVector<CVQString>& getOperands() const { return mOperands; }
    bool isSet(const char* name) const;
    /// The value, or null.
    const char* getText(const char* name) const;
    unsigned getNumber(const char* name, unsigned smallest, unsigned largest, unsigned otherwise) const;

    [[noreturn]] void refuse(const char* format, ...) const VQ_PRINTF(2, 3);

private:
    void checkOption(const char* word, std::initializer_list<SOption> options) const;
    void checkFile(const char* name) const;

    const char* mProgram;
    TVQVector<CVQString> mOperands;
};
