// Dates read from arbitrary bytes: whatever 64 bits came, every conversion is safe and gives what the plain algorithm
// of the tests gives. After the 8 bytes of the value come an hour offset and the fields of a date and a time.
#include "Fuzz.h"
#include "time/PlainCalendar.h"

#include <CVQByteStream.h>
#include <CVQDateAndTime.h>
#include <CVQString.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>

namespace {

using fuzz::require;
using SVQDate = CVQDateAndTime::SVQDate;
using SVQTime = CVQDateAndTime::SVQTime;

void requireText(const CVQString& text, const SVQDate& date, const SVQTime& time) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%d-%02d-%02d %02d:%02d:%02d", date.year, date.month, date.day,
                  time.hour, time.minute, time.second);
    require(std::strcmp(text.c_str(), expected) == 0, "the text");
}

/// A value in each of its views.
void view(const CVQDateAndTime& value, int hourOffset) {
    const unsigned long long micros = value.getMicroseconds();
    constexpr unsigned long long kDay = CVQDateAndTime::msMicrosIn1Day;

    SVQDate date;
    SVQTime time;
    value.getDate(date);
    value.getTime(time, 0);
    require(date == plain::dateFromDays(static_cast<unsigned>(micros / kDay)), "the date");
    require(time.isValid(), "the time of day");
    require(CVQDateAndTime::getMicrosFromTime(time, 0) == micros % kDay, "the time of day, summed");
    requireText(value.toString(), date, time);
    if (date.year >= 1970 && micros / kDay <= 23'000'000) {  // before years wrap at 16 bits
        const unsigned back = CVQDateAndTime::getDaysFromDate(date);
        // The last day of a cycle of 400 years stands for the first of the next one.
        require(back == micros / kDay || back == micros / kDay + 1, "the day number of the date");
    }

    value.getTime(time, hourOffset);
    value.getDateAndTime(date, time, hourOffset);
    const CVQDateAndTime shifted(micros, /*isSeconds*/ false, hourOffset);
    SVQDate dateOfShifted;
    SVQTime timeOfShifted;
    shifted.getDate(dateOfShifted);
    shifted.getTime(timeOfShifted, 0);
    require(date == dateOfShifted && time == timeOfShifted, "the shifted date and time");

    CVQByteStream stream;
    stream << value;
    require(stream.getLength() == 8 && std::memcmp(stream.getData(), &micros, 8) == 0, "the bytes");
}

/// Fields that need not be a date or a time.
void set(CVQDateAndTime value, const SVQDate& date, const SVQTime& time, int hourOffset) {
    const unsigned dayNumber = CVQDateAndTime::getDaysFromDate(date);
    if (date.month >= 1 && date.month <= 13) {
        require(dayNumber == plain::daysFromDate(date), "the day number");
    }
    require(CVQDateAndTime::getDayOfWeek(dayNumber) <= 6 && CVQDateAndTime::getDayOfWeek(date) <= 6,
            "the day of the week");
    require(!date.isValid() || (date.year >= 1970 && date.year <= 3000), "the valid years");

    const unsigned long long timeOfDay = value.getMicroseconds() % CVQDateAndTime::msMicrosIn1Day;
    value.setDate(date);
    require(value.getMicroseconds() == dayNumber * CVQDateAndTime::msMicrosIn1Day + timeOfDay,
            "the day that was set");
    value.setTime(time, hourOffset);
    value.setDateAndTime(date, time, hourOffset);
    view(value, hourOffset);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    setenv("TZ", "UTC0", /*overwrite*/ 1);
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CVQByteStream stream;
    stream.write(data, static_cast<unsigned>(size < 8 ? size : 8));
    CVQDateAndTime value;
    stream >> value;

    FuzzedDataProvider rest(data + (size < 8 ? size : 8), size < 8 ? 0 : size - 8);
    const int hourOffset = rest.ConsumeIntegral<int>();
    SVQDate date;
    date.year = rest.ConsumeIntegral<unsigned short>();
    date.month = rest.ConsumeIntegral<unsigned char>();
    date.day = rest.ConsumeIntegral<unsigned char>();
    SVQTime time;
    time.hour = rest.ConsumeIntegral<unsigned char>();
    time.minute = rest.ConsumeIntegral<unsigned char>();
    time.second = rest.ConsumeIntegral<unsigned char>();
    time.microsecond = rest.ConsumeIntegral<unsigned>();

    view(value, hourOffset);
    set(value, date, time, hourOffset);
    return 0;
}
