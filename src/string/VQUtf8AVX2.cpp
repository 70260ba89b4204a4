#include "VQUtf8AVX2.h"

#include "VQUtf8Vector32.h"

namespace VQUtf8 {

constexpr SPasses kPassesAVX2 = kPassesOver<SVector32>;

}  // namespace VQUtf8
