#!/usr/bin/python3
"""Opens a sample HTML fit report in headless Chromium, as an engineer's browser would.

usage: browser_report_check.py --writer PROGRAM --out DIR [--skip-code N] SHAPE POINTS [invalid]

Writes the report with PROGRAM, then checks that
  - the page's script ran to its end (it marks the document) and nothing was logged to the
    console: the report logs nothing, so any console line is an error;
  - the page asked for nothing over the network: Chromium's network log holds no request made
    for the file:// page (every host name fails to resolve here, so nothing leaves the machine);
  - a screenshot shows the report: mostly not the page background, many colours, and the red and
    blue of the deviation scale in quantity, which only the drawn points give;
  - the pointer read-out works: a copy of the page with a test script appended moves the pointer
    to the middle of the first picture, and the read-out must name both axes with the values of
    the middle of their ranges.
Exits with the skip code when Chromium is not installed. Standard library only.
"""

import argparse
import json
import html as html_text
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import zlib

WINDOW = (1200, 1600)
CHROMIUM_TIMEOUT_S = 120
# Pixels of the deviation colours (strong red or blue) that only drawn points reach: the colour
# bars and histogram alone stay well below this.
MIN_SCALE_PIXELS = 15000
# Share of the screenshot that must differ from the page background.
MIN_CONTENT_SHARE = 0.25
# Distinct colours (at 5 bits per channel) a rendered report has at the least.
MIN_COLOURS = 200
MARKER = 'data-report-script="ready"'


def chromium_path():
    for name in ("chromium", "chromium-browser"):
        found = shutil.which(name)
        if found:
            return found
    return None


def run_chromium(chromium, url, extra):
    profile = tempfile.mkdtemp(prefix="metrofit_report_profile_")
    try:
        command = [
            chromium, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
            "--no-first-run", "--disable-background-networking", "--disable-component-update",
            "--disable-sync", "--hide-scrollbars", "--user-data-dir=" + profile,
            "--enable-logging=stderr", "--v=0", "--host-resolver-rules=MAP * ~NOTFOUND",
            "--window-size=%d,%d" % WINDOW,
        ] + extra + [url]
        done = subprocess.run(command, capture_output=True, text=True, errors="replace",
                              timeout=CHROMIUM_TIMEOUT_S, check=False)
        return done.returncode, done.stdout, done.stderr
    finally:
        shutil.rmtree(profile, ignore_errors=True)


def page_problems(log):
    """Console messages, uncaught errors and network requests in Chromium's log."""
    problems = []
    for line in log.splitlines():
        if "CONSOLE" in line or "Uncaught" in line:
            problems.append(line)
    return problems


def network_problems(path):
    """Requests the page itself made, from Chromium's network log. Chromium's own background
    requests carry another isolation key than the file:// page's."""
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            events = json.load(f)["events"]
    except (OSError, ValueError, KeyError) as error:
        return ["cannot read Chromium's network log: %s" % error]
    requests = set()
    for event in events:
        params = event.get("params", {})
        if "url" in params and params.get("network_isolation_key", "").startswith("file://"):
            requests.add(params["url"])
    return ["the page requested %s" % url for url in sorted(requests)]


def paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def unfilter(raw, width, height, channels):
    stride = width * channels
    rows = []
    previous = bytearray(stride)
    pos = 0
    for _ in range(height):
        kind = raw[pos]
        line = bytearray(raw[pos + 1:pos + 1 + stride])
        pos += 1 + stride
        if kind == 1:
            for i in range(channels, stride):
                line[i] = (line[i] + line[i - channels]) & 0xFF
        elif kind == 2:
            line = bytearray((x + y) & 0xFF for x, y in zip(line, previous))
        elif kind == 3:
            for i in range(stride):
                left = line[i - channels] if i >= channels else 0
                line[i] = (line[i] + ((left + previous[i]) >> 1)) & 0xFF
        elif kind == 4:
            for i in range(stride):
                left = line[i - channels] if i >= channels else 0
                up_left = previous[i - channels] if i >= channels else 0
                line[i] = (line[i] + paeth(left, previous[i], up_left)) & 0xFF
        elif kind != 0:
            raise ValueError("unknown PNG filter %d" % kind)
        rows.append(bytes(line))
        previous = line
    return rows


def decode_png(path):
    """Width, height, channels and rows of an 8-bit RGB or RGBA PNG."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("not a PNG file")
    pos, idat, header = 8, [], None
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        pos += 12 + length
        if kind == b"IHDR":
            header = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat.append(body)
    width, height, depth, colour_type, _, _, interlace = header
    if depth != 8 or colour_type not in (2, 6) or interlace != 0:
        raise ValueError("unsupported PNG: depth %d, colour type %d" % (depth, colour_type))
    channels = 3 if colour_type == 2 else 4
    return width, height, channels, unfilter(zlib.decompress(b"".join(idat)), width, height,
                                             channels)


def picture_problems(path):
    width, height, channels, rows = decode_png(path)
    problems = []
    if (width, height) != WINDOW:
        problems.append("screenshot is %dx%d, not %dx%d" % ((width, height) + WINDOW))
    counts = {}
    scale_pixels = 0
    for row in rows:
        for i in range(0, len(row), channels):
            r, g, b = row[i], row[i + 1], row[i + 2]
            counts[(r, g, b)] = counts.get((r, g, b), 0) + 1
    for (r, g, b), n in counts.items():
        if r - max(g, b) > 60 or (b - r > 60 and b > 120):
            scale_pixels += n
    background = max(counts.values())
    content = 1.0 - background / float(width * height)
    colours = len({(r >> 3, g >> 3, b >> 3) for (r, g, b) in counts})
    print("screenshot %s: %.0f%% content, %d colours, %d pixels of the deviation scale"
          % (path, 100 * content, colours, scale_pixels))
    if content < MIN_CONTENT_SHARE:
        problems.append("screenshot is mostly background (%.0f%% content)" % (100 * content))
    if colours < MIN_COLOURS:
        problems.append("screenshot has only %d colours" % colours)
    if scale_pixels < MIN_SCALE_PIXELS:
        problems.append("only %d pixels in the deviation colours: no points drawn?" % scale_pixels)
    return problems


# Appended to a copy of the report: the pointer moves to the middle of the first picture's plot
# area and the read-out's text is copied into the document, where --dump-dom shows it.
POINTER_SCRIPT = """<script>
(function () {
  var svg = document.querySelector('svg.plot');
  var box = svg.getBoundingClientRect();
  var view = svg.viewBox.baseVal;
  var m = svg.getAttribute('data-map').split(' ').map(Number);
  var x = box.left + (m[0] + 0.5 * m[2]) / view.width * box.width;
  var y = box.top + (m[1] + 0.5 * m[3]) / view.height * box.height;
  svg.dispatchEvent(new MouseEvent('mousemove', {clientX: x, clientY: y}));
  var text = svg.closest('figure').querySelector('.readout').textContent;
  document.body.setAttribute('data-pointer-readout', text);
})();
</script>"""
# Relative to the range: the middle of the picture is the middle of the plot area within the
# rounding of the read-out and of the picture's layout.
READOUT_TOLERANCE = 0.03


def readout_problems(chromium, report, copy):
    with open(report, encoding="utf-8") as f:
        page = f.read()
    with open(copy, "w", encoding="utf-8") as f:
        f.write(page.replace("</body>", POINTER_SCRIPT + "</body>"))
    _, dom, log = run_chromium(chromium, "file://" + os.path.abspath(copy), ["--dump-dom"])
    problems = page_problems(log)
    svg = re.search(r'<svg class="plot[^>]*>', page).group(0)
    numbers = [float(v) for v in re.search(r'data-map="([^"]*)"', svg).group(1).split()]
    labels = [html_text.unescape(re.search(r'data-%s-label="([^"]*)"' % a, svg).group(1))
              for a in ("x", "y")]
    found = re.search(r'data-pointer-readout="([^"]*)"', dom)
    if not found:
        return problems + ["the pointer read-out did not run"]
    text = html_text.unescape(found.group(1))
    print("read-out at the middle of the first picture: " + text)
    for axis, label in enumerate(labels):
        value = re.search(re.escape(label) + r" (-?[0-9.]+)", text)
        low, high = numbers[4 + 2 * axis], numbers[5 + 2 * axis]
        if not value:
            problems.append("the read-out '%s' does not give %s" % (text, label))
        elif abs(float(value.group(1)) - 0.5 * (low + high)) > READOUT_TOLERANCE * (high - low):
            problems.append("the read-out gives %s %s, not the middle of %g to %g"
                            % (label, value.group(1), low, high))
    return problems


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--writer", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--skip-code", type=int, default=77)
    parser.add_argument("shape")
    parser.add_argument("points")
    parser.add_argument("invalid", nargs="?", default="")
    args = parser.parse_args()

    chromium = chromium_path()
    if chromium is None:
        print("SKIPPED: chromium is not installed (Debian: apt-get install chromium); the HTML "
              "report was not opened in a browser")
        return args.skip_code

    os.makedirs(args.out, exist_ok=True)
    name = args.shape + ("_invalid" if args.invalid else "")
    html = os.path.join(args.out, name + ".html")
    png = os.path.join(args.out, name + ".png")
    subprocess.run([args.writer, args.shape, html, args.points] +
                   ([args.invalid] if args.invalid else []), check=True)
    url = "file://" + os.path.abspath(html)

    problems = []
    net_log = os.path.join(args.out, name + ".netlog.json")
    rc, dom, log = run_chromium(chromium, url, ["--dump-dom", "--log-net-log=" + net_log])
    problems += network_problems(net_log)
    if rc != 0:
        problems.append("chromium --dump-dom exited with %d" % rc)
    if MARKER not in dom:
        problems.append("the report's script did not run to its end (no %s)" % MARKER)
    if args.invalid and "This fit is not valid" not in dom:
        problems.append("the invalid fit's page does not say so")
    problems += page_problems(log)

    if os.path.exists(png):
        os.remove(png)
    rc, _, log = run_chromium(chromium, url, ["--screenshot=" + png])
    problems += page_problems(log)
    if rc != 0 or not os.path.exists(png):
        problems.append("chromium wrote no screenshot (exit status %d)" % rc)
    else:
        problems += picture_problems(png)
    problems += readout_problems(chromium, html, os.path.join(args.out, name + "_pointer.html"))

    for problem in problems:
        print("FAILED: " + problem)
    print("%s: %s" % (name, "failed" if problems else "passed"))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
