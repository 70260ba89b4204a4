// StringInternals: what the tests of the string look at beside its interface.
#pragma once

#include "support/Sanitizers.h"
#include "support/ScopedEnvironment.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"

#include <CVQString.h>

#include <cstring>
#include <ostream>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

inline void PrintTo(const CVQString& text, std::ostream* stream) {
    *stream << '"' << text.c_str() << "\" (" << text.getByteLength() << " bytes, " << text.getCharacterCount()
            << " characters)";
}

namespace strings {

/// The least capacity that a string refuses, in bytes.
constexpr unsigned kFirstInvalid = 4294967276u;

/// Whether a test may go through four billion bytes one by one.
#if defined(__OPTIMIZE__)
constexpr bool kCountsBillions = sizeof(void*) == 8 && !support::kIsSanitized;
#else
constexpr bool kCountsBillions = false;
#endif

/// The block behind a string. To be written by those tests alone that need a length which no machine holds.
inline SVQStringData& blockOf(const CVQString& text) {
    return **reinterpret_cast<SVQStringData* const*>(&text);
}

inline unsigned ownersOf(const CVQString& text) {
    return blockOf(text).mReferences;
}

/// All bytes, zero bytes too.
inline std::string bytesOf(const CVQString& text) {
    return std::string(text.c_str(), text.getByteLength());
}

inline CVQString::const_iterator at(const CVQString& text, int characters) {
    CVQString::const_iterator position = text.begin();
    position += characters;
    return position;
}

/// A position that no iterator would come to: the byte itself.
inline CVQString::const_iterator positionOn(const char* place) {
    return reinterpret_cast<const CVQString::const_iterator&>(place);
}

inline std::size_t offsetOf(const CVQString& text, const CVQString::const_iterator& position) {
    return static_cast<std::size_t>(position.getPosition() - text.c_str());
}

/// Reaches the members that the conversions build on.
class Inner : public CVQString {
public:
    Inner() = default;
    explicit Inner(const CVQString& text) : CVQString(text) {}

    using CVQString::addReference;
    using CVQString::charConstruct;
    using CVQString::internalAppend;
    using CVQString::removeReference;
};

/// Text that came past the validation, with as many characters as it has lead bytes.
inline CVQString unchecked(const std::string& bytes) {
    Inner text;
    text.internalAppend(bytes.data(), bytes.size());
    return text;
}

/// What is reported while it lives: lines of the log with their severity, without the process id in front.
/// Backtraces go to a folder of its own.
class Reports {
public:
    using Lines = std::vector<std::pair<int, std::string>>;

    Lines lines() {
        const std::string prefix = "pid " + std::to_string(getpid()) + ": ";
        Lines all;
        for (const auto& record : mLog.records()) {
            const bool own = record.text.compare(0, prefix.size(), prefix) == 0;
            all.emplace_back(record.severity, own ? record.text.substr(prefix.size()) : record.text);
        }
        return all;
    }

    /// The two lines of each assertion.
    static Lines assertion(unsigned line, const std::string& text, std::size_t times = 1) {
        const std::string number = std::to_string(line);
        Lines all;
        for (; times > 0; --times) {
            all.emplace_back(2, "CVQString:" + number + ": ASSERTION \"" + text + "\" failed");
            all.emplace_back(1, "ASSERTION \"" + text + "\" failed in CVQString " + number);
        }
        return all;
    }

    static Lines invalidText(std::size_t times = 1) {
        return Lines(times, {2, "The character sequence contains a wrong coded UTF-8 sequence !"});
    }

private:
    support::TemporaryFolder mFolder;
    support::ScopedEnvironment mDirectory{"VQ_ASSERTION_BACKTRACE_DIR", mFolder.path()};
    support::SlogCapture mLog;
};

}  // namespace strings
