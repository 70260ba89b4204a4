#include <CVQBufferedOStream.h>

void CVQBufferedOStream::passOn() {
    // Kept: bufferedstream-empty-block. Receivers count the blocks.
    mTarget << mBytes;
    mTarget.flush();
    mBytes = CVQByteStream();  // of length 0; the block stays
}

static_assert(sizeof(void*) != 4 || sizeof(CVQBufferedOStream) == 8 + sizeof(CVQByteStream),
              "table, target, bytes");
