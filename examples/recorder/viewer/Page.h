// Page: a recording as one HTML page with nothing beside it: plots in SVG, light and dark, for desk and phone.
#pragma once

#include "viewer/CHistory.h"

#include <CVQOTextStream.h>

/// Series whose names have the same part before the first "." and the same unit share a plot.
void appendPage(CVQOTextStream& out, const CHistory& history);
