// Paths read from arbitrary bytes, then canonified, taken apart and joined: the results have to agree with the
// plain rules.
//   Input    the first byte says where the rest is parted into the texts of two paths.
#include "Fuzz.h"
#include "file/PlainPath.h"
#include "string/MemoryStream.h"
#include "string/PlainText.h"

#include <CVQPath.h>

#include <cstdint>
#include <string>

namespace {

using fuzz::require;

std::string bytesOf(const CVQString& text) {
    return {text.c_str(), text.getByteLength()};
}
std::string bytesOf(const CVQPath& path) {
    return bytesOf(path.getString());
}

CVQPath received(const std::string& bytes) {
    strings::MemoryStream stream(strings::lengthOf(static_cast<unsigned>(bytes.size())) + bytes);
    CVQPath path("old");
    stream >> path;
    plain::Text expected;
    expected.appendValid(bytes);
    require(bytesOf(path) == expected.bytes, "the path that was read");
    require(path.isValid() == (expected.characters >= 1 && expected.characters < 1024), "whether it is valid");
    strings::MemoryStream back;
    static_cast<IVQOStream&>(back) << path;
    require(back.bytes == strings::lengthOf(static_cast<unsigned>(expected.bytes.size())) + expected.bytes,
            "the form");
    return path;
}

void takeApart(const CVQPath& path) {
    const std::string text = bytesOf(path);
    require(bytesOf(CVQPath::canonify(path.getString())) == plain::canonical(text), "the canonical form");
    require(bytesOf(path.getLeaf()) == (path.isValid() ? plain::leafOf(text) : ""), "the leaf");
    require(bytesOf(path.getBranch()) == (path.isValid() ? plain::branchOf(text) : ""), "the branch");
    const CVQPath canonical = path;
    canonical.isRoot();
    require(bytesOf(canonical) == plain::canonical(text), "the path that was asked for a root");
    require(canonical == path, "a path and its canonical form");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::size_t middle = bytes.size() * data[0] / 255;
    const CVQPath left = received(bytes.substr(0, middle));
    const CVQPath right = received(bytes.substr(middle));
    takeApart(left);
    takeApart(right);

    const CVQPath joined = left / right;
    const std::string both = plain::joined(left.getString().c_str(), right.getString().c_str());
    require(bytesOf(joined) == both, "the joined path");
    takeApart(joined);
    return 0;
}
