"""What a run of the benchmarks looks like: one self-contained page, and the tables of docs/performance.md."""

import html
import math
import re

# Title -> the beginnings of the operations under it. Whatever is under none comes last.
SECTIONS = {
    "Strings": ("CVQString_", "VQCharsetConversion_", "VQStringUtilities_"),
    "Streams, buffers, checksums": ("CVQByteStream_", "CVQBuffer_", "CVQCRC_", "VQBase64_", "CVQOTextStream_",
                                    "CVQCircularByteBuffer_"),
    "Locks and waits": ("CVQCriticalSection_", "CVQMutex_", "VQSemaphoreAccess_", "CVQWaitCondition_", "CVQBarrier_"),
    "Threads, channels, timers": ("CVQThreadCtrl_", "VQOperatingSystem_", "VQChannelAccess_", "CLogicalTimer_",
                                  "CTimer_"),
    "Containers": ("TVQ",),
    "Memory": ("VQMemory_",),
    "Dates and numbers": ("CVQDateAndTime_", "CVQFix16_"),
    "Files and shared memory": ("CVQConfigFileParser_", "CVQPath_", "VQFileOperations_", "CVQFile", "CVQFILE",
                                "CVQMemoryMappedFile_", "CVQReferencedSharedMemory_"),
    "Reports": ("CVQAsserter_", "VQSyslog_"),
}
REST = "Others"


def sections(rows):
    """(title, rows) in the order of SECTIONS, none of them empty."""
    def title(row):
        return next((name for name, starts in SECTIONS.items() if row["operation"].startswith(starts)), REST)
    for name in [*SECTIONS, REST]:
        found = [row for row in rows if title(row) == name]
        if found:
            yield name, found


def duration(nanoseconds):
    for unit, scale in (("ns", 1), ("us", 1e3), ("ms", 1e6)):
        if nanoseconds < 1000 * scale or unit == "ms":
            return f"{nanoseconds / scale:.3g} {unit}"


def spent(row, side):
    """The time of one side, "ours" or "theirs", and how much of the work it handed over."""
    counters = row["counters"]["ours" if side == "ours" else "peer"]
    share = f" ({counters['handovers']:.0%} handed over)" if "handovers" in counters else ""
    return duration(row[side]) + share


def met(row):
    if row["goal"] is None:
        return ""
    # Where the goal lies within the middle half of the rounds another run may say the opposite.
    return ("yes" if row["met"] else "no") + (", close" if row["low"] <= row["goal"] <= row["high"] else "")


def judged(rows):
    return [row for row in rows if row["goal"] is not None]


def verdict(rows):
    return f"{sum(row['met'] for row in judged(rows))} of {len(judged(rows))} goals met"


# The page. Ratios are drawn on a scale of powers of two, so that half and double the time are equally long.
LEAST, MOST = 1 / 128, 16.0
WIDTH, HEIGHT = 480, 22

STYLE = """
:root { color-scheme: light dark; --page: #fbfbfa; --text: #1d1f22; --dim: #5d636b; --line: #dcdfe3; --card: #fff;
  --ahead: #1f77b4; --behind: #d9730d; --goal: #1d1f22; --bad: #b3261e; --good: #1b7f3b; }
@media (prefers-color-scheme: dark) { :root { --page: #16181b; --text: #e6e7e9; --dim: #9aa1aa; --line: #33383e;
  --card: #1d2024; --ahead: #5aa9e6; --behind: #f2a04b; --goal: #e6e7e9; --bad: #ff8a80; --good: #7bd88f; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 84rem; padding: 1.5rem clamp(.75rem, 3vw, 2rem) 3rem; background: var(--page);
  color: var(--text); font: 15px/1.45 system-ui, "Segoe UI", "DejaVu Sans", sans-serif; }
h1 { font-size: 1.6rem; margin: 0 0 .25rem; } h2 { font-size: 1.15rem; margin: 2.2rem 0 .5rem; }
p { max-width: 62rem; margin: .4rem 0; } a { color: inherit; }
.dim { color: var(--dim); }
.tiles { display: flex; flex-wrap: wrap; gap: .75rem; margin: 1rem 0; }
.tile { background: var(--card); border: 1px solid var(--line); border-radius: .5rem; padding: .5rem .9rem; }
.tile b { display: block; white-space: nowrap; font-size: 1.5rem; line-height: 1.2; font-variant-numeric: tabular-nums; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1rem; margin: 1rem 0; font-size: .87rem; }
dt { color: var(--dim); } dd { margin: 0; overflow-wrap: anywhere; }
nav { display: flex; flex-wrap: wrap; gap: .3rem 1.1rem; margin: 1rem 0; font-size: .93rem; }
table { border-collapse: collapse; width: 100%; background: var(--card); border: 1px solid var(--line); }
th, td { text-align: left; padding: .28rem .6rem; border-top: 1px solid var(--line); vertical-align: middle;
  font-size: .87rem; }
th { color: var(--dim); font-weight: 600; border-top: 0; }
.number { text-align: right; font-variant-numeric: tabular-nums; }
td.ratio, td.goal, td.met { white-space: nowrap; }
td.work { width: 23%; }
.bar { width: 32%; min-width: 15rem; padding: 0 .4rem; }
svg { display: block; width: 100%; height: auto; }
.ahead { fill: var(--ahead); } .behind { fill: var(--behind); }
.grid { stroke: var(--line); } .one { stroke: var(--dim); } .goal { stroke: var(--goal); stroke-width: 2; }
.spread { stroke: var(--text); opacity: .55; } .label { fill: var(--dim); font-size: 12px; }
.yes { color: var(--good); } .no { color: var(--bad); font-weight: 600; }
tr.more td { border-top: 0; }
@media (max-width: 60rem) {
  thead { display: none; }
  table, tbody { display: block; }
  tr { display: grid; grid-template-columns: repeat(2, minmax(0, 1fr)) auto; gap: 0 .5rem; padding: .45rem .6rem;
    border-top: 1px solid var(--line); grid-template-areas: "work work work" "peer peer ratio" "bar bar bar"
    "ours theirs goal" ". . met"; }
  tr.more { border-top: 0; } tr.more td.work { display: none; }
  tbody tr:first-child { border-top: 0; }
  td { border: 0; padding: .05rem 0; }
  .tile { flex: 1 1 6rem; } .tile b { font-size: 1.2rem; }
  td.work { grid-area: work; width: auto; font-weight: 600; } td.peer { grid-area: peer; }
  td.ratio { grid-area: ratio; } td.bar { grid-area: bar; width: auto; min-width: 0; padding: .1rem 0; }
  td.ours { grid-area: ours; } td.theirs { grid-area: theirs; } td.met { grid-area: met; text-align: right; }
  td.ours, td.theirs { text-align: left; }
  td.goal { grid-area: goal; text-align: right; }
  td.ours::before, td.theirs::before, td.goal[data-label]::before { content: attr(data-label) " "; color: var(--dim); }
}
"""


def place(ratio):
    inside = min(max(ratio, LEAST), MOST)
    return (math.log2(inside) - math.log2(LEAST)) / (math.log2(MOST) - math.log2(LEAST)) * WIDTH


def ticks():
    power = int(math.log2(LEAST))
    while 2.0 ** power <= MOST:
        yield 2.0 ** power
        power += 1


def tick_label(ratio):
    return f"{ratio:.0f}" if ratio >= 1 else f"1/{1 / ratio:.0f}"


def axis():
    labels = "".join(f'<text class="label" x="{min(max(place(at), 14), WIDTH - 10):.1f}" y="14" text-anchor="middle">'
                     f"{tick_label(at)}</text>" for at in ticks() if math.log2(at) % 2 == 0)
    return f'<svg viewBox="0 0 {WIDTH} 18" role="img" aria-label="ratio, ours over theirs">{labels}</svg>'


def bar(row):
    one, end = place(1.0), place(row["ratio"])
    side = "ahead" if row["ratio"] <= 1 else "behind"
    middle = HEIGHT / 2
    parts = [f'<line class="grid" x1="{place(at):.1f}" x2="{place(at):.1f}" y1="0" y2="{HEIGHT}"/>' for at in ticks()]
    parts.append(f'<rect class="{side}" x="{min(one, end):.1f}" y="{middle - 5}" '
                 f'width="{max(abs(end - one), 1.5):.1f}" height="10" rx="1.5"/>')
    parts.append(f'<line class="spread" x1="{place(row["low"]):.1f}" x2="{place(row["high"]):.1f}" '
                 f'y1="{middle}" y2="{middle}"/>')
    parts.append(f'<line class="one" x1="{one:.1f}" x2="{one:.1f}" y1="0" y2="{HEIGHT}"/>')
    if row["goal"] is not None:
        at = place(row["goal"])
        parts.append(f'<line class="goal" x1="{at:.1f}" x2="{at:.1f}" y1="2" y2="{HEIGHT - 2}"/>')
    told = f"ratio {row['ratio']:.2f}" + ("" if row["goal"] is None else f", goal {row['goal']:.2f}")
    return f'<svg viewBox="0 0 {WIDTH} {HEIGHT}" role="img" aria-label="{told}">{"".join(parts)}</svg>'


def table(rows):
    lines = ['<table><thead><tr><th>work</th><th>peer</th><th class="number">ours</th><th class="number">theirs</th>'
             f'<th class="bar">{axis()}</th><th class="number">ratio</th><th class="number">goal</th>'
             "<th>met</th></tr></thead><tbody>"]
    before = None
    for row in rows:
        work = html.escape(row["work"])
        word = met(row)
        aim = "" if row["goal"] is None else f"&le; {row['goal']:.2f}"
        again = work == before
        lines.append(
            f'<tr{" class=more" if again else ""}><td class="work">{"" if again else work}</td>'
            f'<td class="peer">{html.escape(row["peer"])}</td>'
            f'<td class="number ours" data-label="ours">{unbroken(spent(row, "ours"))}</td>'
            f'<td class="number theirs" data-label="theirs">{unbroken(spent(row, "theirs"))}</td>'
            f'<td class="bar">{bar(row)}</td>'
            f'<td class="number ratio">{row["ratio"]:.2f} '
            f'<span class="dim">({row["low"]:.2f}&ndash;{row["high"]:.2f})</span></td>'
            f'<td class="number goal"{" data-label=goal" if aim else ""}>{aim}</td>'
            f'<td class="met {"yes" if row["met"] else "no" if word else ""}">{word}</td></tr>')
        before = work
    lines.append("</tbody></table>")
    return "\n".join(lines)


def unbroken(time):
    """A number stays on one line with its unit."""
    return time.replace(" ", "&nbsp;", 1)


def anchor(title):
    return re.sub(r"[^a-z]+", "-", title.lower())


def page(about, rows):
    ahead = sum(row["ratio"] <= 1 for row in rows)
    missed = [row for row in judged(rows) if not row["met"]]
    groups = list(sections(rows))
    tiles = [(str(len(rows)), "comparisons"), (str(ahead), "in which we need no more time"),
             (f"{len(judged(rows)) - len(missed)} of {len(judged(rows))}", "goals met")]
    links = "".join(f'<a href="#{anchor(title)}">{title}</a>' for title, _ in groups)
    parts = [
        '<!doctype html><html lang="en"><head><meta charset="utf-8">',
        '<meta name="viewport" content="width=device-width, initial-scale=1">',
        f"<title>libsys_marlix: benchmarks</title><style>{STYLE}</style></head><body>",
        "<h1>libsys_marlix beside its peers</h1>",
        '<p class="dim">Time that our code takes, divided by the time of the peer named, within one run.</p>',
        '<div class="tiles">' + "".join(f'<div class="tile"><b>{number}</b>{what}</div>' for number, what in tiles)
        + "</div>",
        '<p>A bar to the left, <b style="color:var(--ahead)">blue</b>, is time saved, one to the right, '
        '<b style="color:var(--behind)">orange</b>, is time lost; each line of the scale is a factor of two. The thin '
        "line is the middle half of the rounds, the upright mark is the goal.</p>",
        "<dl>" + "".join(f"<dt>{html.escape(key)}</dt><dd>{html.escape(str(value))}</dd>"
                         for key, value in about.items()) + "</dl>",
        f"<nav>{links}</nav>"]
    if missed:
        parts.append(f'<h2 id="missed">Goals that are missed</h2>\n{table(missed)}')
    parts += [f'<h2 id="{anchor(title)}">{title}</h2>\n{table(found)}' for title, found in groups]
    parts.append("</body></html>")
    return "\n".join(parts) + "\n"


# docs/performance.md: what stands between the two marks is replaced, all else is written by hand.
BEGIN, END = "<!-- figures: begin -->", "<!-- figures: end -->"
HEAD = ("work", "ours", "peer", "theirs", "ratio", "goal", "met")
NEW_PAGE = f"""# Performance

{BEGIN}
{END}
"""


def markdown_table(rows):
    lines = ["| " + " | ".join(HEAD) + " |", "|---|--:|---|--:|--:|--:|---|"]
    for row in rows:
        cells = (row["work"], spent(row, "ours"), row["peer"], spent(row, "theirs"), f"{row['ratio']:.2f}",
                 "" if row["goal"] is None else f"{row['goal']:.2f}", met(row))
        lines.append("| " + " | ".join(cell.replace("|", "\\|") for cell in cells) + " |")
    return "\n".join(lines)


def figures(about, rows):
    behind = [row for row in rows if row["ratio"] > 1]
    facts = "\n".join(f"- {key}: {value}" for key, value in about.items())
    parts = [f"{facts}\n\n{len(rows)} comparisons; in {len(behind)} of them the peer takes less time; {verdict(rows)}."]
    missed = [row for row in judged(rows) if not row["met"]]
    if missed:
        parts.append(f"## Goals that are missed\n\n{markdown_table(missed)}")
    parts += [f"## {title}\n\n{markdown_table(found)}" for title, found in sections(rows)]
    return "\n\n".join(parts)


def with_figures(text, about, rows):
    """The page `text` with new figures between its marks."""
    if text.count(BEGIN) != 1 or text.count(END) != 1 or text.index(BEGIN) > text.index(END):
        raise ValueError(f"the page needs one line {BEGIN} and, below it, one line {END}")
    head, rest = text.split(BEGIN)
    return f"{head}{BEGIN}\n{figures(about, rows)}\n{END}{rest.split(END)[1]}"
