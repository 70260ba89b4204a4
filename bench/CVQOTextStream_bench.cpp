// CVQOTextStream beside what is in CVQOTextStream_peers.cpp. All start from nothing and grow.
#include "CVQOTextStream_workload.h"

#include <CVQOTextStream.h>

#include <cstring>

namespace {

MARLIX_BENCH("CVQOTextStream_Texts", "ours", 1000000) {
    for (auto _ : state) {
        CVQOTextStream stream(0);
        for (unsigned i = 0; i < bench::kItems; ++i)
            stream << bench::kTexts[i % bench::kTextCount];
        bench::check(stream.getLength() == bench::plainLength(), "length");
    }
}

MARLIX_BENCH("CVQOTextStream_Formatted", "ours", 1000000) {
    for (auto _ : state) {
        CVQOTextStream stream(0);
        for (unsigned i = 0; i < bench::kItems; ++i)
            stream.streamWrite("%s=%d;", "name", static_cast<int>(i));
        bench::check(stream.getLength() == bench::kFormattedLength, "length");
    }
}

MARLIX_BENCH("CVQOTextStream_Escape", "ours", 1048576) {
    const std::string text = bench::markedUp(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        CVQOTextStream stream(0);
        stream.setFlags(CVQOTextStream::XML_ESCAPE);
        stream << text.c_str();
        bench::check(stream.getLength() > text.size(), "length");
    }
}

}  // namespace
