// VQInteropStringView: std::string_view in and out of CVQString.
//
//   Units    bytes.
//   Shape    a view shows all bytes of the text, zero bytes too; behind them lies one zero byte more. The way back
//            keeps all bytes, so that both ways give the same text again.
//   Errors   as where a text enters: bytes that are no UTF-8 are logged and cut off, with all that follows; a view of
//            2^32 - 1 bytes or more is an assertion and gives the empty string.
//   Invalid  a view is good as long as the pointer that `c_str` returns.
//   Threads  as CVQString.
#pragma once

#include <CVQString.h>
#include <VQExport.h>

#include <string_view>

namespace VQPrivate {

/// The constructor that CVQString has not: its own ends at the first zero byte.
class CVQStringOfView : public CVQString {
public:
    explicit CVQStringOfView(std::string_view bytes) {
        if (!bytes.empty() && makeRoom(bytes.size())) {
            charConstruct(bytes.data(), bytes.size(), 0);
        }
    }
};

}  // namespace VQPrivate

namespace VQInterop {

inline std::string_view toStringView(const CVQString& text VQ_LIFETIMEBOUND) noexcept {
    return {text.c_str(), text.getByteLength()};
}

/// A view without bytes, null or not, gives the empty string. Zero bytes are characters of the text; what comparing
/// and searching make of them CVQString says (Kept: string-zero-bytes).
inline CVQString fromStringView(std::string_view bytes) {
    return VQPrivate::CVQStringOfView(bytes);
}

}  // namespace VQInterop
