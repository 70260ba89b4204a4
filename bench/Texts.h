// Texts: the same texts for every contender. Words follow each other in the order of a fixed generator, so that no
// branch predictor can learn them by heart, and a text of a given size is the same in every program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace bench {

class WordOrder {
public:
    std::size_t next(std::size_t count) {
        mState = mState * 6364136223846793005u + 1442695040888963407u;
        return static_cast<std::size_t>(mState >> 33) % count;
    }

private:
    std::uint64_t mState = 42;
};

/// Whole words up to `bytes`, then dots, so that no character is cut.
template <std::size_t N>
std::string textOf(const char* const (&words)[N], std::size_t bytes) {
    WordOrder order;
    std::string text;
    for (;;) {
        const std::string word = words[order.next(N)];
        if (text.size() + word.size() > bytes)
            return text.append(bytes - text.size(), '.');
        text += word;
    }
}

inline std::string asciiText(std::size_t bytes) {
    static const char* const kWords[] = {"the ",   "sensor ", "was ",    "read ",     "again ", "after ", "a ",
                                         "second", ", ",      "channel", " seven ",   "gave ",  "no ",    "answer",
                                         ". ",     "Limit ",  "reached", " at 12:40", ": ",     "retry ", "42 "};
    return textOf(kWords, bytes);
}

/// About one byte in sixteen begins or continues a two-byte character, as in German prose.
inline std::string germanText(std::size_t bytes) {
    static const char* const kWords[] = {"das ",     "Gerät ", "wurde ",   "über ", "die ",   "Straße ",
                                         "gefahren", ", ",     "für ",     "den ",  "Kanal ", "sieben ",
                                         "kam ",     "keine ", "Antwort ", ". ",    "Größe ", "und ",
                                         "Gewicht",  " nach ", "Prüfung "};
    return textOf(kWords, bytes);
}

/// Three bytes a character, with some ASCII digits and blanks between.
inline std::string chineseText(std::size_t bytes) {
    static const char* const kWords[] = {"系统", "时间", "已经", "到达", "，", "通道", "没有", "回答",  "。",
                                         "第七", "次",   "重新", "读取", "值", " 42 ", "温度", "传感器"};
    return textOf(kWords, bytes);
}

/// Four bytes a character, now and then with words between.
inline std::string emojiText(std::size_t bytes) {
    static const char* const kWords[] = {"😀", "🎉",    "👍",         "🚗",    "🔋",    "🌧",
                                         "📡", "🛰", " see you ", "🧭", "🛑", "🔧"};
    return textOf(kWords, bytes);
}

/// Two bytes a letter, words with capitals among them.
inline std::string greekText(std::size_t bytes) {
    static const char* const kWords[] = {"το ",     "σύστημα ", "Αθήνα ", "ώρα ", "και ",     "θερμοκρασία ",
                                         ", ",      "κανάλι ",  "επτά ",  "δεν ", "Απάντηση", ". ",
                                         "Μήνυμα ", "από ",     "τους ",  "όλα "};
    return textOf(kWords, bytes);
}

inline const char* needle() {
    return "eightfold";
}

inline std::string withNeedleAtEnd(std::string text, const std::string& end) {
    return text.replace(text.size() - end.size(), end.size(), end);
}

/// Letters in which every eighth one, on average, is the first byte of the needle.
inline std::string haystack(std::size_t bytes) {
    WordOrder order;
    std::string text(bytes, ' ');
    for (char& c : text)
        c = "eabcdfgh"[order.next(8)];
    return withNeedleAtEnd(std::move(text), needle());
}

inline std::string proseHaystack(std::size_t bytes) {
    return withNeedleAtEnd(asciiText(bytes), needle());
}

/// Where a search that compares from each position on reads every byte as often as the needle is long.
inline std::string periodicNeedle() {
    return std::string(31, 'a') + 'b';
}
inline std::string periodicHaystack(std::size_t bytes) {
    return withNeedleAtEnd(std::string(bytes, 'a'), periodicNeedle());
}

/// A template of a text with a placeholder about every 64 bytes.
inline const char* placeholder() {
    return "%NAME%";
}
inline const char* replacement() {
    return "recorder-service";
}
inline std::string textWithPlaceholders(std::size_t bytes) {
    std::string text = asciiText(bytes);
    const std::string mark = placeholder();
    for (std::size_t at = 16; at + mark.size() <= bytes; at += 64)
        text.replace(at, mark.size(), mark);
    return text;
}

/// What "%s: try %d of %u failed, error %08x" makes of "sync", 3, 10 and 28: 40 characters.
inline const char* const kFormatted = "sync: try 3 of 10 failed, error 0000001c";

}  // namespace bench
