// IVQIOStream: source and sink in one. It adds nothing; byte streams, circular buffers and null streams derive
// from it.
//
//   Shape    two bases in this order, the input side first; neither is virtual.
//   Threads  one thread at a time.
#pragma once

#include <IVQIStream.h>
#include <IVQOStream.h>

class VQ_EXPORT IVQIOStream : public IVQIStream, public IVQOStream {};
