"""Synthetic measurements with known truth at CMM scale.

Every feature sits some 500 mm from the origin with a tilted axis; every point carries 1 um
(0.001 mm) of isotropic Gaussian noise from a fixed seed, so a run is reproducible.
"""

import numpy as np

NOISE = 0.001  # mm: a good CMM's probing scatter
OFFSET = np.array([512.25, -487.5, 503.125])  # mm: far from the origin, as on a machine table
AXIS = np.array([0.30, -0.45, 0.84]) / np.linalg.norm([0.30, -0.45, 0.84])


def frame(axis):
    """Two unit vectors completing axis to a right-handed orthonormal frame."""
    helper = np.array([1.0, 0.0, 0.0]) if abs(axis[0]) < 0.9 else np.array([0.0, 1.0, 0.0])
    u = np.cross(axis, helper)
    u /= np.linalg.norm(u)
    return u, np.cross(axis, u)


class Truth:
    """Points and the feature they were made from: geometry fields as in metrofit.FitResult."""

    def __init__(self, shape, points, **fields):
        self.shape = shape
        self.points = points
        self.fields = fields


def _noisy(rng, points):
    return points + rng.normal(scale=NOISE, size=points.shape)


def _ring(u, v, angle):
    return np.cos(angle)[:, None] * u + np.sin(angle)[:, None] * v


def sphere(seed=1, count=200, radius=12.5):
    rng = np.random.default_rng(seed)
    directions = rng.normal(size=(count, 3))
    directions /= np.linalg.norm(directions, axis=1)[:, None]
    points = _noisy(rng, OFFSET + radius * directions)
    return Truth("sphere", points, center=OFFSET, radius=radius)


def plane(seed=2, count=150):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    a, b = rng.uniform(-50, 50, size=(2, count))
    points = _noisy(rng, OFFSET + a[:, None] * u + b[:, None] * v)
    # The plane's reported point is the foot of the points' centroid.
    mean = points.mean(axis=0)
    center = mean - np.dot(mean - OFFSET, AXIS) * AXIS
    return Truth("plane", points, center=center, axis=AXIS)


def line(seed=3, count=80):
    rng = np.random.default_rng(seed)
    t = rng.uniform(-60, 60, size=count)
    points = _noisy(rng, OFFSET + t[:, None] * AXIS)
    mean = points.mean(axis=0)
    center = OFFSET + np.dot(mean - OFFSET, AXIS) * AXIS
    return Truth("line", points, center=center, axis=AXIS)


def circle(seed=4, count=90, radius=20.0):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    points = _noisy(rng, OFFSET + radius * _ring(u, v, angle))
    return Truth("circle", points, center=OFFSET, axis=AXIS, radius=radius)


def cylinder(seed=5, count=240, radius=15.0):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    t = rng.uniform(-30, 30, size=count)
    points = _noisy(rng, OFFSET + t[:, None] * AXIS + radius * _ring(u, v, angle))
    mean = points.mean(axis=0)
    center = OFFSET + np.dot(mean - OFFSET, AXIS) * AXIS
    return Truth("cylinder", points, center=center, axis=AXIS, radius=radius)


def cone(seed=6, count=240, half_angle=0.35):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    s = rng.uniform(10, 40, size=count)  # distance from the apex along the opening axis
    ring = (s * np.tan(half_angle))[:, None] * _ring(u, v, angle)
    points = _noisy(rng, OFFSET + s[:, None] * AXIS + ring)
    return Truth("cone", points, center=OFFSET, axis=AXIS, half_angle=half_angle)


def ellipse(seed=7, count=120, semi_axes=(30.0, 18.0)):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    offsets = semi_axes[0] * np.cos(angle)[:, None] * u + semi_axes[1] * np.sin(angle)[:, None] * v
    points = _noisy(rng, OFFSET + offsets)
    return Truth("ellipse", points, center=OFFSET, axis=AXIS, major_direction=u,
                 semi_axes=np.array(semi_axes))


def paraboloid(seed=8, count=240, focal_length=10.0):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    r = rng.uniform(2, 25, size=count)
    height = r * r / (4 * focal_length)
    points = _noisy(rng, OFFSET + height[:, None] * AXIS + r[:, None] * _ring(u, v, angle))
    return Truth("paraboloid", points, center=OFFSET, axis=AXIS, focal_length=focal_length)


def spheroid(seed=9, count=300, semi_axes=(20.0, 12.0)):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    polar = np.arccos(rng.uniform(-1, 1, size=count))
    offsets = (semi_axes[0] * np.cos(polar))[:, None] * AXIS + (
        semi_axes[1] * np.sin(polar))[:, None] * _ring(u, v, angle)
    points = _noisy(rng, OFFSET + offsets)
    return Truth("spheroid", points, center=OFFSET, axis=AXIS, semi_axes=np.array(semi_axes))


def torus(seed=10, count=400, major_radius=40.0, minor_radius=8.0):
    rng = np.random.default_rng(seed)
    u, v = frame(AXIS)
    angle = rng.uniform(0, 2 * np.pi, size=count)
    tube = rng.uniform(0, 2 * np.pi, size=count)
    spoke = _ring(u, v, angle)
    offsets = (major_radius + minor_radius * np.cos(tube))[:, None] * spoke + (
        minor_radius * np.sin(tube))[:, None] * AXIS
    points = _noisy(rng, OFFSET + offsets)
    return Truth("torus", points, center=OFFSET, axis=AXIS, major_radius=major_radius,
                 minor_radius=minor_radius)


ALL = (line, plane, circle, sphere, cylinder, cone, ellipse, paraboloid, spheroid, torus)
