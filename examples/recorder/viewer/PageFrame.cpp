#include "viewer/PageFrame.h"

const char kPageStyle[] = R"css(
:root {
  color-scheme: light dark;
  --page: #f6f6f3; --card: #fdfdfc; --edge: #e3e2dd; --text: #14140f; --soft: #5b5a54; --grid: #e9e8e3;
  --good: #17794f; --bad: #b3261e;
  --s0: #2a78d6; --s1: #d9591e; --s2: #17956a; --s3: #6d4fc4; --s4: #b58400; --s5: #c2407f;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #121211; --card: #1c1c1a; --edge: #32322f; --text: #f2f1ec; --soft: #a6a49b; --grid: #2b2b28;
    --good: #4cc38a; --bad: #ff8a7d;
    --s0: #5aa0f2; --s1: #ef8354; --s2: #3fbf90; --s3: #a08bf0; --s4: #d9a92b; --s5: #e879a8;
  }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text); font: 15px/1.45 system-ui, -apple-system, "Segoe UI",
  Roboto, "DejaVu Sans", sans-serif; }
main { max-width: 1160px; margin: 0 auto; padding: 32px 20px 48px; }
h1 { font-size: 26px; line-height: 1.2; letter-spacing: -.01em; margin: 0; }
.when { color: var(--soft); margin: 4px 0 22px; }
.tiles { display: grid; grid-template-columns: repeat(auto-fit, minmax(132px, 1fr)); gap: 10px; margin: 0 0 22px;
  padding: 0; }
.tile { background: var(--card); border: 1px solid var(--edge); border-radius: 12px; padding: 11px 14px; }
.tile dt { color: var(--soft); font-size: 13px; }
.tile dd { margin: 0; font-size: 21px; font-weight: 600; font-variant-numeric: tabular-nums; }
.good dd { color: var(--good); } .bad dd { color: var(--bad); }
.damage { border: 1px solid var(--bad); border-radius: 12px; padding: 12px 16px; margin: 0 0 22px; }
.damage h2 { color: var(--bad); font-size: 16px; margin: 0 0 4px; }
.damage ul { margin: 0; padding-left: 18px; }
.plots { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 480px), 1fr)); gap: 14px; }
.plot, .table { background: var(--card); border: 1px solid var(--edge); border-radius: 14px; padding: 14px 16px 12px;
  margin: 0; min-width: 0; }
.head { display: flex; flex-wrap: wrap; align-items: baseline; gap: 2px 16px; margin-bottom: 10px; }
.head h2 { font-size: 16px; margin: 0; margin-right: auto; }
.head h2 small { color: var(--soft); font-weight: 400; font-size: 13px; margin-left: 6px; }
.key { font-size: 13px; color: var(--soft); white-space: nowrap; }
.key b { color: var(--text); font-weight: 600; font-variant-numeric: tabular-nums; }
.key i { display: inline-block; width: 10px; height: 10px; border-radius: 3px; margin-right: 6px; }
.area { display: grid; grid-template-columns: 44px 1fr; column-gap: 8px; }
.scale { position: relative; height: 168px; font-size: 12px; color: var(--soft); font-variant-numeric: tabular-nums; }
.scale span { position: absolute; right: 0; transform: translateY(-50%); }
.canvas { position: relative; height: 168px; touch-action: pan-y; cursor: crosshair; }
.canvas svg { display: block; width: 100%; height: 100%; overflow: visible; }
.canvas line { stroke: var(--grid); stroke-width: 1; vector-effect: non-scaling-stroke; }
.canvas .zero { stroke: var(--edge); }
.canvas .restart { stroke: var(--soft); stroke-dasharray: 3 4; }
.canvas path { fill: none; stroke-width: 1.8; stroke-linejoin: round; stroke-linecap: round;
  vector-effect: non-scaling-stroke; }
.canvas path.fill { stroke: none; opacity: .12; }
.times { grid-column: 2; display: flex; justify-content: space-between; font-size: 12px; color: var(--soft);
  padding-top: 5px; font-variant-numeric: tabular-nums; }
.hair { position: absolute; top: 0; bottom: 0; width: 1px; background: var(--soft); display: none; }
.tip { position: absolute; top: 4px; display: none; pointer-events: none; background: var(--text); color: var(--page);
  border-radius: 8px; padding: 5px 9px; font-size: 12px; white-space: nowrap; z-index: 1; }
.on .hair, .on .tip { display: block; }
.table { margin-top: 14px; padding: 6px 0; overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-size: 14px; font-variant-numeric: tabular-nums; }
th, td { padding: 7px 14px; text-align: right; white-space: nowrap; border-top: 1px solid var(--grid); }
thead th { color: var(--soft); font-weight: 500; border: 0; }
th:first-child, .unit { text-align: left; } tbody th { font-weight: 600; }
.unit { color: var(--soft); }
footer { color: var(--soft); font-size: 13px; margin-top: 16px; }
@media (max-width: 560px) { main { padding: 22px 12px 32px; } .plot { padding: 12px; } h1 { font-size: 22px; }
  .tiles { grid-template-columns: repeat(2, 1fr); } }
@media print { body { background: none; } .plot { break-inside: avoid; } }
)css";

const char kPageScript[] = R"js(
"use strict";
const short = value => {
  let prefix = 0;
  while (Math.abs(value) >= 999.5 && prefix < 5) { value /= 1000; prefix++; }
  const size = Math.abs(value);
  return value.toFixed(size < 0.005 || size >= 99.95 ? 0 : size >= 9.995 ? 1 : 2) + ["", "k", "M", "G", "T", "P"][prefix];
};
for (const canvas of document.querySelectorAll(".canvas")) {
  const data = JSON.parse(canvas.querySelector("script").textContent);
  const hair = canvas.querySelector(".hair"), tip = canvas.querySelector(".tip");
  const show = event => {
    const box = canvas.getBoundingClientRect();
    const place = Math.min(Math.max((event.clientX - box.left) / box.width, 0), 1);
    const step = Math.min(Math.floor(place * data.steps), data.steps - 1);
    tip.replaceChildren();
    const line = (text, strong) => {
      const part = document.createElement("div");
      part.textContent = text;
      if (strong) part.style.fontWeight = 600;
      tip.append(part);
    };
    line(new Date(data.begin + place * data.length).toISOString().slice(11, 22));
    data.series.forEach(series => {
      const value = series.values[step];
      line(series.name + "  " + (value === null ? "nothing" : short(value) + " " + data.unit), true);
    });
    canvas.classList.add("on");
    hair.style.left = place * 100 + "%";
    const left = place * box.width + (place < .5 ? 12 : -12 - tip.offsetWidth);
    tip.style.left = left + "px";
  };
  canvas.addEventListener("pointermove", show);
  canvas.addEventListener("pointerdown", show);
  canvas.addEventListener("pointerleave", () => canvas.classList.remove("on"));
}
)js";
