#!/usr/bin/env python3
"""Runs the benchmark programs of one build in turns and prints one table of ratios, ours over theirs.

Only ratios count, and only within one run: for each piece of work our program and the peers' program run one after
the other, in many short rounds whose order alternates, each in a new process. A ratio is taken within its round, so
that a change of clock rate or load between rounds meets both sides; the table shows the median of the rounds and the
middle half of them. Times are processor time of the measuring thread, or of both processes where one hands over to
another, except where two threads compete: there it is the time that passed.
"""

import argparse
import collections
import fnmatch
import json
import os
import platform
import re
import statistics
import subprocess
import sys
from pathlib import Path

import report

# Operation -> what it is; {size} is the benchmark's size.
WORK = {
    "CVQString_Copy": "copy and drop a string of {size} B",
    "CVQString_CopyAlone": "copy and drop a string of {size} B, no threads",
    "CVQString_FromAscii": "build and validate {size} B of ASCII",
    "CVQString_FromGerman": "build and validate {size} B of German",
    "CVQString_FromChinese": "build and validate {size} B of Chinese",
    "CVQString_Find": "find in {size} B, first byte frequent",
    "CVQString_FindInProse": "find in {size} B of prose",
    "CVQString_FindPeriodic": "find in {size} B, all but the end alike",
    "CVQString_Format": "format {size} characters",
    "CVQString_AppendReserved": "append 8 B at a time to {size} B, reserved",
    "CVQString_AppendGrowing": "append 8 B at a time to {size} B, growing",
    "CVQString_Hash": "hash {size} B",
    "CVQString_Equal": "compare two equal texts of {size} B",
    "CVQString_ReplaceAll": "replace 64 placeholders in {size} B",
    "CVQString_Walk": "walk over {size} B of Chinese by character",
    "CVQString_WalkAscii": "walk over {size} B of ASCII by character",
    "VQCharsetConversion_AsciiToUtf16": "UTF-8 to UTF-16, {size} B of ASCII",
    "VQCharsetConversion_GermanToUtf16": "UTF-8 to UTF-16, {size} B of German",
    "VQCharsetConversion_ChineseToUtf16": "UTF-8 to UTF-16, {size} B of Chinese",
    "VQCharsetConversion_EmojiToUtf16": "UTF-8 to UTF-16, {size} B of emoji",
    "VQCharsetConversion_AsciiFromUtf16": "UTF-16 to UTF-8, {size} B of ASCII",
    "VQCharsetConversion_GermanFromUtf16": "UTF-16 to UTF-8, {size} B of German",
    "VQCharsetConversion_ChineseFromUtf16": "UTF-16 to UTF-8, {size} B of Chinese",
    "VQCharsetConversion_EmojiFromUtf16": "UTF-16 to UTF-8, {size} B of emoji",
    "VQCharsetConversion_AsciiTo8859": "UTF-8 to ISO 8859-15, {size} B of ASCII",
    "VQCharsetConversion_GermanTo8859": "UTF-8 to ISO 8859-15, {size} B of German",
    "VQCharsetConversion_AsciiFrom8859": "ISO 8859-15 to UTF-8, {size} B of ASCII",
    "VQCharsetConversion_GermanFrom8859": "ISO 8859-15 to UTF-8, {size} B of German",
    "VQStringUtilities_UpperAscii": "upper case of {size} B of ASCII",
    "VQStringUtilities_UpperGerman": "upper case of {size} B of German",
    "VQStringUtilities_UpperGreek": "upper case of {size} B of Greek",
    "VQStringUtilities_LowerAscii": "lower case of {size} B of ASCII",
    "VQStringUtilities_LowerGerman": "lower case of {size} B of German",
    "VQStringUtilities_LowerGreek": "lower case of {size} B of Greek",
    "CVQByteStream_RoundTrip": "10^6 values and 10^5 strings, out and back",
    "CVQByteStream_WriteValues": "write 10^6 32-bit values",
    "CVQByteStream_ReadValues": "read 10^6 32-bit values",
    "CVQByteStream_WriteStrings": "write 10^5 strings of 20 B",
    "CVQByteStream_ReadStrings": "read 10^5 strings of 20 B",
    "CVQByteStream_Copy": "copy and drop a stream of {size} B",
    "CVQBuffer_Copy": "copy and drop a buffer of {size} B",
    "CVQBuffer_Create": "create, fill and drop a buffer of {size} B",
    "CVQCRC_CRC32": "CRC-32 of {size} B",
    "CVQCRC_CCITTFalse": "CRC-16 CCITT-FALSE of {size} B",
    "CVQCRC_CCITTReflected": "CRC-16, low bit first with 1021, of {size} B",
    "CVQCRC_XModem": "CRC-16 XMODEM of {size} B",
    "VQBase64_Encode": "encode to {size} B of Base64",
    "VQBase64_Decode": "decode {size} B of Base64",
    "CVQOTextStream_Texts": "insert 10^6 plain texts",
    "CVQOTextStream_Formatted": "format 10^6 items of a text and a number",
    "CVQOTextStream_Escape": "escape {size} B of text for XML",
    "CVQCircularByteBuffer_WriteRead": "write and read {size} B through a ring",
    "CVQCriticalSection_LockUnlock": "lock and unlock, uncontended",
    "CVQCriticalSection_LockUnlockAlone": "lock and unlock, uncontended, no threads",
    "CVQCriticalSection_Contended": "two threads, 50 ns inside, per section",
    "CVQCriticalSection_ContendedNowAndThen": "two threads, 50 ns inside, 200 ns outside",
    "CVQMutex_LockUnlockRecursive": "lock and unlock, recursive",
    "CVQMutex_LockWithTimeout": "lock with a time-out of 1 s and unlock",
    "CVQMutex_TryLock": "try to lock, and unlock",
    "VQSemaphoreAccess_PostWait": "post and take a unit, uncontended",
    "VQSemaphoreAccess_PingPongOneCpu": "two semaphores, there and back, threads on one CPU",
    "VQSemaphoreAccess_PingPongTwoCpus": "two semaphores, there and back, threads on two CPUs",
    "CVQWaitCondition_PingPongOneCpu": "one condition, there and back, threads on one CPU",
    "CVQWaitCondition_PingPongTwoCpus": "one condition, there and back, threads on two CPUs",
    "CVQWaitCondition_SignalNobody": "signal a condition nobody waits for",
    "CVQBarrier_Round": "a round of {size} threads at a barrier",
    "CVQThreadCtrl_StartJoin": "start a thread and join it",
    "VQOperatingSystem_MonotonicTime": "read the monotonic clock",
    "VQChannelAccess_ThreadsOneCpu": "{size} B there, 64 B back, threads on one CPU",
    "VQChannelAccess_ThreadsOneCpuTimed": "the same of {size} B with deadlines",
    "VQChannelAccess_ThreadsTwoCpus": "{size} B there, 64 B back, threads on two CPUs",
    "VQChannelAccess_ProcessesOneCpu": "{size} B there, 64 B back, processes on one CPU",
    "VQChannelAccess_ProcessesOneCpuTimed": "the same of {size} B with deadlines",
    "VQChannelAccess_ProcessesTwoCpus": "{size} B there, 64 B back, processes on two CPUs",
    "VQChannelAccess_PulseOneCpu": "send a pulse and receive it, threads on one CPU",
    "VQChannelAccess_PulseTwoCpus": "send a pulse and receive it, threads on two CPUs",
    "VQChannelAccess_EndOfPeer": "kill of a peer of {size} MiB to the call's return",
    "VQChannelAccess_BesideBusy": "{size} B there and back beside a busy process",
    "VQChannelAccess_Idle": "processor time of two that wait, per second",
    "TVQVector_PushInts": "push {size} ints, growing",
    "TVQVector_PushTexts": "push {size} texts, growing, and drop them",
    "TVQVector_ResizeInts": "make an array of {size} ints",
    "TVQVector_InsertEraseInts": "insert and erase an int amid {size}",
    "TVQVector_InsertEraseTexts": "insert and erase a text amid {size}",
    "TVQVector_SumByIndex": "sum {size} ints by index",
    "TVQVector_SumByRange": "sum {size} ints in a range-for",
    "TVQQueue_PushPop": "an int in, another out, {size} wait",
    "TVQMap_Find": "find one of {size} names",
    "TVQHashMap_Find": "find one of {size} random 32-bit keys",
    "TVQHashMap_FindAbsent": "look for a key that is not among {size}",
    "TVQHashMap_Insert": "insert {size} random 32-bit keys",
    "TVQHashArray_Find": "find one of {size} names of 15 to 30 B",
    "TVQHashArray_Insert": "insert {size} names of 15 to 30 B",
    "VQMemory_AllocRelease": "allocate and release {size} B",
    "VQMemory_NewDelete": "new and delete of {size} B",
    "VQMemory_AlignedNewDelete": "new and delete of {size} B, aligned to 64",
    "VQMemory_MixedBlocks": "{size} live blocks of 16 to 495 B",
    "VQMemory_Realloc": "grow by doubling from 64 B to {size} B",
    "VQMemory_Fill8": "fill {size} B with bytes",
    "VQMemory_Fill16": "fill {size} B with 16-bit words",
    "VQMemory_Fill32": "fill {size} B with 32-bit words",
    "VQMemory_Fill64": "fill {size} B with 64-bit words",
    "VQMemory_FillNibble": "fill {size} nibbles, from within a byte",
    "CVQDateAndTime_DaysOn": "date to day number, 30 days on, and back",
    "CVQDateAndTime_ToString": "date and time to a count, and that to a text",
    "CVQConfigFileParser_Parse": "parse a file of {size} lines",
    "CVQPath_JoinAndPart": "join paths to {size} B, canonify, leaf, branch",
    "CVQPath_JoinAndPartRuns": "the same with runs of separators",
    "VQFileOperations_RecursiveRemove": "remove 10^4 files in {size} directories",
    "CVQFileHandle_Read": "read {size} B of a file",
    "CVQFileHandle_ReadTimed": "read {size} B of a file, with a time-out",
    "CVQFileHandle_Write": "write {size} B of a file",
    "CVQFileHandle_WriteTimed": "write {size} B of a file, with a time-out",
    "CVQFileHandle_Pipe": "{size} B into a pipe and out",
    "CVQFileHandle_PipeTimed": "{size} B into a pipe and out, with time-outs",
    "CVQFILEDevice_Read": "read a file of 1 MiB, {size} B at a time",
    "CVQFILEDevice_Write": "write a file of 1 MiB, {size} B at a time",
    "CVQMemoryMappedFile_Sum": "map a file of {size} B and sum it",
    "CVQReferencedSharedMemory_HandOver": "hand a new segment of {size} B to a process",
    "CVQFix16_Multiply": "multiply, of {size} pairs",
    "CVQFix16_Divide": "divide, of {size} pairs",
    "CVQFix16_SquareRoot": "square root, of {size} numbers",
    "CVQFix16_Sine": "sine, of {size} angles",
    "CVQFix16_Tangent": "tangent, of {size} angles",
    "CLogicalTimer_StartStop": "stop and start one of {size} timers",
    "CLogicalTimer_StartStopFire": "{size} timers, random times: start, stop or fire, each",
    "CLogicalTimer_StartStopFireAwake": "the same of {size} timers, without the sleeps",
    "CLogicalTimer_FireAll": "fire {size} timers that are due, each",
    "CLogicalTimer_Distance": "{size} timers, random times: how early or late, mean",
    "CTimer_Lateness": "lateness of a timer of 1 ms, median of 100",
    "CVQAsserter_CheckHolds": "a check that holds",
    "CVQAsserter_Expected": "an assertion that is expected, so only counted",
    "VQSyslog_LogMsg": "log a line of {size} characters, and take it out",
}

# (operation, pattern of the peer's name, size or None for all) -> the highest ratio that is good enough.
GOALS = {
    ("CVQString_Copy", "QString", 1024): 1.0,
    ("CVQString_Copy", "std::string", 1024): 0.3,
    ("CVQString_CopyAlone", "QString", 1024): 1.0,
    ("CVQString_CopyAlone", "std::string", 1024): 0.3,
    ("CVQString_FromAscii", "QString::fromUtf8", None): 1.0,
    ("CVQString_FromGerman", "QString::fromUtf8", None): 1.0,
    ("CVQString_FromChinese", "QString::fromUtf8", None): 1.0,
    ("CVQString_FromAscii", "floor: memcpy into a ready buffer", None): 2.0,
    ("CVQString_FromAscii", "floor: malloc, memcpy, free", None): 2.0,
    ("CVQString_FromAscii", "floor: malloc of 28 B more, memcpy, free", None): 2.0,
    ("CVQString_Find", "std::string::find", None): 1.0,
    ("CVQString_Format", "snprintf, std::string", None): 1.2,
    ("VQCharsetConversion_AsciiToUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_AsciiToUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_AsciiFromUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_AsciiFromUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_GermanToUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_GermanToUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_GermanFromUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_GermanFromUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_ChineseToUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_ChineseToUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_ChineseFromUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_ChineseFromUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_EmojiToUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_EmojiToUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_EmojiFromUtf16", "ICU*", None): 1.0,
    ("VQCharsetConversion_EmojiFromUtf16", "QString*", None): 1.0,
    ("VQCharsetConversion_AsciiTo8859", "iconv", None): 1.0,
    ("VQCharsetConversion_AsciiTo8859", "QTextCodec*", None): 1.0,
    ("VQCharsetConversion_AsciiFrom8859", "iconv", None): 1.0,
    ("VQCharsetConversion_AsciiFrom8859", "QTextCodec*", None): 1.0,
    ("VQCharsetConversion_GermanTo8859", "iconv", None): 1.0,
    ("VQCharsetConversion_GermanTo8859", "QTextCodec*", None): 1.0,
    ("VQCharsetConversion_GermanFrom8859", "iconv", None): 1.0,
    ("VQCharsetConversion_GermanFrom8859", "QTextCodec*", None): 1.0,
    ("VQStringUtilities_UpperAscii", "ICU*", None): 1.0,
    ("VQStringUtilities_UpperAscii", "QString*", None): 1.0,
    ("VQStringUtilities_UpperAscii", "utf8proc*", None): 1.0,
    ("VQStringUtilities_LowerAscii", "ICU*", None): 1.0,
    ("VQStringUtilities_LowerAscii", "QString*", None): 1.0,
    ("VQStringUtilities_LowerAscii", "utf8proc*", None): 1.0,
    ("VQStringUtilities_UpperGerman", "ICU*", None): 1.0,
    ("VQStringUtilities_UpperGerman", "QString*", None): 1.0,
    ("VQStringUtilities_UpperGerman", "utf8proc*", None): 1.0,
    ("VQStringUtilities_LowerGerman", "ICU*", None): 1.0,
    ("VQStringUtilities_LowerGerman", "QString*", None): 1.0,
    ("VQStringUtilities_LowerGerman", "utf8proc*", None): 1.0,
    ("VQStringUtilities_UpperGreek", "ICU*", None): 1.0,
    ("VQStringUtilities_UpperGreek", "QString*", None): 1.0,
    ("VQStringUtilities_UpperGreek", "utf8proc*", None): 1.0,
    ("VQStringUtilities_LowerGreek", "ICU*", None): 1.0,
    ("VQStringUtilities_LowerGreek", "QString*", None): 1.0,
    ("VQStringUtilities_LowerGreek", "utf8proc*", None): 1.0,
    ("CVQByteStream_RoundTrip", "QDataStream*", None): 0.5,
    ("CVQByteStream_RoundTrip", "POCO*", None): 1.0,
    ("CVQCRC_CRC32", "ISA-L", 4096): 1.0,
    ("CVQCRC_CRC32", "ISA-L", 1048576): 1.0,
    ("CVQCRC_CRC32", "zlib", None): 0.2,
    ("CVQCRC_CCITTFalse", "Boost", None): 0.25,
    ("CVQCRC_CCITTReflected", "Boost", None): 0.25,
    ("CVQCRC_XModem", "Boost", None): 0.25,
    ("VQBase64_Encode", "OpenSSL EVP", None): 0.2,
    ("VQBase64_Encode", "GLib", None): 0.25,
    ("VQBase64_Decode", "OpenSSL EVP", None): 0.2,
    ("VQBase64_Decode", "GLib", None): 0.25,
    ("CVQOTextStream_Texts", "{fmt}*", None): 1.0,
    ("CVQOTextStream_Formatted", "{fmt}*", None): 1.0,
    ("CVQOTextStream_Escape", "QString::toHtmlEscaped", None): 1.0,
    ("CVQCircularByteBuffer_WriteRead", "boost::circular_buffer*", None): 1.0,
    ("CVQCriticalSection_LockUnlock", "glibc default mutex", None): 1.0,
    ("CVQCriticalSection_LockUnlockAlone", "glibc default mutex", None): 1.0,
    ("CVQCriticalSection_Contended", "glibc default mutex", None): 1.0,
    ("VQSemaphoreAccess_PostWait", "sem_t and a mutex", None): 1.0,
    ("VQSemaphoreAccess_PingPongOneCpu", "sem_t", None): 1.1,
    ("VQSemaphoreAccess_PingPongTwoCpus", "sem_t", None): 1.1,
    ("CVQWaitCondition_PingPongOneCpu", "glibc condition", None): 1.0,
    ("CVQWaitCondition_PingPongTwoCpus", "glibc condition", None): 1.0,
    ("CVQBarrier_Round", "pthread_barrier", None): 1.0,
    ("CVQThreadCtrl_StartJoin", "pthread_create, pthread_join", None): 1.05,
    ("CLogicalTimer_StartStopFireAwake", "libuv", None): 1.0,
    ("CTimer_Lateness", "timerfd + 10 us", None): 1.0,
    ("VQOperatingSystem_MonotonicTime", "clock_gettime", None): 1.05,
    ("VQChannelAccess_ThreadsOneCpu", "floor*", None): 1.1,
    ("VQChannelAccess_ThreadsOneCpuTimed", "floor*", None): 1.2,
    ("VQChannelAccess_ThreadsTwoCpus", "floor*", None): 2.2,
    ("VQChannelAccess_ProcessesOneCpu", "AF_UNIX SEQPACKET", 64): 0.70,
    ("VQChannelAccess_ProcessesOneCpu", "AF_UNIX SEQPACKET", 4096): 0.65,
    ("VQChannelAccess_ProcessesOneCpu", "AF_UNIX SEQPACKET", 65536): 0.55,
    ("VQChannelAccess_ProcessesOneCpu", "AF_UNIX SEQPACKET", 1048576): 1.0,
    ("VQChannelAccess_ProcessesOneCpu", "ZeroMQ*", None): 0.2,
    ("VQChannelAccess_ProcessesOneCpu", "nng*", None): 0.2,
    ("VQChannelAccess_ProcessesOneCpuTimed", "floor*", None): 1.25,
    ("VQChannelAccess_ProcessesTwoCpus", "AF_UNIX SEQPACKET", None): 0.05,
    ("VQChannelAccess_ProcessesTwoCpus", "ZeroMQ*", None): 0.2,
    ("VQChannelAccess_ProcessesTwoCpus", "nng*", None): 0.2,
    ("VQChannelAccess_PulseOneCpu", "floor*", None): 2.0,
    ("VQChannelAccess_PulseTwoCpus", "floor*", None): 2.0,
    ("VQChannelAccess_EndOfPeer", "allowed*", None): 1.0,
    ("VQChannelAccess_BesideBusy", "ours without*", None): 1.3,
    ("VQChannelAccess_Idle", "allowed*", None): 1.0,
    ("TVQVector_PushInts", "std::vector", None): 1.2,
    ("TVQVector_PushTexts", "std::vector*", None): 1.2,
    ("TVQVector_InsertEraseInts", "std::vector", None): 1.0,
    ("TVQVector_InsertEraseTexts", "std::vector*", None): 1.0,
    ("TVQVector_SumByIndex", "std::vector", None): 1.05,
    ("TVQVector_SumByRange", "std::vector", None): 1.05,
    ("TVQMap_Find", "std::map*", None): 0.8,
    ("TVQMap_Find", "*flat_map*", None): 1.1,
    ("TVQHashMap_Find", "std::unordered_map", None): 0.6,
    ("TVQHashMap_Find", "absl::flat_hash_map", None): 1.2,
    ("TVQHashMap_Insert", "std::unordered_map", None): 0.6,
    ("TVQHashMap_Insert", "absl::flat_hash_map", None): 1.2,
    ("TVQHashArray_Find", "std::unordered_map", None): 1.0,
    ("TVQHashArray_Insert", "std::unordered_map", None): 1.0,
    ("VQMemory_AllocRelease", "malloc, free", 64): 1.1,
    ("CVQDateAndTime_DaysOn", "absl::CivilDay", None): 1.0,
    ("CVQDateAndTime_DaysOn", "timegm, gmtime_r", None): 0.3,
    ("CVQDateAndTime_ToString", "absl::*", None): 1.0,
    ("CVQDateAndTime_ToString", "timegm, gmtime_r*", None): 0.3,
    ("CVQConfigFileParser_Parse", "inih", None): 1.0,
    ("CVQConfigFileParser_Parse", "GLib key file", None): 0.3,
    ("CVQPath_JoinAndPart", "std::filesystem", None): 1.0,
    ("CVQPath_JoinAndPartRuns", "std::filesystem", None): 1.0,
    ("VQFileOperations_RecursiveRemove", "std::filesystem", None): 1.0,
    ("CVQFileHandle_Read", "read", None): 1.05,
    ("CVQFileHandle_ReadTimed", "read", None): 1.5,
    ("CVQFileHandle_Write", "write", None): 1.05,
    ("CVQFileHandle_WriteTimed", "write", None): 1.5,
    ("CVQFileHandle_Pipe", "write, read", None): 1.05,
    ("CVQFileHandle_PipeTimed", "write, read", None): 1.5,
    ("CVQFILEDevice_Read", "fread", None): 1.05,
    ("CVQFILEDevice_Write", "fwrite", None): 1.05,
    ("CVQMemoryMappedFile_Sum", "boost::interprocess", None): 1.0,
    ("CVQMemoryMappedFile_Sum", "mmap", None): 1.05,
    ("CVQReferencedSharedMemory_HandOver", "boost::interprocess", None): 1.0,
    ("CVQFix16_Multiply", "libfixmath", None): 1.0,
    ("CVQFix16_Divide", "libfixmath", None): 1.0,
    ("CVQFix16_SquareRoot", "libfixmath", None): 1.0,
    ("CVQFix16_Sine", "libfixmath", None): 1.0,
}

OURS = "ours"
NAME = re.compile(r"BM_(?P<operation>\w+)/(?P<contender>[^/]+)/(?P<size>\d+)"
                  r"(?:/iterations:\d+)?(?P<clock>/manual_time)?")

Sample = collections.namedtuple("Sample", "time counters")


class Failure(Exception):
    pass


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=Path("build/bench"), help="build folder (build/bench)")
    parser.add_argument("--rounds", type=int, default=15, help="processes started for each side (15)")
    parser.add_argument("--seconds", type=float, default=0.05, help="least time of one measurement (0.05)")
    parser.add_argument("--only", default="", help="operations whose name holds this regular expression")
    parser.add_argument("--check", action="store_true",
                        help="one short round: does every benchmark run, with the right result? No time is judged")
    parser.add_argument("--measured", type=Path, metavar="FILE",
                        help="measure nothing: show what FILE, the ratios.json of an earlier run, has")
    parser.add_argument("--performance-page", type=Path, metavar="FILE",
                        help="put the figures of a run of everything between the marks of FILE, docs/performance.md")
    return parser.parse_args()


def parse(name):
    match = NAME.fullmatch(name)
    if not match:
        raise Failure(f"{name}: not a name of the form BM_<Unit>_<Operation>/<contender>/<size>")
    return match


def programs(build):
    """Operation -> the programs that have a contender for it, ours first."""
    found = collections.OrderedDict()
    for program in sorted(build.glob("bin/bench_*")):
        listed = subprocess.run([program, "--benchmark_list_tests=true"], capture_output=True, text=True, check=True)
        for name in listed.stdout.splitlines():
            running = found.setdefault(parse(name)["operation"], [])
            if program not in running:
                running.append(program)
    return found


def pin(operation):
    """Keeps the measured thread on one processor. Threads that compete or take turns choose their own, or are told."""
    if not re.search("Contended|PingPong|Round$|StartJoin|VQChannelAccess", operation):
        os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})


def measure(program, operation, seconds):
    """One process: (contender, size) -> Sample for each benchmark of the operation."""
    done = subprocess.run(
        [program, f"--benchmark_filter=^BM_{operation}/", f"--benchmark_min_time={seconds}", "--benchmark_format=json"],
        capture_output=True, text=True, preexec_fn=lambda: pin(operation))
    if done.returncode != 0:
        raise Failure(f"{program.name}, {operation}: {done.stderr.strip() or done.returncode}")
    samples = {}
    for result in json.loads(done.stdout)["benchmarks"]:
        name = parse(result["name"])
        if result.get("error_occurred"):
            print(f"left out: {result['name']}: {result['error_message']}", file=sys.stderr)
            continue
        time = result["real_time" if name["clock"] else "cpu_time"]
        counters = {key: result[key] for key in ("handovers",) if key in result}
        samples[name["contender"], int(name["size"])] = Sample(time, counters)
    return samples


def goal(operation, peer, size):
    for (of, pattern, only), limit in GOALS.items():
        if of == operation and fnmatch.fnmatchcase(peer, pattern) and only in (None, size):
            return limit
    return None


def quartiles(values):
    if len(values) < 2:
        return values[0], values[0], values[0]
    low, middle, high = statistics.quantiles(values, n=4, method="inclusive")
    return low, middle, high


def medians(counters):
    return {key: statistics.median(one[key] for one in counters) for key in counters[0]}


def compare(operation, rounds):
    """One row for each peer and size, from what each round measured."""
    rows = []
    contenders = [key for key in rounds[0] if key[0] != OURS]
    for peer, size in sorted(contenders, key=lambda key: key[1]):
        pairs = [(one[OURS, size], one[peer, size]) for one in rounds if (OURS, size) in one and (peer, size) in one]
        if not pairs:
            continue
        low, ratio, high = quartiles([ours.time / theirs.time for ours, theirs in pairs])
        limit = goal(operation, peer, size)
        rows.append({
            "operation": operation,
            "work": WORK[operation].format(size=size),
            "size": size,
            "ours": statistics.median(ours.time for ours, _ in pairs),
            "peer": peer,
            "theirs": statistics.median(theirs.time for _, theirs in pairs),
            "ratio": ratio, "low": low, "high": high,
            "goal": limit,
            "met": None if limit is None else ratio <= limit,
            "counters": {"ours": medians([ours.counters for ours, _ in pairs]),
                         "peer": medians([theirs.counters for _, theirs in pairs])},
        })
    return rows


def cells(row):
    return (row["work"], report.spent(row, "ours"), row["peer"], report.spent(row, "theirs"),
            f"{row['ratio']:.2f} ({row['low']:.2f}-{row['high']:.2f})",
            "" if row["goal"] is None else f"<= {row['goal']:.2f}", report.met(row))


HEAD = ("work", "ours", "peer", "theirs", "ratio (middle half)", "goal", "met")


def plain(rows):
    table = [HEAD] + [cells(row) for row in rows]
    widths = [max(len(line[i]) for line in table) for i in range(len(HEAD))]
    lines = ["  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in table]
    lines.insert(1, "  ".join("-" * width for width in widths))
    return "\n".join(lines)


def markdown(rows):
    lines = ["| " + " | ".join(HEAD) + " |", "|" + "---|" * len(HEAD)]
    lines += ["| " + " | ".join(cells(row)) + " |" for row in rows]
    return "\n".join(lines)


def machine(build):
    """What figures cannot be understood without."""
    with open("/proc/cpuinfo", encoding="ascii", errors="replace") as info:
        models = [line.split(":", 1)[1].strip() for line in info if line.startswith(("model name", "Processor"))]
    commit = subprocess.run(["git", "-C", Path(__file__).parent, "describe", "--always", "--dirty", "--abbrev=12"],
                            capture_output=True, text=True, check=False).stdout.strip()
    with open(build / "bench" / "build.json", encoding="utf-8") as file:
        built = json.load(file)
    return {"processor": f"{models[0] if models else platform.machine()}, {os.cpu_count()} processors",
            "system": f"{platform.system()} {platform.release()}, {os.confstr('CS_GNU_LIBC_VERSION')}",
            **built, "commit": commit, "load before": f"{os.getloadavg()[0]:.2f}"}


def run(options):
    """Measures all that is asked for: the rows of the table."""
    found = programs(options.build)
    for unknown in found.keys() - WORK.keys():
        raise Failure(f"{unknown} has no description in WORK")
    operations = {of: found[of] for of in WORK if of in found and re.search(options.only, of)}
    if not operations:
        raise Failure("no benchmark programs, or none of that name")

    measured = {operation: [] for operation in operations}
    for turn in range(options.rounds):
        print(f"round {turn + 1} of {options.rounds}", file=sys.stderr)
        for operation, running in operations.items():
            together = {}
            for program in running if turn % 2 == 0 else reversed(running):
                together.update(measure(program, operation, options.seconds))
            measured[operation].append(together)
    return [row for operation in operations for row in compare(operation, measured[operation])]


def earlier(file):
    """What an earlier run left: the facts about it, what it was limited to, its rows."""
    about = json.loads(file.read_text(encoding="utf-8"))
    return about, about.pop("only"), about.pop("rows")


def keep(folder, about, only, rows):
    """The results as files: for people, for documents, for programs."""
    heading = "\n".join(f"- {key}: {value}" for key, value in about.items())
    results = {**about, "only": only, "rows": rows}
    (folder / "ratios.md").write_text(f"{heading}\n\n{markdown(rows)}\n", encoding="utf-8")
    (folder / "ratios.json").write_text(json.dumps(results, indent=1) + "\n", encoding="utf-8")
    (folder / "report.html").write_text(report.page(about, rows), encoding="utf-8")
    print(f"also in {folder / 'report.html'}; ratios.md and ratios.json beside it")


def refresh(page, about, only, rows):
    if only:
        raise Failure(f"{page} is for the figures of a run of everything, not of --only {only}")
    text = page.read_text(encoding="utf-8") if page.exists() else report.NEW_PAGE
    try:
        page.write_text(report.with_figures(text, about, rows), encoding="utf-8")
    except ValueError as error:
        raise Failure(f"{page}: {error}") from error
    print(f"new figures in {page}")


def main():
    options = arguments()
    if options.performance_page and (options.only or options.check):
        raise Failure("the performance page takes the figures of a run of everything")
    if options.check:
        options.rounds, options.seconds = 1, 0.001
    about, only, rows = earlier(options.measured) if options.measured else (machine(options.build), options.only, None)
    for key, value in about.items():
        print(f"{key + ':':13}{value}")
    if rows is None:
        rows = run(options)
    if options.check:
        page = options.build / "check.html"  # the figures are of one short round, so that nothing else keeps them
        page.write_text(report.page(about, rows), encoding="utf-8")
        report.with_figures(report.NEW_PAGE, about, rows)  # fails where the performance page would
        print(f"{len(rows)} comparisons ran with the right results; drawn in {page}")
        return
    print()
    print(plain(rows))
    print(f"\n{report.verdict(rows)}")
    keep(options.build, about, only, rows)
    if options.performance_page:
        refresh(options.performance_page, about, only, rows)


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(f"run.py: {failure}")
