// Points in time and durations: one count of microseconds each, and their calendar views.
#include <CVQDateAndTime.h>
#include <CVQString.h>
#include <CVQTimeSpan.h>
#include <cstdio>

int main() {
    CVQDateAndTime start(CVQDateAndTime::SVQDate(2028, 2, 28), CVQDateAndTime::SVQTime(22, 30, 0, 0),
                         /*hourOffset*/ 0);
    CVQTimeSpan watch;
    watch.setHours(26);

    CVQDateAndTime end = start;
    end.addTimeSpan(watch);
    CVQDateAndTime::SVQDate date;
    end.getDate(date);
    const unsigned weekday = CVQDateAndTime::getDayOfWeek(CVQDateAndTime::getDaysFromDate(date));
    std::printf("%s to %s, weekday %u\n", start.toString().c_str(), end.toString().c_str(), weekday);

    const CVQTimeSpan early = start.subTimeStamp(end);
    CVQTimeSpan::Span span;
    early.getSpan(span);
    std::printf("the other way round: %s%u day, %u hours\n", span.negative ? "-" : "", span.days, span.hours);
    std::printf("February 30th %s\n",
                CVQDateAndTime::isDateValid(CVQDateAndTime::SVQDate(2028, 2, 30)) ? "exists" : "does not exist");
}
