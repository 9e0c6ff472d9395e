#include "report_style.h"

namespace tool {

// Contrast of texts with the background is 4.5 or more, that of marks in pictures 3 or more (report_test.py).
std::string_view const REPORT_STYLE = R"css(
:root {
  color-scheme: light dark;
  --back: #ffffff; --panel: #f4f6f8; --text: #1c2128; --quiet: #57606a; --line: #d5dae0; --link: #0b5cad;
  --fine: #1a7f37; --unfinished: #8a5a00; --damaged: #b3261e;
  --sound: #0072b2; --zero: #7d8590; --join: #9a4d00;
}
@media screen and (prefers-color-scheme: dark) {
  :root {
    --back: #14171b; --panel: #1d2126; --text: #e6e9ed; --quiet: #a3abb5; --line: #353b43; --link: #7ab7f5;
    --fine: #57d27a; --unfinished: #e3b341; --damaged: #ff8a80;
    --sound: #4aa8e0; --zero: #8b949e; --join: #f0a050;
  }
}
* { box-sizing: border-box; }
html { scroll-behavior: smooth; -webkit-text-size-adjust: 100%; }
body { margin: 0; background: var(--back); color: var(--text); font: 1rem/1.55 system-ui, sans-serif; }
.page { max-width: 72rem; margin: 0 auto; padding: 0 clamp(1rem, 4vw, 2.5rem); }
h1, h2, h3 { line-height: 1.25; overflow-wrap: anywhere; text-wrap: balance; }
h1 { font-size: clamp(1.6rem, 1.2rem + 1.8vw, 2.4rem); font-weight: 650; letter-spacing: -.015em; margin: 0; }
h2 { font-size: 1.3rem; font-weight: 650; margin: 0 0 1rem; }
h3 { font-size: 1.05rem; font-weight: 600; margin: 2rem 0 .25rem; }
p { margin: 0 0 1rem; max-width: 46rem; overflow-wrap: anywhere; }
a { color: var(--link); text-underline-offset: .15em; }
:focus-visible { outline: 2px solid var(--link); outline-offset: 3px; border-radius: 2px; }
.quiet { color: var(--quiet); }
.file { font-family: ui-monospace, monospace; font-size: .9rem; }

header.page { padding-block: clamp(1.75rem, 5vw, 3.5rem) 2rem; }
header .file { margin: .4rem 0 1.2rem; color: var(--quiet); }
.verdict { font-weight: 600; margin-bottom: 1.6rem; }
.verdict a { color: inherit; }
.verdict .mark { display: inline-block; width: 1.5em; height: 1.5em; margin-right: .35em; border-radius: 50%;
  line-height: 1.5em; text-align: center; font-weight: 700; background: currentColor; }
.verdict .mark span { color: var(--back); }
.fine { color: var(--fine); }
.unfinished { color: var(--unfinished); }
.damaged, .damage, .loss { color: var(--damaged); }
.facts { display: grid; grid-template-columns: repeat(auto-fit, minmax(9.5rem, 1fr)); gap: 1rem 1.5rem; margin: 0; }
.facts dt { font-size: .8rem; color: var(--quiet); }
.facts dd { margin: 0; font-size: 1.1rem; font-weight: 600; font-variant-numeric: tabular-nums; }

nav { border-block: 1px solid var(--line); background: var(--back); position: sticky; top: 0; z-index: 1; }
nav ul { display: flex; flex-wrap: wrap; gap: 0 clamp(.7rem, 3vw, 1.75rem);
  font-size: .95rem; margin: 0; padding: 0; list-style: none; }
nav a { display: block; padding: .6rem 0; text-decoration: none; }
nav a:hover { text-decoration: underline; }
section { padding: 2.25rem 0; scroll-margin-top: 2.5rem; border-bottom: 1px solid var(--line); }
section:last-child { border-bottom: 0; }

.pairs { display: grid; grid-template-columns: minmax(7rem, max-content) 1fr; gap: .4rem 2rem; margin: 0; }
.pairs dt { color: var(--quiet); overflow-wrap: anywhere; max-width: 14rem; }
.pairs dd { margin: 0; min-width: 0; overflow-wrap: anywhere; white-space: pre-line; }

.scroll { overflow-x: auto; max-width: 100%; margin: 0 0 1rem; }
table { border-collapse: collapse; min-width: 100%; font-size: .92rem; font-variant-numeric: tabular-nums; }
caption { text-align: left; color: var(--quiet); padding-bottom: .4rem; }
th, td { padding: .45rem 1.25rem .45rem 0; text-align: left; vertical-align: baseline; white-space: nowrap;
  border-bottom: 1px solid var(--line); }
th:last-child, td:last-child { padding-right: 0; }
thead th { font-weight: 500; color: var(--quiet); }
tbody th { font-weight: 600; }
.number { text-align: right; }
.wraps { white-space: normal; min-width: 16rem; overflow-wrap: anywhere; }

svg { display: block; font-family: inherit; }
.map { width: 100%; min-width: 62rem; height: auto; }
.shapes { position: absolute; }
figure { margin: 0 0 .75rem; }
figcaption { display: flex; flex-wrap: wrap; justify-content: space-between; gap: 0 1rem; font-size: .88rem; }
.wave .sound { fill: var(--sound); stroke: var(--sound); stroke-width: .6; }
.wave path, .key path { vector-effect: non-scaling-stroke; }
.wave .zero { stroke: var(--zero); stroke-width: 1; opacity: .6; }
.wave .silent, .key .silent { fill: var(--damaged); fill-opacity: .28; }
.wave .trimmed, .key .trimmed { fill: var(--back); fill-opacity: .72; }
.wave .join, .key .join { stroke: var(--join); stroke-width: 2; }
.wave .broken, .key .broken { stroke: var(--damaged); stroke-width: 2; stroke-dasharray: 4 3; }
.wave use, .key use { fill: var(--join); }
.axis { display: flex; justify-content: space-between; font-size: .8rem; color: var(--quiet);
  font-variant-numeric: tabular-nums; margin: -.4rem 0 1.5rem; }
.key { display: flex; flex-wrap: wrap; gap: .35rem 1.5rem; margin: 0 0 1rem; padding: 0; list-style: none;
  font-size: .88rem; color: var(--quiet); }
.key li { display: flex; align-items: center; gap: .5rem; }
.wave .panel { fill: var(--panel); }
.key .panel { fill: var(--panel); stroke: var(--line); }
footer.page { padding-block: 1.5rem 3rem; font-size: .88rem; color: var(--quiet); }

@media (max-width: 36rem) {
  .pairs { grid-template-columns: 1fr; gap: 0; }
  .pairs dd { margin-bottom: .7rem; }
  .facts { grid-template-columns: repeat(2, minmax(0, 1fr)); }
  nav ul { font-size: .85rem; }
}
@media (prefers-reduced-motion: reduce) { html { scroll-behavior: auto; } }
@media print {
  :root { color-scheme: light; }
  html { font-size: 10pt; }
  .page { max-width: none; padding: 0; }
  nav { display: none; }
  .scroll { overflow: visible; }
  .map { min-width: 0; }
  th, td { white-space: normal; overflow-wrap: anywhere; padding-right: .6rem; }
  .wraps { min-width: 0; }
  section { padding: 1.2rem 0; }
  figure, tr { break-inside: avoid; }
  h2, h3, caption { break-after: avoid; }
  svg { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
}
)css";

}  // namespace tool
