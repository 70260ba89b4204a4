// Terminal: a recording as a table with small plots, in characters.
#pragma once

#include "viewer/CHistory.h"

#include <CVQOTextStream.h>

struct SLook {
    unsigned width = 100;  // columns, 60 at least
    bool hasColour = false;
};

/// Totals, the table, and a plot of each series.
void appendReport(CVQOTextStream& out, const CHistory& history, const SLook& look);
