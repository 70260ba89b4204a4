#include "Faults.h"

#include <CVQDateAndTime.h>
#include <CVQOTextStream.h>
#include <CVQString.h>

#include <cerrno>
#include <ctime>

namespace {

using faults::Arm;
using faults::Row;

}  // namespace

std::vector<Row> faults::otherRows() {
    return {
        {__LINE__, "CVQDateAndTime", "mktime",  // kept: the last second that 32 bits can tell
         [](const Arm& arm) {
             std::tm time = {};
             time.tm_mday = 1;
             time.tm_year = 100;
             arm();
             CVQDateAndTime::SVQDate date;
             CVQDateAndTime(time, 0).getDate(date);
             return std::to_string(date.year) + '-' + std::to_string(date.month) + '-' + std::to_string(date.day);
         },
         "2106-2-7"},
        {__LINE__, "CVQDateAndTime", "mktime",  // a Saturday, as the calendar has it without the platform
         [](const Arm& arm) {
             CVQDateAndTime::SVQDate date = {};
             date.year = 2000;
             date.month = 1;
             date.day = 1;
             arm();
             return std::to_string(CVQDateAndTime::getDayOfWeek(date));
         },
         "6"},
        {__LINE__, "CVQString", "vsnprintf",
         [](const Arm& arm) {
             CVQString text("before");
             arm();
             const bool result = text.format("%x", 12);
             return (result ? "true " : "false ") + std::string(text.c_str());
         },
         "false "},
        {__LINE__, "CVQOTextStream", "vsnprintf",
         [](const Arm& arm) {
             CVQOTextStream text(100);
             text << "before";
             arm();
             text.streamWrite("%x", 12);
             return std::string(text.c_str());
         },
         "before"},
        {__LINE__, "CVQOTextStream", "vsnprintf",  // into the larger block: nothing of it is text
         [](const Arm& arm) {
             CVQOTextStream text(10);
             text << "before";
             arm();
             text.streamWrite("%0200x", 12);
             return std::string(text.c_str());
         },
         "before", nullptr, 2},
    };
}
