// The calendars that one would pick instead of CVQDateAndTime. Each gets a date, turns it into its own count and back.
#include "Bench.h"
#include "CVQDateAndTime_workload.h"

#include <ctime>
#include <string>

#if BENCH_ABSEIL
#include <absl/time/civil_time.h>
#include <absl/time/time.h>
#endif
#if BENCH_BOOST
#include <boost/date_time/gregorian/gregorian_types.hpp>
#endif
#if BENCH_QT
#include <QDateTime>
#endif

namespace {

using bench::Day;

std::tm toTm(const Day& day) {
    std::tm time = {};
    time.tm_year = day.year - 1900;
    time.tm_mon = day.month - 1;
    time.tm_mday = day.day;
    time.tm_hour = 14;
    time.tm_min = 5;
    time.tm_sec = 9;
    return time;
}

// Date, day number and 30, date

Day daysOnByLibc(const Day& day) {
    std::tm time = toTm(day);
    const std::time_t later = timegm(&time) + std::time_t(bench::kDaysOn) * 86400;
    gmtime_r(&later, &time);
    return {time.tm_year + 1900, time.tm_mon + 1, time.tm_mday};
}
MARLIX_BENCH("CVQDateAndTime_DaysOn", "timegm, gmtime_r", 1) {
    bench::check(bench::isExampleResult(daysOnByLibc(bench::kExample)), "30 days on");
    bench::convertDays(state, daysOnByLibc);
}
#if BENCH_ABSEIL
Day daysOnByAbseil(const Day& day) {
    const absl::CivilDay epoch(1970, 1, 1);
    const absl::civil_diff_t number = absl::CivilDay(day.year, day.month, day.day) - epoch;
    const absl::CivilDay later = epoch + (number + bench::kDaysOn);
    return {int(later.year()), later.month(), later.day()};
}
MARLIX_BENCH("CVQDateAndTime_DaysOn", "absl::CivilDay", 1) {
    bench::check(bench::isExampleResult(daysOnByAbseil(bench::kExample)), "30 days on");
    bench::convertDays(state, daysOnByAbseil);
}
#endif
#if BENCH_BOOST
Day daysOnByBoost(const Day& day) {
    const boost::gregorian::date date(static_cast<unsigned short>(day.year), static_cast<unsigned short>(day.month),
                                      static_cast<unsigned short>(day.day));
    const auto later = (date + boost::gregorian::days(bench::kDaysOn)).year_month_day();
    return {later.year, later.month, later.day};
}
MARLIX_BENCH("CVQDateAndTime_DaysOn", "boost::gregorian::date", 1) {
    bench::check(bench::isExampleResult(daysOnByBoost(bench::kExample)), "30 days on");
    bench::convertDays(state, daysOnByBoost);
}
#endif
#if BENCH_QT
Day daysOnByQt(const Day& day) {
    int year = 0;
    int month = 0;
    int dayOfMonth = 0;
    QDate(day.year, day.month, day.day).addDays(bench::kDaysOn).getDate(&year, &month, &dayOfMonth);
    return {year, month, dayOfMonth};
}
MARLIX_BENCH("CVQDateAndTime_DaysOn", "QDate", 1) {
    bench::check(bench::isExampleResult(daysOnByQt(bench::kExample)), "30 days on");
    bench::convertDays(state, daysOnByQt);
}
#endif

// Date and time to a count of seconds, and that to a text

std::string formatByLibc(const Day& day) {
    std::tm time = toTm(day);
    const std::time_t seconds = timegm(&time);
    gmtime_r(&seconds, &time);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &time));
}
MARLIX_BENCH("CVQDateAndTime_ToString", "timegm, gmtime_r, strftime", 1) {
    bench::check(formatByLibc(bench::kExample) == "2000-02-15 14:05:09", "the text");
    bench::convertDays(state, formatByLibc);
}
#if BENCH_ABSEIL
std::string formatByAbseil(const Day& day) {
    const absl::TimeZone utc = absl::UTCTimeZone();
    const absl::Time time = absl::FromCivil(absl::CivilSecond(day.year, day.month, day.day, 14, 5, 9), utc);
    return absl::FormatTime("%Y-%m-%d %H:%M:%S", time, utc);
}
MARLIX_BENCH("CVQDateAndTime_ToString", "absl::FormatTime", 1) {
    bench::check(formatByAbseil(bench::kExample) == "2000-02-15 14:05:09", "the text");
    bench::convertDays(state, formatByAbseil);
}
std::string formatCivilByAbseil(const Day& day) {
    return absl::FormatCivilTime(absl::CivilSecond(day.year, day.month, day.day, 14, 5, 9));
}
MARLIX_BENCH("CVQDateAndTime_ToString", "absl::FormatCivilTime", 1) {
    bench::check(formatCivilByAbseil(bench::kExample) == "2000-02-15T14:05:09", "the text");
    bench::convertDays(state, formatCivilByAbseil);
}
#endif
#if BENCH_QT
QString formatByQt(const Day& day) {
    const QDateTime time(QDate(day.year, day.month, day.day), QTime(14, 5, 9), Qt::UTC);
    return QDateTime::fromMSecsSinceEpoch(time.toMSecsSinceEpoch(), Qt::UTC).toString(Qt::ISODate);
}
MARLIX_BENCH("CVQDateAndTime_ToString", "QDateTime", 1) {
    bench::check(formatByQt(bench::kExample) == "2000-02-15T14:05:09Z", "the text");
    bench::convertDays(state, formatByQt);
}
#endif

}  // namespace
