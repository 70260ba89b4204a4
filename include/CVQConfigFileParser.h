// CVQConfigFileParser: reads a text file in sections and hands each line to the callback of its section.
//
//   Form     sections of lines:
//
//                # a comment: from a "#" to the end of its line
//                [section]  what follows the "]" is ignored
//                any text, with \# for a "#"
//
//            What a line means is the callback's affair. A name in brackets is taken as it stands, blanks included,
//            and case counts. Lines outside registered sections are skipped, and so are empty ones. A "[" without
//            "]" at the start of a line ends the section. A blank before it makes the line an ordinary one.
//   Units    a line longer than 1023 bytes, its end included, is several lines, cut after each 1023 bytes.
//   Errors   `parse` is false when the file cannot be opened, with the reason in `errno`. A read error ends it
//            early and is no failure. Nothing is logged.
//   Files    one descriptor is open while a file is parsed; on exec it is closed.
//   Threads  one thread at a time; callbacks run on the calling thread. They may register sections and parse files
//            with the same parser.
//   Kept     config-trim-bytes: bytes from 0x80 on count as blanks at the end of a line, so that a letter beyond
//            ASCII is lost there.
//            config-after-escape: the character behind "\#" never starts a comment.
//            config-zero-byte: a line ends at its first zero byte.
#pragma once

#include <CVQString.h>
#include <TVQMap.h>
#include <VQExport.h>

class VQ_EXPORT CVQConfigFileParser {
public:
    /// Who takes the lines of a section.
    class VQ_EXPORT ICallback {
    public:
        /// `line` has no comment and nothing to trim at its end, and is there during the call. False stops the
        /// parser.
        virtual bool processConfigFileEntry(unsigned short sectionId, const char* line) = 0;

    protected:
        ~ICallback() = default;
    };

    /// What a section's name stands for: its number, and who takes its lines.
    struct SSectionInfo {
        unsigned short sectionId;
        ICallback* callback;

        bool operator==(const SSectionInfo& other) const noexcept {
            return sectionId == other.sectionId && callback == other.callback;
        }
    };

    CVQConfigFileParser() = default;

    /// False, and nothing changes, when the section has a callback already. The parser does not own `callback`,
    /// which may be null for a section to be skipped.
    bool addSectionCallback(const CVQString& name, unsigned short sectionId, ICallback* callback);

    /// True when the file could be opened, also when a callback stopped the parser.
    bool parse(const CVQString& fileName);

private:
    const SSectionInfo* findSection(const char* name) const;

    TVQMap<CVQString, SSectionInfo> mSections;
};
