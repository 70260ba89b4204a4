// PageFrame: what is the same in every page: its style, and the script that tells the values under the pointer.
#pragma once

extern const char kPageStyle[];
extern const char kPageScript[];
