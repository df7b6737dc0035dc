#pragma once

namespace sthal {

// The style sheet of a report: light and dark, wide, narrow and printed.
inline constexpr char kReportStyle[] = R"css(
:root { color-scheme: light dark; --page: #fff; --ink: #1c2026; --soft: #5b6470; --line: #d8dde3;
  --panel: #f4f6f8; --wave: #7b8794; --spoken: #2f6fde; --detected: #c2410c; --captured: #15803d;
  --bad: #c62828; --good: #15803d; --listening: #9cc2f5; --active: #86d19e; --internal: #d9b8f0;
  --quiet: #dfe3e8; --barink: #16202b; --badink: #fff; }
@media (prefers-color-scheme: dark) { :root { --page: #14171b; --ink: #e6e9ed; --soft: #9aa4b0;
  --line: #333b44; --panel: #1d2228; --wave: #8793a1; --spoken: #6ea2ff; --detected: #fb923c;
  --captured: #4ade80; --bad: #ff7b72; --good: #4ade80; --listening: #5b8fd0; --active: #4fa96b;
  --internal: #a07fbd; --quiet: #7f8b99; --barink: #0c1116;
  --badink: #0c1116; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 1120px; padding: 1rem; background: var(--page);
  color: var(--ink); font: 16px/1.5 system-ui, "DejaVu Sans", sans-serif; }
h1 { font-size: 1.5rem; margin: .5rem 0; overflow-wrap: anywhere; }
h2 { font-size: 1.15rem; margin: 2rem 0 .6rem; border-bottom: 1px solid var(--line); }
h3 { font-size: 1rem; margin: 1.2rem 0 .4rem; }
p { margin: .4rem 0; }
.soft, .when { color: var(--soft); }
.verdict { border-left: .4rem solid var(--soft); background: var(--panel); padding: .6rem .9rem;
  overflow-wrap: anywhere; }
.verdict.good { border-color: var(--good); }
.verdict.bad { border-color: var(--bad); }
.glance { display: grid; grid-template-columns: repeat(auto-fill, minmax(9.5rem, 1fr));
  gap: .6rem 1.2rem; margin: 1.2rem 0; }
.glance div { display: flex; flex-direction: column-reverse; justify-content: flex-end; }
.glance dt { color: var(--soft); font-size: .85rem; }
.glance dd { margin: 0; font-size: 1.35rem; font-variant-numeric: tabular-nums; }
.problems li { margin: .3rem 0; overflow-wrap: anywhere; }
.problems li, .verdict { white-space: pre-line; }
.wave { position: relative; height: 150px; background: var(--panel); overflow: hidden; }
.wave svg { display: block; width: 100%; height: 100%; }
.wave polygon { fill: var(--wave); }
.mark { position: absolute; top: 0; bottom: 0; }
.spoken { background: color-mix(in srgb, var(--spoken) 28%, transparent); }
.missed { background: color-mix(in srgb, var(--bad) 30%, transparent); }
.mark.detected { min-width: 3px; margin-left: -1px; background: var(--detected); }
.mark.captured, .mark.silent { top: auto; height: 9px; }
.captured { background: var(--captured); }
.silent { background: repeating-linear-gradient(45deg, var(--ink) 0 2px, var(--page) 2px 6px);
  outline: 1px solid var(--ink); outline-offset: -1px; }
.key { display: inline-block; width: .9rem; height: .9rem; margin-right: .45rem;
  vertical-align: -.1rem; border: 1px solid var(--line); }
.key.detected { background: var(--detected); }
.marks { list-style: none; padding: 0; margin: .4rem 0 1rem; display: flex; flex-wrap: wrap;
  gap: .1rem 1.4rem; }
.marks li { overflow-wrap: anywhere; }
.axis { position: relative; height: 1.5rem; font-size: .8rem; color: var(--soft);
  overflow: hidden; }
.axis span { position: absolute; padding-left: .25rem; border-left: 1px solid var(--line);
  white-space: nowrap; }
.row { display: grid; grid-template-columns: 11rem 1fr; gap: .6rem; margin: .2rem 0; }
.row .name { font-size: .88rem; align-self: center; overflow-wrap: anywhere; }
.bar { position: relative; height: 1.7rem; background: var(--panel); overflow: hidden; }
.bar i { position: absolute; top: 0; bottom: 0; min-width: 1px; overflow: hidden;
  white-space: nowrap; text-overflow: ellipsis; font: .75rem/1.7rem system-ui, "DejaVu Sans", sans-serif;
  color: var(--barink); text-indent: .3rem; border-left: 1px solid var(--page); }
.bar .quiet { background: var(--quiet); } .bar .listening { background: var(--listening); }
.bar .active { background: var(--active); } .bar .internal { background: var(--internal); }
.bar .bad { background: var(--bad); color: var(--badink); min-width: 3px; z-index: 1; }
table { border-collapse: collapse; width: 100%; font-size: .9rem; }
th, td { text-align: left; vertical-align: top; padding: .25rem .6rem .25rem 0;
  border-bottom: 1px solid var(--line); overflow-wrap: anywhere; }
th { color: var(--soft); font-weight: 600; overflow-wrap: normal; }
td[data-label="Detection"], .n { white-space: nowrap; font-variant-numeric: tabular-nums; }
tr.bad td { color: var(--bad); }
tr.event td { background: color-mix(in srgb, var(--detected) 14%, transparent); }
tr.capture td { background: color-mix(in srgb, var(--captured) 12%, transparent); }
tr.fault td { background: color-mix(in srgb, var(--spoken) 16%, transparent); }
tr.life td { background: color-mix(in srgb, var(--bad) 12%, transparent); }
pre { background: var(--panel); padding: .6rem; font-size: .82rem; white-space: pre-wrap;
  overflow-wrap: anywhere; margin: .4rem 0; }
summary { cursor: pointer; }
@media (max-width: 640px) {
  body { padding: .7rem; }
  table { font-size: .82rem; }
  .row { grid-template-columns: 1fr; gap: 0; }
  .row .name:empty { display: none; }
  .cards thead { display: none; }
  .cards tr { display: block; border: 1px solid var(--line); padding: .3rem .6rem;
    margin: .6rem 0; }
  .cards td { display: flex; justify-content: space-between; gap: 1rem; border: 0;
    padding: .1rem 0; text-align: right; }
  .cards td::before { content: attr(data-label); color: var(--soft); text-align: left; }
}
@media print {
  :root { color-scheme: light; --page: #fff; --ink: #000; --soft: #444; --line: #bbb;
    --panel: #f3f3f3; --wave: #777; --spoken: #2f6fde; --detected: #c2410c; --captured: #15803d;
    --bad: #c62828; --good: #15803d; --listening: #9cc2f5; --active: #86d19e;
    --internal: #d9b8f0; --quiet: #dfe3e8; --barink: #000; --badink: #fff; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  body { max-width: none; padding: 0; font-size: 10.5pt; }
  h2, h3, h2 + p, thead { break-after: avoid; }
  .wave, .marks, .states, .verdict, tr { break-inside: avoid; }
}
)css";

}  // namespace sthal
