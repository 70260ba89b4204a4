// Fields: the numbers in a text of the kind that a system tells of itself in: lines of words, between blanks, tabs and
// colons, of which the first may say what the line is about.
#pragma once

#include <CVQString.h>

/// The sum, in thousandths, of the `field`-th words (0 is the first) of all lines whose first word is `row`, or of all
/// lines for "*". Words that are no numbers do not count. False when there is nothing to add, and for a sum beyond 64
/// bits.
bool sumField(const char* text, const CVQString& row, unsigned field, long long& thousandths);
