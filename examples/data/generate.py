#!/usr/bin/env python3
"""Writes the example point files of metrofit: simulated coordinate-measuring-machine data.

Each file holds one point per line, "x y z" in millimetres with five decimals, and starts with
'#' comments giving the true parameters the points were made from. Features sit 100-500 mm
from the machine origin with tilted axes; every point carries normally distributed noise of
NOISE_MM along the surface normal (and across the feature for line and circle). Arcs and caps
are partial where a real part only allows probing from one side.

  sphere.txt      reference sphere probed on a cap of 100 degrees around a tilted direction
  plane.txt       machined face, 8 x 6 grid over 80 x 60 mm
  circle.txt      bore section, 240-degree arc
  line.txt        straight edge, 120 mm
  cylinder.txt    shaft, 5 sections of 16 points over 40 mm
  cone.txt        countersink-like cone, 30-degree half angle, 4 sections
  ellipse.txt     elliptical contour in a tilted plane
  paraboloid.txt  reflector-like paraboloid of revolution, rings up to 40 mm from the axis
  torus.txt       O-ring groove fillet: outer half of the tube, all around

Every file names the command that fits it on a "# fit with:" line; the tool's tests run that
command on every file and compare the result with the "# true" values. Every file is fitted
from the automatic start.

Run it from any directory; it writes beside itself. The fixed seed makes the files
reproducible: python3 generate.py
"""

import math
import os
import random

SEED = 20240611
NOISE_MM = 0.0015
DECIMALS = 5
MIN_ORIGIN_DISTANCE = 100.0
MAX_ORIGIN_DISTANCE = 500.0


def add(a, b):
    return tuple(x + y for x, y in zip(a, b))


def scale(a, s):
    return tuple(x * s for x in a)


def dot(a, b):
    return sum(x * y for x, y in zip(a, b))


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def unit(a):
    return scale(a, 1.0 / math.sqrt(dot(a, a)))


def frame(axis):
    """Two unit vectors perpendicular to the unit axis and to each other."""
    helper = (1.0, 0.0, 0.0) if abs(axis[0]) < 0.9 else (0.0, 1.0, 0.0)
    e1 = unit(cross(helper, axis))
    return e1, cross(axis, e1)


def combine(origin, *terms):
    """origin + sum of coefficient * vector."""
    p = origin
    for coefficient, vector in terms:
        p = add(p, scale(vector, coefficient))
    return p


def fmt(v):
    return " ".join("%.*f" % (DECIMALS, x) for x in v)


class Writer:
    def __init__(self, rng):
        self.rng = rng

    def noisy(self, p, *normals):
        """p moved by independent noise along each of the given unit normals."""
        for n in normals:
            p = add(p, scale(n, self.rng.gauss(0.0, NOISE_MM)))
        return p

    def write(self, name, description, truth, reference, points, settings=""):
        distance = math.sqrt(dot(reference, reference))
        assert MIN_ORIGIN_DISTANCE <= distance <= MAX_ORIGIN_DISTANCE, (name, distance)
        path = os.path.join(os.path.dirname(os.path.abspath(__file__)), name + ".txt")
        with open(path, "w") as out:
            out.write("# metrofit example %s: %s\n" % (name, description))
            out.write("# %d points, x y z in mm\n" % len(points))
            for line in truth:
                out.write("# true %s\n" % line)
            out.write("# noise: Gaussian, sigma %.4f mm; made by generate.py, seed %d\n"
                      % (NOISE_MM, SEED))
            out.write("# fit with: metrofit fit %s %s.txt%s\n"
                      % (name, name, " " + settings if settings else ""))
            for p in points:
                out.write(fmt(p) + "\n")


def sphere(w):
    centre, radius = (212.438, -148.716, 305.204), 12.5
    axis = unit((0.2, -0.3, 1.0))
    e1, e2 = frame(axis)
    points = []
    rings = ((0, 1), (20, 6), (40, 10), (60, 12), (80, 14), (100, 14))
    for ring, (polar_deg, count) in enumerate(rings):
        for k in range(count):
            # Alternate rings are turned by half a step, as a probing pattern would be.
            theta, phi = math.radians(polar_deg), 2 * math.pi * (k + 0.5 * (ring % 2)) / count
            n = combine((0, 0, 0), (math.cos(theta), axis), (math.sin(theta) * math.cos(phi), e1),
                        (math.sin(theta) * math.sin(phi), e2))
            points.append(w.noisy(combine(centre, (radius, n)), n))
    w.write("sphere", "reference sphere, cap of 100 degrees about the probing direction",
            ["centre %s, radius %.5f" % (fmt(centre), radius),
             "cap direction %s" % fmt(axis)], centre, points)


def plane(w):
    centre, normal = (310.25, 124.8, 42.6), unit((0.02, -0.035, 1.0))
    e1, e2 = frame(normal)
    points = []
    for i in range(8):
        for j in range(6):
            u = -40 + 80 * i / 7 + w.rng.uniform(-1.5, 1.5)
            v = -30 + 60 * j / 5 + w.rng.uniform(-1.5, 1.5)
            points.append(w.noisy(combine(centre, (u, e1), (v, e2)), normal))
    w.write("plane", "machined face, 8 x 6 grid over 80 x 60 mm",
            ["point %s, normal %s" % (fmt(centre), fmt(normal)),
             "distance from the origin along the normal %.5f" % dot(centre, normal)],
            centre, points)


def circle(w):
    centre, axis, radius = (150.32, 220.75, -35.4), unit((0.1, 0.05, 1.0)), 20.0
    e1, e2 = frame(axis)
    count, first_deg, arc_deg = 32, 10.0, 240.0
    points = []
    for k in range(count):
        a = math.radians(first_deg + arc_deg * k / (count - 1))
        radial = combine((0, 0, 0), (math.cos(a), e1), (math.sin(a), e2))
        points.append(w.noisy(combine(centre, (radius, radial)), radial, axis))
    w.write("circle", "bore section, arc of 240 degrees",
            ["centre %s, axis %s, radius %.5f" % (fmt(centre), fmt(axis), radius)],
            centre, points)


def line(w):
    start, direction, length = (100.0, 300.0, 50.0), unit((1.0, 0.25, -0.05)), 120.0
    e1, e2 = frame(direction)
    count = 30
    points = []
    for k in range(count):
        t = length * k / (count - 1) + w.rng.uniform(-0.5, 0.5)
        points.append(w.noisy(combine(start, (t, direction)), e1, e2))
    w.write("line", "straight edge of 120 mm",
            ["start %s, direction %s" % (fmt(start), fmt(direction))], start, points)


def cylinder(w):
    point, axis, radius = (250.0, -180.0, 120.0), unit((0.15, -0.1, 1.0)), 15.0
    e1, e2 = frame(axis)
    points = []
    for level in range(5):
        h = 10.0 * level
        phase = w.rng.uniform(0, 2 * math.pi)
        for k in range(16):
            a = phase + 2 * math.pi * k / 16
            radial = combine((0, 0, 0), (math.cos(a), e1), (math.sin(a), e2))
            points.append(w.noisy(combine(point, (h, axis), (radius, radial)), radial))
    w.write("cylinder", "shaft, 5 sections of 16 points over 40 mm",
            ["axis point %s (lowest section), axis %s, radius %.5f"
             % (fmt(point), fmt(axis), radius)], point, points)


def cone(w):
    apex, axis, half_angle_deg = (180.0, 260.0, 95.0), unit((-0.1, 0.2, 1.0)), 30.0
    slope = 1.0 / math.tan(math.radians(half_angle_deg))  # axial rise per unit radius
    e1, e2 = frame(axis)
    norm = math.sqrt(slope * slope + 1.0)
    points = []
    for section, rho in enumerate((8.0, 11.0, 14.0, 17.0)):
        for k in range(12):
            a = 2 * math.pi * (k + 0.5 * (section % 2)) / 12
            radial = combine((0, 0, 0), (math.cos(a), e1), (math.sin(a), e2))
            normal = combine((0, 0, 0), (slope / norm, radial), (-1.0 / norm, axis))
            points.append(w.noisy(combine(apex, (slope * rho, axis), (rho, radial)), normal))
    w.write("cone", "countersink-like cone, 4 sections between radius 8 and 17 mm",
            ["apex %s, axis %s (opening towards it)" % (fmt(apex), fmt(axis)),
             "half angle %.1f degrees, slope (axial rise per unit radius) %.5f"
             % (half_angle_deg, slope)], apex, points)


def ellipse(w):
    # A planar ellipse in space: the fit's axis is the plane normal, major_direction runs along
    # semi-axis a.
    centre, normal = (330.0, -95.0, 160.0), unit((0.05, 0.3, 1.0))
    major = unit((0.0, -1.0, 0.3))  # in the plane: perpendicular to the normal
    minor = cross(normal, major)
    a, b, count = 30.0, 18.0, 36
    points = []
    for k in range(count):
        t = 2 * math.pi * k / count
        tangent = unit(combine((0, 0, 0), (-a * math.sin(t), major), (b * math.cos(t), minor)))
        in_plane_normal = cross(tangent, normal)
        p = combine(centre, (a * math.cos(t), major), (b * math.sin(t), minor))
        points.append(w.noisy(p, in_plane_normal, normal))
    w.write("ellipse", "elliptical contour in a tilted plane",
            ["centre %s, plane normal %s" % (fmt(centre), fmt(normal)),
             "semi-axes %.5f along %s (the major direction), %.5f along %s"
             % (a, fmt(major), b, fmt(minor))],
            centre, points)


def paraboloid(w):
    vertex, axis, focal = (140.0, 380.0, -60.0), unit((0.05, -0.08, 1.0)), 50.0
    e1, e2 = frame(axis)
    points = []
    for ring in range(1, 9):
        rho = 5.0 * ring
        count = 6 + 2 * ring
        for k in range(count):
            a = 2 * math.pi * (k + 0.5 * (ring % 2)) / count
            radial = combine((0, 0, 0), (math.cos(a), e1), (math.sin(a), e2))
            normal = unit(combine((0, 0, 0), (rho / (2 * focal), radial), (-1.0, axis)))
            p = combine(vertex, (rho * rho / (4 * focal), axis), (rho, radial))
            points.append(w.noisy(p, normal))
    w.write("paraboloid", "reflector-like paraboloid of revolution, rings 5 to 40 mm from the axis",
            ["vertex %s, axis %s (opening towards it)" % (fmt(vertex), fmt(axis)),
             "focal length %.5f, outermost ring 40.00000 from the axis" % focal], vertex, points)


def torus(w):
    centre, axis, major, minor = (320.0, 150.0, 80.0), unit((-0.08, 0.12, 1.0)), 40.0, 6.0
    e1, e2 = frame(axis)
    points = []
    for i in range(24):
        a = 2 * math.pi * i / 24
        radial = combine((0, 0, 0), (math.cos(a), e1), (math.sin(a), e2))
        for tube_deg in (-90, -60, -30, 0, 30, 60, 90):
            b = math.radians(tube_deg)
            normal = combine((0, 0, 0), (math.cos(b), radial), (math.sin(b), axis))
            p = combine(centre, (major, radial), (minor, normal))
            points.append(w.noisy(p, normal))
    w.write("torus", "outer half of the tube, 24 sections of 7 points",
            ["centre %s, axis %s" % (fmt(centre), fmt(axis)),
             "major radius %.5f, minor radius %.5f" % (major, minor)], centre, points)


def main():
    w = Writer(random.Random(SEED))
    for make in (sphere, plane, circle, line, cylinder, cone, ellipse, paraboloid, torus):
        make(w)


if __name__ == "__main__":
    main()
