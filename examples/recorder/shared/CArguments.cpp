#include "shared/CArguments.h"

#include "shared/InputFile.h"

#include <CVQConfigFileParser.h>
#include <VQCommandLineOptions.h>
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Learns whether there is a line in the section.
class CLineFinder final : private CVQConfigFileParser::ICallback {
public:
    bool isLineIn(const char* section, const char* file) {
        CVQConfigFileParser parser;
        parser.addSectionCallback(section, 0, this);
        parser.parse(file);
        return mIsFound;
    }

private:
    bool processConfigFileEntry(unsigned short /*sectionId*/, const char* /*line*/) override {
        mIsFound = true;
        return false;
    }

    bool mIsFound = false;
};

}  // namespace

CArguments::CArguments(const char* program, const char* help, std::initializer_list<SOption> options,
                       int fewestOperands, int mostOperands)
    : mProgram(program) {
    VQCommandLineOptions::disableWin32Prefixes();  // a "/" begins a path
    if (VQCommandLineOptions::isOptionSet("help") || VQCommandLineOptions::isOptionSet("h")) {
        std::fputs(help, stdout);
        std::exit(0);
    }
    for (int i = 1; i < VQCommandLineOptions::getARGC(); ++i) {
        const char* const word = VQCommandLineOptions::getARG(i);
        if (word[0] == '-') {
            checkOption(word, options);
        } else if (word[0] == '@') {
            checkFile(word + 1);
        } else {
            mOperands.push_back(word);
        }
    }
    if (mOperands.size() < fewestOperands) {
        refuse("too few operands");
    }
    if (mOperands.size() > mostOperands) {
        refuse("'%s' is one operand too many", mOperands[mostOperands].c_str());
    }
}

bool CArguments::isSet(const char* name) const {
    return VQCommandLineOptions::isOptionSet(name);
}

const char* CArguments::getText(const char* name) const {
    return VQCommandLineOptions::getOptionArg(name);
}

unsigned CArguments::getNumber(const char* name, unsigned smallest, unsigned largest, unsigned otherwise) const {
    const char* const text = getText(name);
    if (text == nullptr) {
        return otherwise;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = *text >= '0' && *text <= '9' ? std::strtoull(text, &end, 10) : 0;
    if (end == nullptr || *end != '\0' || errno != 0 || number < smallest || number > largest) {
        refuse("--%s takes a number from %u to %u, not '%s'", name, smallest, largest, text);
    }
    return static_cast<unsigned>(number);
}

void CArguments::refuse(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    std::fprintf(stderr, "%s: ", mProgram);
    std::vfprintf(stderr, format, arguments);
    std::fprintf(stderr, "\nTry '%s --help'.\n", mProgram);
    va_end(arguments);
    std::exit(2);
}

void CArguments::checkOption(const char* word, std::initializer_list<SOption> options) const {
    // The library's own switches are for every program.
    constexpr SOption kLibrary[] = {{"memtrace", true}, {"nobreak", false}};
    const char* const name = word + std::strspn(word, "-");
    const std::size_t length = std::strcspn(name, "=");
    const auto isIt = [=](const SOption& option) {
        return std::strncmp(option.name, name, length) == 0 && option.name[length] == '\0';
    };
    const SOption* option = std::find_if(options.begin(), options.end(), isIt);
    if (option == options.end()) {
        option = std::find_if(std::begin(kLibrary), std::end(kLibrary), isIt);
        if (option == std::end(kLibrary)) {
            refuse("unknown option '%s'", word);
        }
    }
    const bool hasValue = name[length] == '=';
    if (option->hasValue && !hasValue) {
        refuse("--%s takes a value: --%s=...", option->name, option->name);
    }
    if (hasValue && !option->hasValue) {
        refuse("--%s takes no value", option->name);
    }
}

/// The library logs and skips a file that it cannot read, and says nothing of one that has no options. A pipe it has
/// emptied: that is not read again.
void CArguments::checkFile(const char* name) const {
    CVQFileStatus status;
    if (!isReadableFile(name, status)) {
        refuse("cannot read the option file %s: %s", name, std::strerror(errno));
    }
    if (S_ISREG(status.st_mode) && !CLineFinder().isLineIn("COMMANDLINE", name)) {
        refuse("the option file %s has no line in a section [COMMANDLINE]", name);
    }
}
