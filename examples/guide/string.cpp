// Text: copies that share, characters and bytes, splitting, another character set.
#include <CVQString.h>
#include <TVQVector.h>
#include <VQCharsetConversion.h>
#include <VQStringUtilities.h>
#include <cstdio>
#include <cstring>

int main() {
    CVQString line("name=Köln;height=37;name=Łódź");
    const CVQString before = line;  // one more owner of the same block
    line.replaceAll("name", "city");
    std::printf("%s (was %s)\n", line.c_str(), before.c_str());
    std::printf("%u characters in %u bytes\n", line.getCharacterCount(), line.getByteLength());

    TVQVector<CVQString> fields;
    VQStringUtilities::split(fields, line, ";", /*skipEmpty*/ true);
    for (CVQString& field : fields) {
        VQStringUtilities::toUpper(field);
        char latin[32];
        VQConvertTo8859_1(field, latin, sizeof(latin), '?');
        const CVQString back = VQConvertFrom8859_1(latin, std::strlen(latin));
        std::printf("%s, in ISO 8859-1: %s\n", field.c_str(), back.c_str());
    }
}
