// Numbers as people read them.
#pragma once

#include <string>

/// 1234567 as "1,234,567".
std::string grouped(unsigned long long number);

/// A count of bytes in a unit that leaves up to four digits before the point: "999 B", "12.3 KiB", "4.0 GiB".
std::string withUnit(unsigned long long bytes);
