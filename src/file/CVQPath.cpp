#include <CVQPath.h>

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace {

constexpr std::size_t kSize = 1024;  // of a path with its terminating zero byte

/// A text that is put together from pieces of valid ones, which need no second look.
class CVQPieces : public CVQString {
public:
    explicit CVQPieces(std::size_t capacity) : CVQString(capacity) {}
    void add(std::string_view piece) { internalAppend(piece.data(), piece.size()); }
};

std::string_view viewOf(const CVQString& text) {
    return {text.c_str(), text.getByteLength()};
}

CVQString copyOf(std::string_view piece) {
    CVQPieces copy(piece.size());
    copy.add(piece);
    return std::move(copy);
}

/// Where the last component begins, or the separator before it.
std::size_t findLastComponent(std::string_view text) {
    std::size_t position = text.size() - 1;
    while (position > 0 && text[position] == '/') {
        --position;
    }
    while (position > 0 && text[position] != '/') {
        --position;
    }
    return position;
}

bool isLetter(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

}  // namespace

bool CVQPath::isValid() const noexcept {
    const unsigned characters = mText.getCharacterCount();
    return characters >= 1 && characters < kSize;
}

void CVQPath::convertSeparators(char* text) noexcept {
    for (; text != nullptr && *text != '\0'; ++text) {
        if (*text == '\\') {
            *text = '/';
        }
    }
}

CVQPath operator/(const CVQPath& left, const char* right) {
    const std::string_view first(left.mText.c_str());
    const std::string_view second(right != nullptr ? right : "");
    const std::size_t bytes = first.size() + 1 + second.size();
    if (bytes >= kSize) {
        return CVQPath();
    }
    CVQPieces joined(bytes);
    joined.add(first);
    joined.add("/");
    joined.append(second.data(), second.size());
    return CVQPath(std::move(joined));
}

CVQPath operator/(const CVQPath& left, const CVQPath& right) {
    return left / right.mText.c_str();
}

CVQPath& CVQPath::operator/=(const CVQPath& right) {
    return *this = *this / right;
}

CVQPath& CVQPath::operator/=(const char* right) {
    return *this = *this / right;
}

CVQString CVQPath::canonify(const CVQString& text) {
    std::string_view rest = viewOf(text);
    while (rest.size() > 1 && rest.back() == '/') {
        rest.remove_suffix(1);
    }
    std::size_t run = rest.find("//");
    if (run == std::string_view::npos) {
        return rest.size() == text.getByteLength() ? text : copyOf(rest);
    }
    CVQPieces canonical(rest.size());
    while (run != std::string_view::npos) {
        canonical.add(rest.substr(0, run + 1));
        rest.remove_prefix(rest.find_first_not_of('/', run));
        run = rest.find("//");
    }
    canonical.add(rest);
    return std::move(canonical);
}

bool CVQPath::isRoot() const {
    doCanonify();
    const std::string_view text = viewOf(mText);
    if (text == "/") {
        return true;
    }
    // Kept: path-drive-any-third. After the canonical form "C:/" is "C:", and what else may follow was never asked.
    const unsigned characters = mText.getCharacterCount();
    return (characters == 2 || characters == 3) && isLetter(text[0]) && text[1] == ':';
}

CVQString CVQPath::getLeaf() const {
    if (!isValid()) {
        return CVQString();
    }
    std::string_view leaf = viewOf(mText);
    leaf.remove_prefix(findLastComponent(leaf));
    // Kept: path-leaf-separators.
    leaf.remove_prefix(std::min(leaf.find_first_not_of('/'), leaf.size()));
    return copyOf(leaf);
}

CVQPath CVQPath::getBranch() const {
    if (!isValid()) {
        return CVQPath();
    }
    const std::string_view text = viewOf(mText);
    const std::size_t position = findLastComponent(text);
    return copyOf(text.substr(0, position == 0 && text[0] == '/' ? 1 : position));
}

bool operator==(const CVQPath& left, const CVQPath& right) {
    return CVQPath::canonify(left.mText) == CVQPath::canonify(right.mText);
}

void CVQPath::setSimulationRoot(const char*) noexcept {
}

IVQOStream& operator<<(IVQOStream& stream, const CVQPath& path) {
    return stream << path.mText;
}

const IVQIStream& operator>>(const IVQIStream& stream, CVQPath& path) {
    return stream >> path.mText;
}
