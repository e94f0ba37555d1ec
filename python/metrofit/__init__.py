"""Geometric fitting for coordinate metrology.

    >>> import numpy as np, metrofit
    >>> result = metrofit.fit("sphere", points)          # points: (N, 3) array-like
    >>> result.center, result.radius, result.form_error

Coordinates are in the caller's units (typically millimetres) and come back in the same units;
angles are in radians. Bad input raises ValueError; a fit that finds no feature (for example
collinear points for a sphere) returns a result with ``valid`` False and a status saying why.
The GIL is released while a fit runs, so fits on several threads run in parallel.
"""

from . import _core

__all__ = ["FitResult", "SHAPES", "fit", "parameter_names", "__version__"]

__version__ = _core.__version__

#: The names ``fit`` accepts for its shape argument.
SHAPES = _core.SHAPES

# Geometry fields that only some shapes have; None on the others.
_SHAPE_FIELDS = (
    "axis",
    "radius",
    "half_angle",
    "major_radius",
    "minor_radius",
    "semi_axes",
    "focal_length",
    "major_direction",
)

_FIELDS = (
    ("shape", "method", "valid", "status", "message", "center")
    + _SHAPE_FIELDS
    + (
        "parameters",
        "uncertainties",
        "deviations",
        "residuals",
        "rms",
        "sigma",
        "min_deviation",
        "max_deviation",
        "form_error",
        "iterations",
    )
)


class FitResult:
    """The fitted feature and the quality of the fit.

    shape, method, status, message: str; valid: bool (True for a converged fit).
    center: ndarray (3,) -- the point on a line or axis nearest the centroid of the points,
        the plane's point nearest the centroid, the centre of a sphere, circle, ellipse,
        spheroid or torus, the apex of a cone, the vertex of a paraboloid.
    axis: unit ndarray (3,) -- line direction, plane/circle/ellipse normal, axis of the
        surfaces of revolution; None for the sphere.
    radius (circle, sphere, cylinder), half_angle (cone, radians), major_radius and
        minor_radius (torus), focal_length (paraboloid): float, None on other shapes.
    semi_axes: ndarray (2,) -- ellipse (major, minor), spheroid (along the axis, across it).
    major_direction: unit ndarray (3,) -- the ellipse's major axis.
    parameters, uncertainties: dict from parameter name (see parameter_names) to a float or a
        tuple of floats; the uncertainties are standard uncertainties (0 for a fixed value).
    deviations: ndarray (N,) -- signed orthogonal distance of every point, in the order given.
    residuals: ndarray (N, 3) -- the vector from the feature to every point.
    rms, sigma, min_deviation, max_deviation, form_error: float; iterations: int.
    """

    __slots__ = _FIELDS

    def __init__(self, **fields):
        missing = set(_FIELDS) - fields.keys()
        unknown = fields.keys() - set(_FIELDS)
        if missing or unknown:
            raise TypeError(
                "FitResult fields: missing %s, unknown %s" % (sorted(missing), sorted(unknown))
            )
        for name, value in fields.items():
            setattr(self, name, value)

    def __repr__(self):
        parts = [
            "shape=%r" % self.shape,
            "method=%r" % self.method,
            "valid=%r" % self.valid,
            "status=%r" % self.status,
        ]
        if self.message:
            parts.append("message=%r" % self.message)
        parts.append("center=%s" % _vector(self.center))
        for name in _SHAPE_FIELDS:
            value = getattr(self, name)
            if value is None:
                continue
            text = _vector(value) if hasattr(value, "shape") else _number(value)
            parts.append("%s=%s" % (name, text))
        parts += [
            "points=%d" % len(self.deviations),
            "rms=%s" % _number(self.rms),
            "form_error=%s" % _number(self.form_error),
            "iterations=%d" % self.iterations,
        ]
        return "FitResult(%s)" % ", ".join(parts)


def _number(value):
    return "%.9g" % value


def _vector(values):
    return "(%s)" % ", ".join(_number(v) for v in values)


def fit(shape, points, *, method="precise", fixed=None, start=None, probe_radius=0.0):
    """Fits a shape to measured points and returns a FitResult.

    shape: one of SHAPES ("line", "plane", "circle", "sphere", "cylinder", "cone", "ellipse",
        "paraboloid", "spheroid", "torus").
    points: anything numpy turns into an (N, 3) array of coordinates; it is copied, never
        changed.
    method: "precise" (the orthogonal-distance least-squares solution with uncertainties) or
        "compatible" (what the library's KFit* function of the shape returns).
    fixed: dict from parameter name to a value held during the fit.
    start: dict from parameter name to a starting value for the iteration.
        Values are a float or a sequence of floats (three for center, axis and
        major_direction, two for semi_axes); the names are those of parameter_names(shape).
    probe_radius: radius of the probe ball whose centres the points are (0: surface points).

    Raises ValueError for an unknown shape or method, points that are not (N, 3), fewer points
    than the shape needs, a non-finite coordinate, an unknown parameter name or a value of the
    wrong length.
    """
    return FitResult(
        **_core.fit(
            shape, points, method=method, fixed=fixed, start=start, probe_radius=probe_radius
        )
    )


def parameter_names(shape):
    """Names of the shape's parameters, in the order of FitResult.parameters."""
    return _core.parameter_names(shape)
