// A check that fails: it is reported, and the caller goes on with the result that was agreed on.
#include <CVQAsserter.h>
#include <VQSyslog.h>
#include <cstdio>

namespace {

constexpr char kUnit[] = "CHeating";
constexpr unsigned kLineLimit = 41;  // names the check in reports; it stays 41 wherever the code moves

bool setLimit(int celsius) {
    if (celsius < -40 || celsius > 125) {
        doAssert(kLineLimit, kUnit, "limit in range");
        return false;
    }
    VQSyslog::logMsg(0, VQSyslog::INFO, "the limit is %d degrees", celsius);
    return true;
}

}  // namespace

int main() {
    const bool good = setLimit(80);
    const bool bad = setLimit(400);
    std::printf("80: %s, 400: %s, assertions: %u\n", good ? "set" : "refused", bad ? "set" : "refused",
                CVQAsserter::getOccuredAssertions());
}
