// CTextSource: a text, line by line.
//   Shape    lines end with LF or CR LF, which are not part of them; the last one may have no end. A line is valid,
//            and may be changed in place, until the next is asked for.
//   Errors   throws std::runtime_error, with a message for the user, for what cannot be opened or read, for a
//            folder, for bytes that are no text, and for a line of more than a gibibyte.
//   Threads  one thread at a time.
#pragma once

#include "CStopwatch.h"

#include <cstddef>
#include <string>
#include <vector>

class CTextSource {
public:
    struct SLine {
        char* text;
        std::size_t length;
    };

    /// Opens the file; "-" is standard input, empty the first of the large texts that a machine usually has.
    explicit CTextSource(const std::string& path);
    CTextSource(const CTextSource&) = delete;
    CTextSource& operator=(const CTextSource&) = delete;
    ~CTextSource();

    /// False at the end of the text, or after an interrupt.
    bool getNextLine(SLine& line);

    const std::string& getName() const { return mName; }
    /// 0 when it cannot be known before.
    unsigned long long getSize() const { return mSize; }
    unsigned long long getBytesRead() const { return mBytesRead; }
    const CStopwatch& getWaiting() const { return mWaiting; }

private:
    void open(const std::string& path);
    void openDefault();
    bool fill();
    void makeRoom();
    void checkIsText(const char* bytes, std::size_t count);

    std::string mName;
    int mDescriptor = -1;
    unsigned long long mSize = 0;
    unsigned long long mBytesRead = 0;
    unsigned long long mLines = 0;
    unsigned long long mControls = 0;
    std::vector<char> mBuffer;
    std::size_t mBegin = 0;    // of what has been read and not yet handed out
    std::size_t mScanned = 0;  // no line end lies before it
    std::size_t mEnd = 0;
    CStopwatch mWaiting;
};
