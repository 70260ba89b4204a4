#include <CVQClassID.h>

CVQClassID::~CVQClassID() {
    // Through volatile, since a plain store to a dying object is dropped: an identifier that is asked for its name
    // after exit destroyed it answers null, not the text of a unit that may be unloaded.
    *const_cast<const char* volatile*>(&mName) = nullptr;
}
