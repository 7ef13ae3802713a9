#include "scanner/html/page_assets.h"

namespace tavrik::scanner::html {

const char kPageStyle[] =
    R"(:root{color-scheme:light dark;--ink:#1f2328;--dim:#57606a;--back:#f6f8fa;--card:#ffffff;--line:#d0d7de;
--red:#b42318;--redb:#fde8e6;--orange:#9a4b00;--orangeb:#fdefdc;--teal:#0b6372;--tealb:#dff5f8;--grey:#57606a;--greyb:#eaeef2;
--purple:#6f2da8;--purpleb:#f3e8fd;--accent:#0969da}
@media (prefers-color-scheme:dark){:root{--ink:#e6edf3;--dim:#9aa4b0;--back:#0d1117;--card:#161b22;--line:#30363d;
--red:#ff9a90;--redb:#4a1512;--orange:#ffb25c;--orangeb:#45290a;--teal:#66d9e8;--tealb:#0b3b43;--grey:#b1bac4;--greyb:#262c34;
--purple:#d2a8ff;--purpleb:#3a1f5a;--accent:#58a6ff}}
*{box-sizing:border-box}
body{margin:0;background:var(--back);color:var(--ink);font:14px/1.45 system-ui,"Segoe UI",Roboto,"DejaVu Sans",sans-serif;
display:flex;flex-direction:column}
header,#totals,#bar,main,.note{width:100%;max-width:1240px;margin:0 auto;padding:0 20px}
header{padding-top:18px;order:-4}
#totals{order:-3;font-weight:600;padding-top:8px}
#bar{order:-2;position:sticky;top:0;background:var(--back);padding-top:10px;padding-bottom:8px;z-index:1}
.note{order:-1;color:var(--dim)}
h1{font-size:20px;margin:0 0 6px}
h2{font-size:13px;margin:18px 0 6px;text-transform:uppercase;letter-spacing:.05em;color:var(--dim)}
code,pre,.mono,td.n{font-family:ui-monospace,Menlo,Consolas,"DejaVu Sans Mono",monospace;font-size:12px}
dl{display:grid;grid-template-columns:max-content 1fr;gap:2px 14px;margin:0}
dt{color:var(--dim)}
dd{margin:0;overflow-wrap:anywhere}
#bar .tools{display:flex;gap:8px;flex-wrap:wrap;align-items:center}
#q{flex:1 1 260px;padding:7px 10px;border:1px solid var(--line);border-radius:6px;background:var(--card);color:var(--ink);font:inherit}
button{padding:6px 10px;border:1px solid var(--line);border-radius:6px;background:var(--card);color:var(--ink);font:inherit;cursor:pointer}
button:disabled{opacity:.5;cursor:default}
button[aria-pressed=true]{border-color:var(--accent);box-shadow:inset 0 0 0 1px var(--accent)}
#shown{color:var(--dim);min-width:150px;text-align:right}
.cols,summary{display:grid;grid-template-columns:16px minmax(0,1fr) 96px minmax(0,1.1fr);gap:10px;align-items:start}
.cols{padding:8px 12px 2px}
.cols button{border:0;background:none;padding:0;color:var(--dim);text-align:left;font-size:12px}
.cols button.r{text-align:right}
main{padding-bottom:40px}
details.f{background:var(--card);border:1px solid var(--line);border-radius:6px;margin:4px 0;content-visibility:auto;contain-intrinsic-size:auto 38px}
details.f[hidden]{display:none}
details.f>summary{list-style:none;cursor:pointer;padding:8px 12px}
details.f>summary::-webkit-details-marker{display:none}
details.f>summary::before{content:"\25B8";color:var(--dim)}
details.f[open]>summary::before{content:"\25BE"}
summary:focus-visible,button:focus-visible,#q:focus-visible{outline:2px solid var(--accent);outline-offset:1px}
.name{overflow-wrap:anywhere}
.size{text-align:right;color:var(--dim);white-space:nowrap}
.chip{display:inline-block;border-radius:4px;padding:0 7px;margin:0 4px 3px 0;font-size:12.5px;background:var(--greyb);color:var(--grey);overflow-wrap:anywhere}
.chip.d{background:var(--redb);color:var(--red);font-weight:600}
.chip.p{background:var(--orangeb);color:var(--orange)}
.chip.m{background:var(--tealb);color:var(--teal)}
.chip.e{background:var(--purpleb);color:var(--purple)}
.b{padding:2px 14px 16px;border-top:1px solid var(--line)}
.b svg{display:block;width:100%;height:auto;border:1px solid var(--line);border-radius:4px;margin:12px 0 4px}
pre{margin:6px 0;padding:10px;background:var(--back);border:1px solid var(--line);border-radius:4px;overflow:auto;max-height:460px}
table{border-collapse:collapse;width:100%;font-size:13px}
th{text-align:left;font-weight:600;color:var(--dim)}
th,td{padding:3px 10px 3px 0;border-bottom:1px solid var(--line);vertical-align:top;overflow-wrap:anywhere}
th.n,td.n{text-align:right;white-space:nowrap}
.box{margin:6px 0}
.box>summary{display:list-item;cursor:pointer;color:var(--accent)}
@media print{#bar,.cols{display:none}}
@media (max-width:700px){.cols,summary{grid-template-columns:16px minmax(0,1fr) 80px}.hits{grid-column:2/-1}.cols .hits{display:none}}
)";

} // namespace tavrik::scanner::html
