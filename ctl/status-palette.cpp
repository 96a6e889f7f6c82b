#include "status-palette.h"

namespace {

std::string Scheme(const char* PageColour::*value) {
    std::string css = "{";
    for (const PageColour& colour : kPageColours) {
        css += std::string("--") + colour.name + ":" + colour.*value + ";";
    }
    return css + "}";
}

}  // namespace

std::string PaletteCss() {
    return ":root" + Scheme(&PageColour::light) + "\n@media (prefers-color-scheme:dark){:root" +
           Scheme(&PageColour::dark) + "}\n";
}

// Sizes grow a little with the screen, so that the page can be read from afar on a wall.
const char* const kPageStyle = R"css(
:root{color-scheme:light dark}
*{box-sizing:border-box}
body{margin:0;background:var(--page);color:var(--text);overflow-wrap:anywhere;
 font:clamp(15px,.55vw + 10px,21px)/1.45 system-ui,-apple-system,"Segoe UI",Roboto,"Noto Sans",sans-serif}
main,header{max-width:110rem;margin:0 auto;padding:1rem clamp(.8rem,2vw,2.5rem)}
h1{font-size:1.7em;line-height:1.2;margin:0}
h2{font-size:1.2em;margin:0}
h3{font-size:.85em;font-weight:600;color:var(--faint);margin:1.1rem 0 .4rem}
p{margin:.2rem 0}
.faint{color:var(--faint)}
.top{display:flex;flex-wrap:wrap;align-items:center;gap:.6rem 1.2rem}
.badge{display:inline-block;padding:.15em .7em;border-radius:1em;font-weight:700;font-size:.85em;
 letter-spacing:.03em;color:var(--on-level);background:var(--ok);white-space:nowrap}
.warning .badge,.badge.warning{background:var(--warning)}
.critical .badge,.badge.critical{background:var(--critical)}
.sums{display:grid;grid-template-columns:repeat(3,minmax(0,1fr));gap:.8rem;margin-top:1rem}
.sum{background:var(--surface);border-radius:.7rem;padding:.7rem 1rem;border-left:.4rem solid var(--ok)}
.sum.warning{border-color:var(--warning)}.sum.critical{border-color:var(--critical)}
.sum b{display:block;font-size:1.9em;line-height:1.1}
section{background:var(--surface);border-radius:.7rem;padding:1rem 1.2rem;margin-bottom:1rem}
.title{display:flex;flex-wrap:wrap;align-items:center;gap:.3rem .9rem}
.events{list-style:none;margin:.6rem 0 0;padding:0;display:grid;gap:.5rem}
.events li{padding:.6rem .9rem;border-radius:.5rem;background:var(--warning-soft)}
.events li.critical{background:var(--critical-soft)}
.events b{color:var(--warning)}.events .critical b{color:var(--critical)}
.bays{display:grid;grid-template-columns:repeat(auto-fill,minmax(8.6rem,1fr));gap:.5rem}
.bay{border:2px solid var(--ok);border-radius:.5rem;background:var(--ok-soft);padding:.45rem .6rem;
 min-height:6.6rem;display:flex;flex-direction:column}
.bay.warning{border-color:var(--warning);background:var(--warning-soft)}
.bay.critical{border-color:var(--critical);background:var(--critical-soft)}
.bay.empty{border:2px dashed var(--line);background:none;color:var(--faint)}
.bay .head{display:flex;justify-content:space-between;gap:.4rem;font-size:.85em}
.bay .word{font-weight:700;color:var(--ok)}
.bay.warning .word{color:var(--warning)}.bay.critical .word{color:var(--critical)}
.bay.empty .word{color:var(--faint);font-weight:400}
.bay .life{margin-top:auto;font-size:.8em}
.bar{display:block;height:.5rem;min-width:4rem;border-radius:.25rem;border:1px solid var(--line);overflow:hidden;
 background:var(--surface)}
.bar i{display:block;height:100%;background:var(--ok)}
.bar.warning i{background:var(--warning)}.bar.critical i{background:var(--critical)}
table{width:100%;border-collapse:collapse;font-size:.9em;margin-top:.3rem}
th{text-align:left;color:var(--faint);font-weight:600}
th,td{padding:.35rem .7rem .35rem 0;border-bottom:1px solid var(--rule);vertical-align:top}
tr:last-child td{border-bottom:0}
tr.warning .mark{color:var(--warning);font-weight:700}
tr.critical .mark{color:var(--critical);font-weight:700}
footer{max-width:110rem;margin:0 auto;padding:0 clamp(.8rem,2vw,2.5rem) 1.5rem;color:var(--faint);font-size:.85em}
@media (max-width:46rem){
 .sums{gap:.5rem}.sum{padding:.5rem .6rem;font-size:.85em}
 section{padding:.8rem .8rem}
 .bays{grid-template-columns:repeat(auto-fill,minmax(7.2rem,1fr))}
 table,tbody,tr,td{display:block}
 thead{position:absolute;width:1px;height:1px;overflow:hidden;clip-path:inset(50%)}
 tr{border-bottom:1px solid var(--rule);padding:.5rem 0}
 tr:last-child{border-bottom:0}
 td{border:0;padding:.1rem 0;display:grid;grid-template-columns:7rem minmax(0,1fr)}
 td::before{content:attr(data-label);color:var(--faint)}
}
@media print{:root{color-scheme:light}section,.bay{break-inside:avoid}}
)css";
