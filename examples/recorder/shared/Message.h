// Message: what a sampler says to a recorder, and what it hears.
//   Shape    a byte stream: the handle of the segment that holds the block (CVQReferencedSharedMemory), then the block's
//            size in bytes (4). The reply has a status and no bytes. A block that is not taken is an error of the send:
//            EBADMSG when it is none, or the recorder's own reason. It may be sent again.
//   Where    the recorder's line in its CServiceFile: "PROCESS CHANNEL".
#pragma once

namespace Message {

constexpr int kLongest = 512;

enum EStatus : int {
    RECORDED = 0,
    KNOWN = 1  // it was recorded before
};

constexpr char kRecorderFile[] = "recorder";
constexpr char kSamplerFile[] = "sampler";

}  // namespace Message
