// VQInteropHash: std::hash for the types of this library that have an ==, so that they are keys of std::unordered_map
// and its kind.
//
//   Equal    what is equal has one hash. So the hash of a text ends at its first zero byte, as == does, and that of a
//            path is its canonical form's. `getHashValueForString` tells such texts apart, and so cannot be it. For a
//            text without zero bytes the hash is that of the std::string_view of it.
//   Without  CVQDateAndTime and CVQTimeSpan have no == and no hash: take their getMicroseconds() as the key.
//   Errors   none, but for what a path's canonical form needs: without memory the process ends.
//   Stable   hashes are for one process only: they differ between platforms, and may change.
//   Threads  as the values.
#pragma once

#include <CVQBuffer.h>
#include <CVQDateAndTime.h>
#include <CVQFix16.h>
#include <CVQPath.h>
#include <CVQRCMemoryBuffer.h>
#include <CVQString.h>
#include <CVQTimeSpan.h>
#include <TVQHashKey.h>
#include <TVQRefCountPointer.h>

#include <cstddef>
#include <functional>
#include <string_view>

template <>
struct std::hash<CVQString> {
    std::size_t operator()(const CVQString& text) const noexcept {
        return std::hash<std::string_view>()(text.c_str());
    }
};

template <>
struct std::hash<CVQPath> {
    std::size_t operator()(const CVQPath& path) const {
        return std::hash<CVQString>()(CVQPath::canonify(path.getString()));
    }
};

template <>
struct std::hash<CVQRCMemoryBuffer> {
    std::size_t operator()(const CVQRCMemoryBuffer& buffer) const noexcept {
        const auto* const bytes = reinterpret_cast<const char*>(buffer.getData());
        return std::hash<std::string_view>()({bytes, buffer.getSize()});
    }
};

template <>
struct std::hash<CVQBuffer> {
    std::size_t operator()(const CVQBuffer& buffer) const noexcept {
        return std::hash<CVQRCMemoryBuffer>()(buffer.getMemoryBuffer());
    }
};

template <>
struct std::hash<CVQDateAndTime::SVQDate> {
    std::size_t operator()(const CVQDateAndTime::SVQDate& date) const noexcept {
        return VQPrivate::spreadHash((date.year * 256U + date.month) * 256U + date.day);
    }
};

template <>
struct std::hash<CVQDateAndTime::SVQTime> {
    std::size_t operator()(const CVQDateAndTime::SVQTime& time) const noexcept {
        const unsigned long long seconds = (time.hour * 256U + time.minute) * 256U + time.second;
        return VQPrivate::spreadHash((seconds << 32U) | time.microsecond);
    }
};

template <>
struct std::hash<CVQTimeSpan::Span> {
    std::size_t operator()(const CVQTimeSpan::Span& span) const noexcept {
        return VQPrivate::spreadHash(static_cast<unsigned long long>(CVQTimeSpan::getMicrosFromSpan(span)));
    }
};

template <>
struct std::hash<CVQFix16> {
    std::size_t operator()(const CVQFix16& number) const noexcept {
        return VQPrivate::spreadHash(static_cast<unsigned>(number.getRaw()));
    }
};

template <class T>
struct std::hash<TVQRefCountPointer<T>> {
    std::size_t operator()(const TVQRefCountPointer<T>& pointer) const noexcept {
        return std::hash<T*>()(pointer.get());
    }
};
