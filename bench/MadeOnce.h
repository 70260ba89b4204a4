// MadeOnce: what a benchmark works on, where making it takes long: a body is called several times before it is measured.
#pragma once

#include <cstddef>
#include <map>

namespace bench {

/// The one `Made(count)` of this process.
template <class Made>
const Made& madeOnce(std::size_t count) {
    static std::map<std::size_t, const Made> all;
    return all.try_emplace(count, count).first->second;
}

}  // namespace bench
