#include "page_style.h"

namespace zulstat {

std::string_view pageStyle() {
    return R"(:root {
  color-scheme: light dark;
  --page: #f6f7f9; --card: #fff; --text: #1c2128; --soft: #59636e; --rule: #d5dae1; --grid: #e6e9ee; --gap: #8b949e33;
  --hover: #0969da26; --link: #0b5cad;
  --g0: #1f6fc4; --g1: #c2570c; --g2: #1a7f4b; --g3: #b3263b; --g4: #7c45b5; --g5: #8a6a00; --g6: #0b7f8f; --g7: #b02f7f;
  --s0: #7fb08a; --s1: #e3a21a; --s2: #d0453b; --s3: #8a63c4; --s4: #4f8fd6; --s5: #2fa3a0; --s6: #d66fa8; --s7: #9aa3ad;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #0f1318; --card: #171c23; --text: #e3e8ee; --soft: #9aa6b2; --rule: #303842; --grid: #252c35; --gap: #9aa6b22e;
    --hover: #79b8ff33; --link: #79b8ff;
    --g0: #6cb0ff; --g1: #f3a25f; --g2: #63cf95; --g3: #ff8d97; --g4: #c8a1f5; --g5: #dcc05a; --g6: #58cddb; --g7: #f38cc6;
    --s0: #4c7a58; --s1: #c98d12; --s2: #d9584d; --s3: #8f6bc9; --s4: #4a86c8; --s5: #2b8f8c; --s6: #c2629a; --s7: #69737e;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body { margin: 0 auto; padding: 1.5rem 1.25rem 3rem; max-width: 88rem; background: var(--page); color: var(--text);
  font: 15px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; overflow-wrap: anywhere; }
h1 { margin: 0; font-size: 1.5rem; line-height: 1.25; }
h2 { margin: 2.25rem 0 .75rem; padding-bottom: .35rem; border-bottom: 1px solid var(--rule); font-size: 1.1rem; }
h2 small, h1 small { color: var(--soft); font-size: .85rem; font-weight: 400; }
h3 { margin: 0 0 .5rem; font-size: 1rem; }
p { margin: .25rem 0; }
a { color: var(--link); text-decoration: none; }
a:hover { text-decoration: underline; }
.soft { color: var(--soft); }
.cards { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 24rem), 1fr)); gap: .75rem; margin: 1rem 0; }
.card, figure { margin: 0; padding: .75rem .9rem; background: var(--card); border: 1px solid var(--rule); border-radius: .5rem; }
.card dl { display: grid; grid-template-columns: repeat(auto-fill, minmax(9.75rem, 1fr)); gap: .5rem 1rem; margin: 0; }
.card dt { color: var(--soft); font-size: .8rem; }
.card dd { margin: 0; font-variant-numeric: tabular-nums; }
nav ul { display: flex; flex-wrap: wrap; gap: .25rem 1rem; margin: .5rem 0 0; padding: 0; list-style: none; }
.legend { position: sticky; top: 0; z-index: 1; display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; margin: 1rem -1.25rem -1rem;
  padding: .5rem 1.25rem; background: var(--page); font-size: .875rem; }
.key { display: inline-block; width: .8rem; height: .8rem; margin-right: .4rem; border-radius: .2rem; vertical-align: -.05rem; }
.plots { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 19.5rem), 1fr)); gap: .75rem; align-items: start; }
figure { padding: .6rem .7rem .45rem; }
figcaption { display: flex; flex-wrap: wrap; justify-content: space-between; align-items: baseline; gap: 0 .75rem; margin-bottom: .2rem;
  font-size: .875rem; line-height: 1.35; }
figcaption b { font-weight: 600; }
figcaption span { color: var(--soft); font-size: .8125rem; font-variant-numeric: tabular-nums; text-align: right; }
figure ul { display: flex; flex-wrap: wrap; gap: 0 .9rem; margin: .1rem 0 0; padding: 0; list-style: none; color: var(--soft); font-size: .78rem; }
figure .key { width: .65rem; height: .65rem; margin-right: .3rem; }
svg { display: block; width: 100%; height: auto; }
svg.shared { position: absolute; width: 0; height: 0; }
.x, .y { fill: var(--soft); font-size: 9.5px; text-anchor: middle; font-variant-numeric: tabular-nums; }
.y, .end { text-anchor: end; }
.begin { text-anchor: start; }
.grid, .mark { fill: none; stroke: var(--grid); }
.mark { stroke: var(--soft); }
.gap { fill: var(--gap); }
.line { fill: none; stroke-width: 1.2; stroke-linejoin: round; stroke-linecap: round; }
.wide { stroke-width: 4; }
.hover rect { fill: transparent; }
.hover rect:hover { fill: var(--hover); }
.events { columns: 23rem; column-gap: 2.5rem; margin: 0; padding: 0; list-style: none; font-size: .875rem; }
.events li { display: flex; gap: 1rem; padding: .25rem 0; border-bottom: 1px solid var(--rule); break-inside: avoid; }
.events time, .events .who { flex: none; max-width: 40%; font-variant-numeric: tabular-nums; }
.events time { color: var(--soft); }
.scroll { overflow-x: auto; }
.parts { columns: 23rem; column-gap: 2.5rem; }
.parts table { width: 100%; }
tr { break-inside: avoid; }
table { border-collapse: collapse; font-size: .875rem; }
th, td { padding: .25rem 1.25rem .25rem 0; border-top: 1px solid var(--rule); text-align: left; vertical-align: top; }
thead th { border-top: 0; color: var(--soft); font-weight: 400; font-size: .8rem; }
tbody th { font-weight: 400; min-width: 9rem; }
td { min-width: 4.5rem; font-variant-numeric: tabular-nums; }
.g0 { stroke: var(--g0); } .g1 { stroke: var(--g1); } .g2 { stroke: var(--g2); } .g3 { stroke: var(--g3); }
.g4 { stroke: var(--g4); } .g5 { stroke: var(--g5); } .g6 { stroke: var(--g6); } .g7 { stroke: var(--g7); }
.key.g0 { background: var(--g0); } .key.g1 { background: var(--g1); } .key.g2 { background: var(--g2); }
.key.g3 { background: var(--g3); } .key.g4 { background: var(--g4); } .key.g5 { background: var(--g5); }
.key.g6 { background: var(--g6); } .key.g7 { background: var(--g7); }
.s0 { fill: var(--s0); } .s1 { fill: var(--s1); } .s2 { fill: var(--s2); } .s3 { fill: var(--s3); }
.s4 { fill: var(--s4); } .s5 { fill: var(--s5); } .s6 { fill: var(--s6); } .s7 { fill: var(--s7); }
.key.s0 { background: var(--s0); } .key.s1 { background: var(--s1); } .key.s2 { background: var(--s2); }
.key.s3 { background: var(--s3); } .key.s4 { background: var(--s4); } .key.s5 { background: var(--s5); }
.key.s6 { background: var(--s6); } .key.s7 { background: var(--s7); }
@media (max-width: 40rem) {
  body { padding: 1rem .75rem 2rem; }
  .legend { margin: 1rem -.75rem -1rem; padding: .5rem .75rem; }
}
@media print {
  @page { margin: 12mm; }
  body { padding: 0; max-width: none; background: none; font-size: 11px; }
  .legend { position: static; background: none; }
  h1 { font-size: 18px; }
  h2 { margin-top: 1.25rem; font-size: 13px; }
  h3 { font-size: 11px; }
  .plots { grid-template-columns: repeat(3, 1fr); gap: 3mm; }
  .card, figure { border-color: #bbb; break-inside: avoid; }
  h2 { break-after: avoid; }
  .cards, .events, table { font-size: 10px; }
  .card dt, figcaption, figcaption span, figure ul { font-size: 9px; }
  .cards { grid-template-columns: repeat(auto-fit, minmax(80mm, 1fr)); }
  .events { columns: 2; }
  .key, rect, .gap { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
}
)";
}

}  // namespace zulstat
