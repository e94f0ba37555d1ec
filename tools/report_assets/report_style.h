// The report's style sheet, inline in every page so that it needs no file beside it.
#ifndef METROFIT_TOOLS_REPORT_ASSETS_REPORT_STYLE_H
#define METROFIT_TOOLS_REPORT_ASSETS_REPORT_STYLE_H

namespace metrofit::cli {

// Only fonts every system has: a report must look the same in a measuring room without
// network as on a desk.
inline constexpr char kReportStyle[] = R"css(
:root {
  --ink: #1f2933; --muted: #5f6b7a; --line: #d9dee5; --page: #eef1f5; --head: #17324d;
  --ok: #1e7b45; --warn: #a05a00; --bad: #b3261e;
  --mono: ui-monospace, "SFMono-Regular", Menlo, Consolas, "Liberation Mono", "DejaVu Sans Mono",
    monospace;
}
* { box-sizing: border-box; }
html { background: var(--page); }
body {
  margin: 0; color: var(--ink);
  font: 14px/1.45 system-ui, -apple-system, "Segoe UI", Roboto, "Helvetica Neue", Arial,
    "Liberation Sans", "DejaVu Sans", sans-serif;
}
.report { max-width: 1120px; margin: 0 auto; padding: 24px 24px 36px; }
header.top { background: var(--head); color: #fff; border-radius: 10px; padding: 20px 26px 18px; }
.kicker { text-transform: uppercase; letter-spacing: .09em; font-size: 11.5px; opacity: .72; }
h1 { margin: 4px 0 4px; font-size: 27px; font-weight: 650; letter-spacing: -.01em; }
.source { font-family: var(--mono); font-size: 13px; word-break: break-all; opacity: .92; }
.source .sep { opacity: .5; margin: 0 .5em; }
.badges { margin-top: 12px; display: flex; gap: 8px; flex-wrap: wrap; }
.badge {
  display: inline-block; padding: 2px 11px; border-radius: 999px; font-size: 12px;
  font-weight: 600; color: #fff; background: rgba(255, 255, 255, .13);
  border: 1px solid rgba(255, 255, 255, .28);
}
.badge.ok { background: var(--ok); border-color: #39a566; }
.badge.warn { background: var(--warn); border-color: #c98324; }
.badge.bad { background: var(--bad); border-color: #d9544b; }
.message { margin: 10px 0 0; font-size: 13.5px; opacity: .92; }
.banner { margin: 16px 0 0; padding: 13px 18px; border-radius: 8px; border: 1px solid; }
.banner strong { font-size: 15px; }
.banner.bad { background: #fdecea; border-color: #efb1aa; color: #7a1c14; }
.banner.warn { background: #fff4e0; border-color: #efcd8f; color: #6b3d00; }
.cards { display: grid; grid-template-columns: 1.45fr 1fr; gap: 16px; margin-top: 16px; }
.card {
  background: #fff; border: 1px solid var(--line); border-radius: 10px; padding: 16px 20px;
  box-shadow: 0 1px 2px rgba(16, 24, 40, .05);
}
.report > .card { margin-top: 16px; }
h2 { font-size: 16px; margin: 0 0 10px; font-weight: 650; }
h3 { font-size: 14.5px; margin: 0; font-weight: 650; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { padding: 5px 8px; border-bottom: 1px solid #edf0f3; text-align: left; vertical-align: top; }
tbody:last-child tr:last-child > *, tbody tr:last-child > * { border-bottom: none; }
tbody + tbody { border-top: 1px solid #dfe4ea; }
thead th {
  font-size: 11px; text-transform: uppercase; letter-spacing: .06em; color: var(--muted);
  font-weight: 600; border-bottom: 1px solid var(--line);
}
th.num, td.num { text-align: right; white-space: nowrap; }
td.num { font-family: var(--mono); font-size: 13px; }
td.comp { color: var(--muted); font-size: 12.5px; }
td.unit { color: var(--muted); white-space: nowrap; font-size: 12.5px; }
.desc { display: block; font-weight: 400; color: var(--muted); font-size: 12px; }
code { font-family: var(--mono); font-size: 12.5px; }
.empty { color: var(--muted); font-style: italic; margin: 6px 0; }
.note { color: var(--muted); font-size: 13px; margin: 0 0 4px; max-width: 95ch; }
figure { margin: 18px 0 0; }
figure + figure { border-top: 1px solid #edf0f3; padding-top: 16px; }
figcaption p { margin: 3px 0 8px; color: var(--muted); font-size: 13px; max-width: 95ch; }
svg.plot { width: 100%; height: auto; display: block; }
svg text { font-size: 12px; fill: #3b4652; }
svg .axis-title { font-size: 13px; fill: var(--ink); font-weight: 600; }
svg .frame { fill: #fff; stroke: #aab4bf; }
svg .grid { stroke: #e7ebef; stroke-width: 1; fill: none; }
svg .outline { fill: none; stroke: #4a5562; stroke-width: 1.2; stroke-dasharray: 6 4; }
svg .zero { fill: none; stroke: #4a5562; stroke-width: 1; stroke-dasharray: 4 3; }
svg .extreme { fill: none; stroke: #111; stroke-width: 1.6; }
svg .extreme-label {
  font-weight: 650; fill: #111; paint-order: stroke; stroke: #fff; stroke-width: 3px;
}
svg .bar { stroke: #fff; stroke-width: .6; }
svg .bar-frame { fill: none; stroke: #aab4bf; }
svg .normal { fill: none; stroke: var(--ink); stroke-width: 1.4; stroke-dasharray: 6 4; }
.readout { font-family: var(--mono); font-size: 12px; color: var(--muted); min-height: 1.5em; }
footer { margin-top: 20px; color: var(--muted); font-size: 12px; text-align: center; }
@media (max-width: 860px) { .cards { grid-template-columns: 1fr; } }
@media print {
  html { background: #fff; }
  .report { max-width: none; padding: 0; }
  .card { box-shadow: none; break-inside: avoid; }
  header.top, .badge, svg { -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  .readout { display: none; }
}
)css";

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_REPORT_ASSETS_REPORT_STYLE_H
