// Numbers as people read them.
#pragma once

#include <CVQString.h>

/// Three digits and a prefix: "0", "0.04", "12.3", "1.24k", "-512M".
CVQString shortNumber(double value);
/// The same with the unit: "12.3 %", "512 MB", "1.24k switches/s".
CVQString withUnit(double value, const CVQString& unit);

/// "20:47:42.3" of the day in UTC.
CVQString timeOfDay(unsigned long long micros);
/// "2026-11-21 20:47:42" in UTC.
CVQString dateAndTime(unsigned long long micros);
/// "4.2 s", "12 min 5 s", "3 h 20 min", "12 d 4 h".
CVQString duration(unsigned long long micros);

/// "1 block", "2 blocks".
CVQString counted(unsigned long long count, const char* noun);
