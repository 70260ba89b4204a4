// The table at the end: what was written beside what was read back.
#pragma once

#include "STotals.h"

#include <string>

std::string makeTable(const STotals& written, const STotals& read, bool isHeapTraced);
