// CVQPath: a path in the file system, as text with "/" between its components.
//   Units    lengths count characters where a path is valid or not, and bytes where two are joined.
//   Shape    one CVQString, whatever it holds: nothing is checked or converted on the way in. The stream form is
//            the text's.
//   Form     a path is canonical when no "/" follows another and none ends it, but for the root "/" itself. "." and
//            ".." are components like any other.
//   Errors   none. Leaf and branch of an invalid path are empty, and so is a joined path of 1024 bytes or more.
//   Threads  one thread at a time, for `isRoot` and `doCanonify` too: they are const and change the text.
//   Kept     path-const-canonify: `isRoot` and `doCanonify` replace the text of a path that is const.
//            path-leaf-separators: separators at the end belong to the leaf, and the branch keeps all but one of
//            those before the leaf.
//            path-drive-any-third: in a drive root of three characters the third may be any character.
#pragma once

#include <CVQString.h>
#include <VQExport.h>

class VQ_EXPORT CVQPath {
public:
    constexpr CVQPath() noexcept = default;
    /// Null gives the empty path.
    CVQPath(const char* text) : mText(text) {}
    CVQPath(const CVQString& text) noexcept : mText(text) {}
    CVQPath(CVQString&& text) noexcept : mText(static_cast<CVQString&&>(text)) {}
    CVQPath(const CVQPath& other) noexcept = default;
    CVQPath(CVQPath&& other) noexcept = default;
    ~CVQPath() = default;

    CVQPath& operator=(const CVQPath& other) noexcept = default;
    CVQPath& operator=(CVQPath&& other) noexcept = default;
    CVQPath& operator=(const CVQString& text) noexcept {
        mText = text;
        return *this;
    }
    CVQPath& operator=(const char* text) { return *this = CVQString(text); }

    /// 1 to 1023 characters.
    bool isValid() const noexcept;

    const CVQString& getString() const noexcept { return mText; }
    /// The text as the operating system takes it: here the text itself.
    const CVQString& getOSSpecific() const noexcept { return mText; }

    /// Replaces each "\" by "/" in place. Null does nothing.
    static void convertSeparators(char* text) noexcept;

    /// Both texts with a "/" between them, whether or not there is one already; null is the empty text. Empty when
    /// that has 1024 bytes or more.
    CVQPath& operator/=(const CVQPath& right);
    CVQPath& operator/=(const char* right);
    friend VQ_EXPORT CVQPath operator/(const CVQPath& left, const CVQPath& right);
    friend VQ_EXPORT CVQPath operator/(const CVQPath& left, const char* right);

    /// The canonical form of `text`, which is shared when it has that form.
    static CVQString canonify(const CVQString& text);
    void canonify() { doCanonify(); }
    /// Kept: path-const-canonify.
    void doCanonify() const { mText = canonify(mText); }

    /// Makes the path canonical; true for "/", and for a letter, ":" and at most one character more.
    bool isRoot() const;

    /// The last component, with the separators behind it; empty for the root. Kept: path-leaf-separators.
    CVQString getLeaf() const;
    /// What stands before the separator in front of the leaf; "/" when that is nothing but the root, empty when
    /// there is no separator.
    CVQPath getBranch() const;

    /// Compare canonical forms.
    friend VQ_EXPORT bool operator==(const CVQPath& left, const CVQPath& right);
    friend bool operator!=(const CVQPath& left, const CVQPath& right) { return !(left == right); }

    /// Ignored: paths lead into the real file system.
    static void setSimulationRoot(const char* root) noexcept;

    friend VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQPath& path);
    friend VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQPath& path);

private:
    mutable CVQString mText;
};

VQ_EXPORT CVQPath operator/(const CVQPath& left, const CVQPath& right);
VQ_EXPORT CVQPath operator/(const CVQPath& left, const char* right);
VQ_EXPORT bool operator==(const CVQPath& left, const CVQPath& right);
/// The text's form.
VQ_EXPORT IVQOStream& operator<<(IVQOStream& stream, const CVQPath& path);
VQ_EXPORT const IVQIStream& operator>>(const IVQIStream& stream, CVQPath& path);

static_assert(sizeof(CVQPath) == sizeof(CVQString), "one text");
