// The report's one script: reads out the coordinates under the pointer in every picture. The
// pictures are complete without it; it only adds the exact numbers.
#ifndef METROFIT_TOOLS_REPORT_ASSETS_REPORT_SCRIPT_H
#define METROFIT_TOOLS_REPORT_ASSETS_REPORT_SCRIPT_H

namespace metrofit::cli {

// Each picture carries its mapping in data-map: left, top, width and height of the plot area,
// then the low and high ends of its horizontal and vertical ranges. The last statement marks
// the document, so a test in a real browser can tell the script ran to its end.
inline constexpr char kReportScript[] = R"js(
(function () {
  'use strict';
  function decimals(span) {
    return Math.max(0, Math.min(9, 3 - Math.floor(Math.log10(span))));
  }
  function asAngle(v) {
    if (v > 360) v -= 360;
    if (v < -180) v += 360;
    return v;
  }
  function attach(svg) {
    var figure = svg.closest('figure');
    var readout = figure ? figure.querySelector('.readout') : null;
    if (!readout) return;
    var m = svg.getAttribute('data-map').split(' ').map(Number);
    var angles = svg.getAttribute('data-angles').split(' ');
    var names = [svg.getAttribute('data-x-label'), svg.getAttribute('data-y-label')];
    var idle = readout.textContent;
    function value(axis, fraction) {
      var low = m[4 + 2 * axis], high = m[5 + 2 * axis];
      var v = low + fraction * (high - low);
      if (angles[axis] === '1') v = asAngle(v);
      return names[axis] + ' ' + v.toFixed(decimals(high - low));
    }
    svg.addEventListener('mousemove', function (event) {
      var ctm = svg.getScreenCTM();
      if (!ctm) return;
      var p = new DOMPoint(event.clientX, event.clientY).matrixTransform(ctm.inverse());
      var fx = (p.x - m[0]) / m[2], fy = 1 - (p.y - m[1]) / m[3];
      if (fx < 0 || fx > 1 || fy < 0 || fy > 1) {
        readout.textContent = idle;
        return;
      }
      readout.textContent = value(0, fx) + '  \u00b7  ' + value(1, fy);
    });
    svg.addEventListener('mouseleave', function () { readout.textContent = idle; });
  }
  document.querySelectorAll('svg.plot').forEach(attach);
  document.documentElement.setAttribute('data-report-script', 'ready');
})();
)js";

}  // namespace metrofit::cli

#endif  // METROFIT_TOOLS_REPORT_ASSETS_REPORT_SCRIPT_H
