#include "viewer/Terminal.h"

#include "viewer/Numbers.h"
#include "viewer/Scale.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr char kBold[] = "\033[1m";
constexpr char kDim[] = "\033[2m";
constexpr char kBlue[] = "\033[34m";
constexpr char kRed[] = "\033[31m";
constexpr char kGreen[] = "\033[32m";
constexpr char kPlain[] = "\033[0m";

/// Text in a colour, where there are colours.
struct SPaint {
    const SLook& look;

    CVQString operator()(const char* colour, const CVQString& text) const {
        return look.hasColour ? CVQString(colour) + text + kPlain : text;
    }
};

CVQString leftAligned(const CVQString& text, unsigned width) {
    CVQString cell = text.getLeft(width);
    for (unsigned i = cell.getCharacterCount(); i < width; ++i) {
        cell.append(" ");
    }
    return cell;
}

CVQString rightAligned(const CVQString& text, unsigned width) {
    CVQString cell;
    for (unsigned i = text.getCharacterCount(); i < width; ++i) {
        cell.append(" ");
    }
    return cell + text;
}

/// One character for each value, in eight heights, of which the last is for the largest.
CVQString drawSparkline(const TVQVector<double>& values) {
    constexpr const char* kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    SScale scale = SScale::of(values);
    double largest = scale.low;
    for (const double value : values) {
        largest = std::fmax(largest, value);  // passes over not-a-number
    }
    scale.high = largest > scale.low ? largest : scale.high;
    CVQString line;
    for (const double value : values) {
        line.append(std::isnan(value) ? " " : kBars[std::min(static_cast<int>(scale.place(value) * 8), 7)]);
    }
    return line;
}

/// Dots in the cells of braille characters, which have two columns and four rows of them.
class CCanvas {
public:
    CCanvas(unsigned columns, unsigned rows) : mColumns(columns), mRows(rows) { mCells.resize(columns * rows, 0); }

    void set(unsigned x, unsigned y) {
        constexpr unsigned kDots[4][2] = {{0x01, 0x08}, {0x02, 0x10}, {0x04, 0x20}, {0x40, 0x80}};
        mCells[(y / 4) * mColumns + x / 2] |= kDots[y % 4][x % 2];
    }
    CVQString getRow(unsigned row) const {
        constexpr unsigned kEmptyCell = 0x2800;
        TVQVector<unsigned> codes;
        for (unsigned x = 0; x < mColumns; ++x) {
            codes.push_back(kEmptyCell + mCells[row * mColumns + x]);
        }
        CVQString text;
        text.fromUCS4Sequence(codes.data(), static_cast<std::size_t>(codes.size()));
        return text;
    }
    unsigned getRows() const { return mRows; }

private:
    unsigned mColumns;
    unsigned mRows;
    TVQVector<unsigned> mCells;
};

/// Each column of dots reaches from its value to the one before, so that steep courses stay lines.
void drawCourse(CCanvas& canvas, const TVQVector<double>& values, const SScale& scale) {
    const unsigned bottom = canvas.getRows() * 4 - 1;
    const auto rowOf = [&](double value) {
        return bottom - static_cast<unsigned>(std::lround(scale.place(value) * bottom));
    };
    for (int x = 0; x < values.size(); ++x) {
        if (std::isnan(values[x])) {
            continue;
        }
        const unsigned to = rowOf(values[x]);
        const unsigned from = x > 0 && !std::isnan(values[x - 1]) ? rowOf(values[x - 1]) : to;
        for (unsigned y = std::min(from, to); y <= std::max(from, to); ++y) {
            canvas.set(static_cast<unsigned>(x), y);
        }
    }
}

constexpr unsigned kPlotRows = 4;
constexpr unsigned kLabelWidth = 6;

/// A plot's lines, each `width` columns wide.
TVQVector<CVQString> drawPlot(const CHistory& history, const SSeriesHistory& series, unsigned width,
                              const SPaint& paint) {
    const unsigned columns = width - kLabelWidth - 1;
    const TVQVector<double> values = resample(series, history.getBegin(), history.getEnd(), columns * 2);
    const SScale scale = SScale::of(values);
    CCanvas canvas(columns, kPlotRows);
    drawCourse(canvas, values, scale);
    TVQVector<CVQString> lines;
    const CVQString name = series.name.getLeft(width);
    lines.push_back(paint(kBold, name) +
                    paint(kDim, leftAligned(CVQString(" ") + series.unit, width - name.getCharacterCount())));
    for (unsigned row = 0; row < kPlotRows; ++row) {
        const CVQString label = row == 0               ? shortNumber(scale.high)
                                : row == kPlotRows - 1 ? shortNumber(scale.low)
                                                       : CVQString();
        lines.push_back(paint(kDim, rightAligned(label, kLabelWidth) + "▕") + paint(kBlue, canvas.getRow(row)));
    }
    return lines;
}

void appendPlots(CVQOTextStream& out, const CHistory& history, const SLook& look) {
    constexpr unsigned kNarrowestPlot = 46;
    constexpr unsigned kGap = 3;
    const SPaint paint{look};
    const unsigned perRow = std::max(1U, (look.width + kGap) / (kNarrowestPlot + kGap));
    const unsigned width = (look.width + kGap) / perRow - kGap;
    const TVQVector<SSeriesHistory>& all = history.getSeries();
    for (int first = 0; first < all.size(); first += static_cast<int>(perRow)) {
        TVQVector<TVQVector<CVQString>> plots;
        for (int i = first; i < all.size() && i < first + static_cast<int>(perRow); ++i) {
            plots.push_back(drawPlot(history, all[i], width, paint));
        }
        for (unsigned line = 0; line <= kPlotRows; ++line) {
            for (int i = 0; i < plots.size(); ++i) {
                out << (i == 0 ? "" : "   ") << plots[i][line];
            }
            out << "\n";
        }
        out << "\n";
    }
}

void appendRow(CVQOTextStream& out, const CVQString& name, unsigned nameWidth, const CVQString& unit,
               const CVQString (&cells)[5], const CVQString& course) {
    out << leftAligned(name, nameWidth) << "  " << leftAligned(unit, 12);
    for (const CVQString& cell : cells) {
        out << rightAligned(cell, 8);
    }
    out << "  " << course << "\n";
}

void appendTable(CVQOTextStream& out, const CHistory& history, const SLook& look) {
    constexpr unsigned kFixed = 2 + 12 + 5 * 8 + 2;
    const SPaint paint{look};
    unsigned nameWidth = 6;
    for (const SSeriesHistory& series : history.getSeries()) {
        nameWidth = std::max(nameWidth, std::min(series.name.getCharacterCount(), 24U));
    }
    const unsigned left = look.width > nameWidth + kFixed ? look.width - nameWidth - kFixed : 0;
    const unsigned courseWidth = std::min(left, 32U);
    out << (look.hasColour ? kDim : "");
    appendRow(out, "series", nameWidth, "unit", {"samples", "min", "mean", "max", "last"},
              courseWidth >= 6 ? "course" : "");
    out << (look.hasColour ? kPlain : "");
    for (const SSeriesHistory& series : history.getSeries()) {
        CVQString samples;
        samples.format("%u", series.samples);
        const CVQString course =
            courseWidth == 0 ? CVQString()
                             : drawSparkline(resample(series, history.getBegin(), history.getEnd(), courseWidth));
        appendRow(out, series.name, nameWidth, series.unit,
                  {samples, shortNumber(series.smallest), shortNumber(series.mean), shortNumber(series.largest),
                   shortNumber(series.last)},
                  paint(kBlue, course));
    }
}

void appendTotals(CVQOTextStream& out, const CHistory& history, const SLook& look) {
    const SPaint paint{look};
    if (history.getSampleCount() != 0) {
        out << paint(kBold,
                     dateAndTime(history.getBegin()) + " UTC, " + duration(history.getEnd() - history.getBegin()))
            << "\n";
    }
    out << counted(history.getSampleCount(), "sample") << " in " << counted(history.getBlockCount(), "block")
        << ", " << withUnit(static_cast<double>(history.getByteCount()), "B") << " in "
        << counted(history.getFileCount(), "file") << ", sampler started "
        << counted(history.getSamplerCount(), "time") << "\n";
    const bool isWhole = history.getMissingCount() == 0 && history.getDoubledCount() == 0;
    CVQString counts;
    counts.format("blocks missing: %u, blocks twice: %u", history.getMissingCount(), history.getDoubledCount());
    out << paint(isWhole ? kGreen : kRed, counts) << "\n\n";
}

}  // namespace

void appendReport(CVQOTextStream& out, const CHistory& history, const SLook& look) {
    appendTotals(out, history, look);
    if (history.getSeries().isEmpty()) {
        return;
    }
    appendTable(out, history, look);
    out << "\n";
    appendPlots(out, history, look);
}
