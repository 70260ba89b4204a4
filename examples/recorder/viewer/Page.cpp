#include "viewer/Page.h"

#include "viewer/Numbers.h"
#include "viewer/PageFrame.h"
#include "viewer/Scale.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr unsigned kSteps = 320;  // of a course: more than a phone shows, fewer than a screen would need
constexpr double kWidth = 1000;   // of a drawing, in its own units; the page stretches it
constexpr double kHeight = 100;

/// Series that share a plot; they stand side by side, as their names do.
struct SGroup {
    const SSeriesHistory* first;
    int count;

    const SSeriesHistory* begin() const { return first; }
    const SSeriesHistory* end() const { return first + count; }
};

/// What stands in the recording may hold any characters.
struct SEscaped {
    const CVQString& text;
};
CVQOTextStream& operator<<(CVQOTextStream& out, const SEscaped& escaped) {
    out.setFlags(CVQOTextStream::XML_ESCAPE);
    out << escaped.text;
    out.setFlags(0);
    return out;
}

CVQString groupOf(const SSeriesHistory& series) {
    return series.name.getLeft(series.name.find("."));
}

/// What is told of a series in its group's plot: the name without that of the group.
CVQString shortName(const SSeriesHistory& series) {
    CVQString::const_iterator dot = series.name.find(".");
    return dot == series.name.end() ? series.name : series.name.getRight(++dot);
}

TVQVector<SGroup> makeGroups(const CHistory& history) {
    constexpr int kMostTogether = 6;  // as there are colours
    TVQVector<SGroup> groups;
    for (const SSeriesHistory& series : history.getSeries()) {
        SGroup* const last = groups.isEmpty() ? nullptr : groups.end() - 1;
        const bool isTogether = last != nullptr && last->count < kMostTogether &&
                                groupOf(*last->first) == groupOf(series) && last->first->unit == series.unit;
        if (isTogether) {
            ++last->count;
        } else {
            groups.push_back({&series, 1});
        }
    }
    return groups;
}

double xOf(unsigned step) {
    return (step + 0.5) * kWidth / kSteps;
}

/// Lines through what there is; a value alone between nothing is a dot, which round ends make of a line to itself.
void appendCourse(CVQOTextStream& out, const TVQVector<double>& values, const SScale& scale, int colour) {
    out.streamWrite("<path style=\"stroke:var(--s%d)\" d=\"", colour);
    bool isDown = false;
    for (unsigned step = 0; step < kSteps; ++step) {
        const double value = values[step];
        if (!std::isnan(value)) {
            const double x = xOf(step), y = kHeight * (1 - scale.place(value));
            out.streamWrite(isDown ? "L%.1f %.2f" : "M%.1f %.2fh0", x, y);
        }
        isDown = !std::isnan(value);
    }
    out << "\"/>\n";
}

/// The area between a course and 0, where it is alone in its plot.
void appendFill(CVQOTextStream& out, const TVQVector<double>& values, const SScale& scale, int colour) {
    out.streamWrite("<path class=\"fill\" style=\"fill:var(--s%d)\" d=\"", colour);
    bool isDown = false;
    for (unsigned step = 0; step <= kSteps; ++step) {
        const bool isThere = step < kSteps && !std::isnan(values[step]);
        if (isThere) {
            if (!isDown) {
                out.streamWrite("M%.1f %.0f", xOf(step), kHeight);
            }
            out.streamWrite("L%.1f %.2f", xOf(step), kHeight * (1 - scale.place(values[step])));
        } else if (isDown) {
            out.streamWrite("L%.1f %.0fZ", xOf(step - 1), kHeight);
        }
        isDown = isThere;
    }
    out << "\"/>\n";
}

void appendScale(CVQOTextStream& out, const SScale& scale) {
    for (int i = 0; i <= scale.getStepCount(); ++i) {
        const double value = scale.low + i * scale.step;
        out.streamWrite("<span style=\"top:%.2f%%\">", 100 * (1 - scale.place(value)));
        out << shortNumber(value) << "</span>";
    }
}

void appendGrid(CVQOTextStream& out, const CHistory& history, const SScale& scale) {
    for (int i = 0; i <= scale.getStepCount(); ++i) {
        const double y = kHeight * (1 - scale.place(scale.low + i * scale.step));
        out.streamWrite("<line%s x1=\"0\" x2=\"%.0f\" y1=\"%.2f\" y2=\"%.2f\"/>", i == 0 ? " class=\"zero\"" : "",
                        kWidth, y, y);
    }
    const double length = std::max(static_cast<double>(history.getEnd() - history.getBegin()), 1.0);
    for (const unsigned long long micros : history.getRestarts()) {
        if (micros >= history.getBegin() && micros <= history.getEnd()) {
            const double x = kWidth * static_cast<double>(micros - history.getBegin()) / length;
            out.streamWrite(
                "<line class=\"restart\" x1=\"%.1f\" x2=\"%.1f\" y1=\"0\" y2=\"%.0f\"><title>the sampler "
                "was started again</title></line>",
                x, x, kHeight);
        }
    }
    out << "\n";
}

/// Inside of a script, and of a text in it: nothing may end either.
void appendText(CVQOTextStream& out, const CVQString& text) {
    out << "\"";
    for (const char* at = text.c_str(); *at != '\0'; ++at) {
        if (*at == '"' || *at == '\\' || *at == '<') {
            out.streamWrite("\\u%04x", static_cast<unsigned>(*at));
        } else {
            out.write(at, 1);
        }
    }
    out << "\"";
}

void appendValues(CVQOTextStream& out, const TVQVector<double>& values) {
    out << "[";
    for (unsigned step = 0; step < kSteps; ++step) {
        out << (step == 0 ? "" : ",");
        if (std::isnan(values[step])) {
            out << "null";
        } else {
            out.streamWrite("%.5g", values[step]);
        }
    }
    out << "]";
}

void appendData(CVQOTextStream& out, const CHistory& history, const SGroup& group,
                const TVQVector<TVQVector<double>>& courses) {
    out.streamWrite("<script type=\"application/json\">{\"begin\":%.3f,\"length\":%.3f,\"steps\":%u,\"unit\":",
                    static_cast<double>(history.getBegin()) / 1000,
                    static_cast<double>(history.getEnd() - history.getBegin()) / 1000, kSteps);
    appendText(out, group.first->unit);
    out << ",\"series\":[";
    for (int i = 0; i < group.count; ++i) {
        out << (i == 0 ? "{\"name\":" : ",{\"name\":");
        appendText(out, shortName(group.first[i]));
        out << ",\"values\":";
        appendValues(out, courses[i]);
        out << "}";
    }
    out << "]}</script>\n";
}

void appendPlotHead(CVQOTextStream& out, const SGroup& group) {
    const CVQString name = group.count == 1 ? group.first->name : groupOf(*group.first);
    out << "<figure class=\"plot\"><figcaption class=\"head\"><h2>" << SEscaped{name} << "<small>"
        << SEscaped{group.first->unit} << "</small></h2>\n";
    for (int i = 0; i < group.count; ++i) {
        const CVQString label = group.count == 1 ? CVQString("mean") : shortName(group.first[i]);
        const CVQString value = withUnit(group.first[i].mean, group.first[i].unit);
        out << "<span class=\"key\">";
        out.streamWrite("<i style=\"background:var(--s%d)\"></i>", i);
        out << SEscaped{label} << " <b>" << SEscaped{value} << "</b></span>\n";
    }
    out << "</figcaption>\n";
}

void appendPlot(CVQOTextStream& out, const CHistory& history, const SGroup& group) {
    TVQVector<TVQVector<double>> courses;
    TVQVector<double> together;
    for (const SSeriesHistory& series : group) {
        courses.push_back(resample(series, history.getBegin(), history.getEnd(), kSteps));
        const TVQVector<double>& course = *(courses.end() - 1);
        together.insert(together.size(), course.size(), course.data());
    }
    const SScale scale = SScale::of(together);
    appendPlotHead(out, group);
    out << "<div class=\"area\"><div class=\"scale\">";
    appendScale(out, scale);
    out << "</div>\n<div class=\"canvas\">";
    out.streamWrite("<svg viewBox=\"0 0 %.0f %.0f\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"",
                    kWidth, kHeight);
    out << SEscaped{group.first->name} << "\">";
    appendGrid(out, history, scale);
    for (int i = 0; i < group.count; ++i) {
        if (group.count == 1 && scale.low == 0) {
            appendFill(out, courses[i], scale, i);
        }
        appendCourse(out, courses[i], scale, i);
    }
    out << "</svg><div class=\"hair\"></div><div class=\"tip\"></div>\n";
    appendData(out, history, group, courses);
    out << "</div><div class=\"times\"><span>" << timeOfDay(history.getBegin()) << "</span><span>"
        << timeOfDay(history.getBegin() + (history.getEnd() - history.getBegin()) / 2) << "</span><span>"
        << timeOfDay(history.getEnd()) << "</span></div></div></figure>\n";
}

void appendTable(CVQOTextStream& out, const CHistory& history) {
    out << "<div class=\"table\"><table><thead><tr><th>series</th><th class=\"unit\">unit</th><th>samples</th>"
           "<th>min</th><th>mean</th><th>max</th><th>last</th></tr></thead><tbody>\n";
    for (const SSeriesHistory& series : history.getSeries()) {
        out << "<tr><th>" << SEscaped{series.name} << "</th><td class=\"unit\">" << SEscaped{series.unit}
            << "</td>";
        out.streamWrite("<td>%u</td>", series.samples);
        for (const double value : {series.smallest, series.mean, series.largest, series.last}) {
            out << "<td>" << shortNumber(value) << "</td>";
        }
        out << "</tr>\n";
    }
    out << "</tbody></table></div>\n";
}

void appendTile(CVQOTextStream& out, const char* kind, const char* name, const CVQString& value) {
    out << "<div class=\"tile" << kind << "\"><dt>" << name << "</dt><dd>" << value << "</dd></div>\n";
}

void appendTiles(CVQOTextStream& out, const CHistory& history) {
    const auto number = [](unsigned long long value) {
        CVQString text;
        text.format("%llu", value);
        return text;
    };
    const auto judged = [](unsigned count) { return count == 0 ? " good" : " bad"; };
    out << "<dl class=\"tiles\">\n";
    appendTile(out, "", "samples", number(history.getSampleCount()));
    appendTile(out, "", "blocks", number(history.getBlockCount()));
    appendTile(out, "", "recorded", withUnit(static_cast<double>(history.getByteCount()), "B"));
    appendTile(out, "", "sampler restarts", number(static_cast<unsigned>(history.getRestarts().size())));
    appendTile(out, judged(history.getMissingCount()), "blocks missing", number(history.getMissingCount()));
    appendTile(out, judged(history.getDoubledCount()), "blocks twice", number(history.getDoubledCount()));
    out << "</dl>\n";
}

void appendDamages(CVQOTextStream& out, const CHistory& history) {
    if (history.getDamages().isEmpty()) {
        return;
    }
    out << "<section class=\"damage\"><h2>This recording is damaged</h2><ul>\n";
    for (const CVQString& damage : history.getDamages()) {
        out << "<li>" << SEscaped{damage} << "</li>\n";
    }
    out << "</ul></section>\n";
}

}  // namespace

void appendPage(CVQOTextStream& out, const CHistory& history) {
    out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, "
           "initial-scale=1\">\n<title>Recording</title>\n<style>"
        << kPageStyle << "</style></head>\n<body><main>\n<h1>Recording</h1>\n<p class=\"when\">";
    if (history.getSampleCount() != 0) {
        out << dateAndTime(history.getBegin()) << " UTC, " << duration(history.getEnd() - history.getBegin());
    }
    out << "</p>\n";
    appendTiles(out, history);
    appendDamages(out, history);
    out << "<div class=\"plots\">\n";
    for (const SGroup& group : makeGroups(history)) {
        appendPlot(out, history, group);
    }
    out << "</div>\n";
    appendTable(out, history);
    out << "<footer>Times are UTC. A dashed line: the sampler was started again. Gaps: nobody sampled.</footer>\n"
           "</main><script>"
        << kPageScript << "</script></body></html>\n";
}
