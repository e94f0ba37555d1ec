#!/usr/bin/env python3
"""Writes the point-file format examples of metrofit into data/formats/: one probed sphere in
every format the tool reads, so each file can be checked against the same known truth.

The sphere: centre (212.438, -148.716, 305.204) mm, radius 12.5 mm, probed on a cap of 100
degrees around a tilted direction, 40 points with Gaussian noise of NOISE_MM along the surface
normal, rounded to DECIMALS decimals. Every file holds the same rounded points in the same
order; files that store float32 hold the nearest float.

  sphere.xyz                whitespace text with '#' comments
  sphere.csv                comma CSV, header "id,X,Y,Z,deviation" (id is text)
  sphere_decimal_comma.csv  semicolon CSV with decimal commas, no header, columns 2,3,4
  sphere.pts                count line, then x y z intensity r g b
  sphere_ascii.ply          ascii PLY, x y z double with normals and a face list
  sphere_le.ply             binary_little_endian PLY, x y z float among other properties
  sphere_be.ply             binary_big_endian PLY, x y z double, z listed first
  sphere_ascii.pcd          ascii PCD, x y z intensity
  sphere_binary.pcd         binary PCD, x y z as F8 among fields of other types

Run it from any directory with Debian's python3; the fixed seed makes it reproducible.
"""

import math
import os
import random
import struct

SEED = 20251125
NOISE_MM = 0.0015
DECIMALS = 5
CENTRE = (212.438, -148.716, 305.204)
RADIUS = 12.5
AXIS = (0.2, -0.3, 1.0)
CAP_DEG = 100.0
RINGS = ((0, 1), (25, 6), (50, 9), (75, 11), (100, 13))
OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "data", "formats")


def unit(v):
    n = math.sqrt(sum(x * x for x in v))
    return tuple(x / n for x in v)


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def sphere_points():
    """The rounded points and their outward unit normals."""
    rng = random.Random(SEED)
    axis = unit(AXIS)
    e1 = unit(cross((1.0, 0.0, 0.0), axis))
    e2 = cross(axis, e1)
    points, normals = [], []
    for ring, (polar_deg, count) in enumerate(RINGS):
        theta = math.radians(polar_deg * CAP_DEG / 100.0)
        for k in range(count):
            phi = 2 * math.pi * (k + 0.5 * (ring % 2)) / count
            n = tuple(math.cos(theta) * a + math.sin(theta) * (math.cos(phi) * b +
                                                                math.sin(phi) * c)
                      for a, b, c in zip(axis, e1, e2))
            r = RADIUS + rng.gauss(0.0, NOISE_MM)
            points.append(tuple(round(c + r * x, DECIMALS) for c, x in zip(CENTRE, n)))
            normals.append(n)
    return points, normals


def fmt(x):
    return "%.*f" % (DECIMALS, x)


def truth_lines():
    return ["true centre %s %s %s, radius %s mm" % (CENTRE + (RADIUS,)),
            "made by generate_formats.py, seed %d, noise sigma %.4f mm" % (SEED, NOISE_MM)]


def write(name, data):
    mode = "wb" if isinstance(data, bytes) else "w"
    with open(os.path.join(OUT, name), mode) as out:
        out.write(data)


def xyz(points):
    lines = ["# metrofit format example: probed sphere, x y z in mm"]
    lines += ["# " + t for t in truth_lines()]
    lines += [" ".join(fmt(c) for c in p) for p in points]
    return "\n".join(lines) + "\n"


def csv_comma(points):
    lines = ["id,X,Y,Z,deviation"]
    for i, p in enumerate(points):
        deviation = math.dist(p, CENTRE) - RADIUS
        lines.append(",".join(["P%03d" % (i + 1)] + [fmt(c) for c in p] + ["%.5f" % deviation]))
    return "\n".join(lines) + "\n"


def csv_decimal_comma(points):
    lines = []
    for i, p in enumerate(points):
        lines.append(";".join([str(i + 1)] + [fmt(c).replace(".", ",") for c in p]))
    return "\r\n".join(lines) + "\r\n"


def pts(points):
    lines = [str(len(points))]
    for i, p in enumerate(points):
        grey = 40 + (i * 5) % 200
        lines.append(" ".join([fmt(c) for c in p] + [str(-1000 + 37 * i), str(grey),
                                                      str(grey), str(255 - grey)]))
    return "\n".join(lines) + "\n"


def faces(count):
    """A fan of triangles over the first points: data to skip, not geometry to trust."""
    return [(0, k, k + 1) for k in range(1, count - 1)]


def ply_ascii(points, normals):
    tris = faces(6)
    head = ["ply", "format ascii 1.0", "comment metrofit format example: probed sphere"]
    head += ["comment " + t for t in truth_lines()]
    head += ["element vertex %d" % len(points), "property double x", "property double y",
             "property double z", "property float nx", "property float ny", "property float nz",
             "element face %d" % len(tris), "property list uchar int vertex_indices",
             "end_header"]
    body = [" ".join([fmt(c) for c in p] + ["%.6f" % c for c in n])
            for p, n in zip(points, normals)]
    body += ["3 %d %d %d" % t for t in tris]
    return "\n".join(head + body) + "\n"


def ply_header(encoding, count, properties, tris):
    head = ["ply", "format %s 1.0" % encoding, "comment metrofit format example: probed sphere"]
    head += ["comment " + t for t in truth_lines()]
    head += ["element vertex %d" % count]
    head += ["property %s %s" % (t, n) for t, n in properties]
    head += ["element face %d" % tris, "property list uchar uint vertex_indices", "end_header"]
    return ("\n".join(head) + "\n").encode("ascii")


def ply_little(points):
    """x y z float between properties of other types."""
    properties = [("uchar", "red"), ("float", "x"), ("short", "flags"), ("float", "y"),
                  ("float", "z"), ("double", "quality"), ("int8", "tag")]
    tris = faces(5)
    data = ply_header("binary_little_endian", len(points), properties, len(tris))
    for i, p in enumerate(points):
        data += struct.pack("<BfhffdB", i % 256, p[0], -i, p[1], p[2], i * 0.25, i % 100)
    for t in tris:
        data += struct.pack("<B3I", 3, *t)
    return data


def ply_big(points):
    """x y z double, z first, with a uint16 and an int32 property."""
    properties = [("double", "z"), ("ushort", "scan"), ("double", "x"), ("int", "row"),
                  ("double", "y")]
    tris = faces(4)
    data = ply_header("binary_big_endian", len(points), properties, len(tris))
    for i, p in enumerate(points):
        data += struct.pack(">dHdid", p[2], 7, p[0], -3 * i, p[1])
    for t in tris:
        data += struct.pack(">B3I", 3, *t)
    return data


def pcd_header(fields, sizes, types, counts, count, data):
    lines = ["# .PCD v0.7 - metrofit format example: probed sphere"]
    lines += ["# " + t for t in truth_lines()]
    lines += ["VERSION 0.7", "FIELDS " + " ".join(fields), "SIZE " + " ".join(sizes),
              "TYPE " + " ".join(types), "COUNT " + " ".join(counts), "WIDTH %d" % count,
              "HEIGHT 1", "VIEWPOINT 0 0 0 1 0 0 0", "POINTS %d" % count, "DATA " + data]
    return "\n".join(lines) + "\n"


def pcd_ascii(points):
    text = pcd_header(["x", "y", "z", "intensity"], ["8"] * 3 + ["4"], ["F"] * 4, ["1"] * 4,
                      len(points), "ascii")
    for i, p in enumerate(points):
        text += " ".join([fmt(c) for c in p] + ["%.2f" % (0.5 + i / 100.0)]) + "\n"
    return text


def pcd_binary(points):
    """x y z F8 after a two-value normal and a uint8, with an int16 field between."""
    fields = ["normal_xy", "label", "x", "y", "ring", "z"]
    data = pcd_header(fields, ["4", "1", "8", "8", "2", "8"], ["F", "U", "F", "F", "I", "F"],
                      ["2", "1", "1", "1", "1", "1"], len(points), "binary").encode("ascii")
    for i, p in enumerate(points):
        data += struct.pack("<ffBddhd", 0.5, -0.5, i % 256, p[0], p[1], -i, p[2])
    return data


def main():
    os.makedirs(OUT, exist_ok=True)
    points, normals = sphere_points()
    write("sphere.xyz", xyz(points))
    write("sphere.csv", csv_comma(points))
    write("sphere_decimal_comma.csv", csv_decimal_comma(points).encode("ascii"))
    write("sphere.pts", pts(points))
    write("sphere_ascii.ply", ply_ascii(points, normals))
    write("sphere_le.ply", ply_little(points))
    write("sphere_be.ply", ply_big(points))
    write("sphere_ascii.pcd", pcd_ascii(points))
    write("sphere_binary.pcd", pcd_binary(points))


if __name__ == "__main__":
    main()
