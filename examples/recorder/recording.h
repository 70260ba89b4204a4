// The two halves of the recording: a text into blocks of records, and blocks back into records.
#pragma once

#include "CPipeStream.h"
#include "CProgress.h"
#include "CTextSource.h"
#include "SOptions.h"
#include "STotals.h"

/// Makes a record of every line and sends them in blocks, with an empty block at the end. Returns early, and leaves
/// the pipe broken, when nobody reads.
STotals writeRecords(CTextSource& source, const SOptions& options, CPipeOStream& pipe, CProgress& progress);

/// Reads blocks up to the empty one and checks every record. `problem` says what stopped it before.
STotals readRecords(const CPipeIStream& pipe);
