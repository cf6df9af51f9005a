#include "clipinfo/picture_style.h"

namespace clipinfo {

// Only fonts of the system are used. Classes f0 to f7 are the colors of files: white text is
// legible on all of them, and so are they on both pages.
const char kPictureStyle[] = R"svg(<style>
:root { color-scheme: light dark }
text { font: 12px system-ui, -apple-system, "Segoe UI", "Noto Sans", sans-serif; fill: #57606a }
.title { font-size: 18px; font-weight: 600 }
.name { font-size: 14px; font-weight: 600 }
.title, .name { fill: #1f2328 }
.label { fill: #fff; text-anchor: middle; pointer-events: none }
.off .edit, .off .media, .off .arrow { opacity: .4 }
.off .name { fill: #57606a }
.off .label { fill: #1f2328 }
.off .tick { stroke: #57606a }
.right { text-anchor: end }
.middle { text-anchor: middle }
.page { fill: #fff }
.grid { stroke: #e4e8ec; fill: none }
.axis { stroke: #8c959f; fill: none }
.flag { fill: #8250df }
.pole { stroke: #8250df; stroke-dasharray: 2 3; fill: none; opacity: .7 }
.tick { stroke: #fff; fill: none; opacity: .85; pointer-events: none }
.sample { stroke: #57606a; fill: none }
.empty { fill: transparent; stroke: #8c959f; stroke-dasharray: 4 3 }
.missing { fill: #ffe0e0; stroke: #cf222e; stroke-dasharray: 6 3 }
.mixed { fill: #6b6f78 }
.dark { fill: #57606a }
.bad { fill: #cf222e }
.hidden { fill: url(#hidden) }
.many { fill: url(#many); pointer-events: none }
.arrow { stroke: #fff; fill: none; opacity: .8; pointer-events: none }
.beam { opacity: .18 }
.f0 { fill: #2f74c0 } .f1 { fill: #b35c00 } .f2 { fill: #3a7f4a } .f3 { fill: #8457b5 }
.f4 { fill: #1c7f8c } .f5 { fill: #b8467a } .f6 { fill: #7a6f14 } .f7 { fill: #8a5a3c }
@media (prefers-color-scheme: dark) {
text { fill: #9198a1 }
.title, .name { fill: #e6edf3 }
.off .name { fill: #9198a1 }
.off .label { fill: #e6edf3 }
.off .tick { stroke: #e6edf3 }
.page { fill: #0d1117 }
.grid { stroke: #21262d }
.axis { stroke: #656c76 }
.flag { fill: #a371f7 }
.pole { stroke: #a371f7 }
.sample { stroke: #9198a1 }
.empty { stroke: #656c76 }
.missing { fill: #3d1a20; stroke: #f85149 }
.dark { fill: #9198a1 }
.bad { fill: #f85149 }
.beam { opacity: .3 }
}
</style>
<defs>
<pattern id="hidden" width="6" height="6" patternUnits="userSpaceOnUse" patternTransform="rotate(45)">
<rect class="page" width="6" height="6" opacity=".5"/><rect class="page" width="3" height="6" opacity=".75"/>
</pattern>
<pattern id="many" width="3" height="3" patternUnits="userSpaceOnUse">
<rect class="page" width="1" height="3" opacity=".3"/>
</pattern>
</defs>
)svg";

}  // namespace clipinfo
