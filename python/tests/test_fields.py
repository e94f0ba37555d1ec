"""Every field of FitResult, its type, and its value against synthetic data of known truth."""

import math

import numpy as np
import pytest

import metrofit
import synthetic
from checks import assert_close, assert_relative, assert_same_direction

# Geometry fields each shape fills; the others are None.
SHAPE_FIELDS = {
    "line": {"axis"},
    "plane": {"axis"},
    "circle": {"axis", "radius"},
    "sphere": {"radius"},
    "cylinder": {"axis", "radius"},
    "cone": {"axis", "half_angle"},
    "ellipse": {"axis", "major_direction", "semi_axes"},
    "paraboloid": {"axis", "focal_length"},
    "spheroid": {"axis", "semi_axes"},
    "torus": {"axis", "major_radius", "minor_radius"},
}
OPTIONAL_FIELDS = ("axis", "radius", "half_angle", "major_radius", "minor_radius", "semi_axes",
                   "focal_length", "major_direction")
FLOAT_FIELDS = ("radius", "half_angle", "major_radius", "minor_radius", "focal_length")

# How far a fit of 1 um noise may land from the truth: millimetres for positions and sizes,
# radians for directions and angles. An apex or vertex lies outside the measured patch, so it
# is extrapolated and gets more room.
POSITION_TOLERANCE = {"cone": 0.01, "paraboloid": 0.005}
DEFAULT_POSITION_TOLERANCE = 0.002
SIZE_TOLERANCE = 0.002
DIRECTION_TOLERANCE = 1e-4
ANGLE_TOLERANCE = 1e-4
# How many standard uncertainties a value may lie from the truth.
COVERAGE = 5.0
# Largest standard uncertainty expected from the synthetic data (mm or rad).
UNCERTAINTY_LIMIT = {"cone": 5 * synthetic.NOISE, "paraboloid": 5 * synthetic.NOISE}
# Axes whose sense the feature fixes (the side a cone or paraboloid opens to).
SIGNED_AXIS = {"cone", "paraboloid"}
# A unit vector may miss unit length by a few rounding errors.
UNIT_LENGTH_TOLERANCE = 1e-12
# Residual vectors and deviations are computed apart; they agree to rounding.
RESIDUAL_TOLERANCE = 1e-9

PARAMETER_LENGTH = {"center": 3, "axis": 3, "major_direction": 3, "semi_axes": 2}


@pytest.fixture(scope="module", params=synthetic.ALL, ids=lambda g: g.__name__)
def case(request):
    truth = request.param()
    return truth, metrofit.fit(truth.shape, truth.points)


def test_identity_and_status(case):
    truth, result = case
    assert isinstance(result, metrofit.FitResult)
    assert result.shape == truth.shape
    assert result.method == "precise"
    assert result.valid is True
    assert result.status == "ok"
    assert isinstance(result.message, str)
    assert type(result.iterations) is int and result.iterations >= 1


def test_geometry_fields_present_exactly_for_the_shape(case):
    truth, result = case
    for name in OPTIONAL_FIELDS:
        value = getattr(result, name)
        if name in SHAPE_FIELDS[truth.shape]:
            assert value is not None, name
        else:
            assert value is None, name
    for name in FLOAT_FIELDS:
        value = getattr(result, name)
        assert value is None or type(value) is float, name


def test_vector_fields_are_float64_arrays(case):
    truth, result = case
    assert isinstance(result.center, np.ndarray)
    assert result.center.shape == (3,) and result.center.dtype == np.float64
    for name in ("axis", "major_direction"):
        value = getattr(result, name)
        if value is not None:
            assert value.shape == (3,) and value.dtype == np.float64, name
            assert abs(np.linalg.norm(value) - 1.0) <= UNIT_LENGTH_TOLERANCE, name
    if result.semi_axes is not None:
        assert result.semi_axes.shape == (2,) and result.semi_axes.dtype == np.float64


def test_geometry_matches_truth(case):
    truth, result = case
    position_tolerance = POSITION_TOLERANCE.get(truth.shape, DEFAULT_POSITION_TOLERANCE)
    for name, expected in truth.fields.items():
        actual = getattr(result, name)
        if name == "center":
            assert_close(actual, expected, position_tolerance, "center")
        elif name == "axis":
            assert_same_direction(actual, expected, DIRECTION_TOLERANCE, "axis",
                                  signed=truth.shape in SIGNED_AXIS)
        elif name == "major_direction":
            assert_same_direction(actual, expected, DIRECTION_TOLERANCE, name)
        elif name == "half_angle":
            assert_close(actual, expected, ANGLE_TOLERANCE, name)
        else:
            assert_close(actual, expected, SIZE_TOLERANCE, name)


def test_truth_within_a_few_standard_uncertainties(case):
    # The uncertainties are honest: every reported value lies within a few of its standard
    # uncertainties of the truth (the seeds are fixed, so this is not a matter of luck).
    truth, result = case
    for name, expected in truth.fields.items():
        actual = np.atleast_1d(getattr(result, name))
        expected = np.atleast_1d(expected)
        if name in ("axis", "major_direction") and np.dot(actual, expected) < 0.0:
            expected = -expected
        uncertainty = np.atleast_1d(result.uncertainties[name])
        error = np.abs(actual - expected)
        assert np.all(error <= COVERAGE * uncertainty), "%s: error %r, uncertainty %r" % (
            name, error, uncertainty)


def test_parameters_name_and_mirror_the_fields(case):
    truth, result = case
    names = metrofit.parameter_names(truth.shape)
    assert tuple(result.parameters) == names
    assert tuple(result.uncertainties) == names
    for name in names:
        value = result.parameters[name]
        length = PARAMETER_LENGTH.get(name, 1)
        if length == 1:
            assert type(value) is float, name
            assert value == getattr(result, name), name
        else:
            assert type(value) is tuple and len(value) == length, name
            assert all(type(v) is float for v in value), name
            assert value == tuple(getattr(result, name)), name


def test_uncertainties_are_small_standard_uncertainties(case):
    truth, result = case
    for name, value in result.uncertainties.items():
        values = np.atleast_1d(value)
        assert values.shape == np.atleast_1d(result.parameters[name]).shape, name
        assert np.all(np.isfinite(values)) and np.all(values >= 0.0), name
        # Every parameter is free and determined by the data, so it is uncertain, but with
        # 1 um noise over so many points by less than the noise itself (an extrapolated apex
        # or vertex by somewhat more).
        assert np.max(values) > 0.0, name
        assert np.all(values < UNCERTAINTY_LIMIT.get(truth.shape, synthetic.NOISE)), name


def test_deviations_and_residuals(case):
    truth, result = case
    count = len(truth.points)
    assert isinstance(result.deviations, np.ndarray) and result.deviations.shape == (count,)
    assert result.deviations.dtype == np.float64
    assert isinstance(result.residuals, np.ndarray) and result.residuals.shape == (count, 3)
    assert result.residuals.dtype == np.float64
    lengths = np.linalg.norm(result.residuals, axis=1)
    assert_close(lengths, np.abs(result.deviations), RESIDUAL_TOLERANCE, "|residual|")
    if truth.shape == "line":
        assert np.all(result.deviations >= 0.0)


def test_statistics(case):
    truth, result = case
    d = result.deviations
    for name in ("rms", "sigma", "min_deviation", "max_deviation", "form_error"):
        assert type(getattr(result, name)) is float, name
    assert_relative(result.rms, math.sqrt(np.mean(d * d)), 1e-12, "rms")
    assert result.min_deviation == d.min()
    assert result.max_deviation == d.max()
    if truth.shape == "line":
        assert_relative(result.form_error, 2.0 * np.abs(d).max(), 1e-12, "form_error")
    else:
        assert_relative(result.form_error, d.max() - d.min(), 1e-12, "form_error")
    # sigma divides the sum of squares by the redundancy m - p, rms by n. A line's distance
    # has two noisy components, so there m counts two observations per point.
    observations = 2 if truth.shape == "line" else 1
    per_observation = result.rms / math.sqrt(observations)
    assert per_observation < result.sigma < 1.2 * per_observation
    assert 0.5 * synthetic.NOISE < result.sigma < 1.5 * synthetic.NOISE


def test_sphere_deviation_is_signed_distance_from_the_surface():
    truth = synthetic.sphere()
    result = metrofit.fit("sphere", truth.points)
    distance = np.linalg.norm(truth.points - result.center, axis=1) - result.radius
    assert_close(result.deviations, distance, 1e-9, "deviation")
    # The residual leads from the surface to the point.
    feet = truth.points - result.residuals
    assert_close(np.linalg.norm(feet - result.center, axis=1), result.radius, 1e-9, "feet")


def test_plane_deviation_is_on_the_normal_side():
    truth = synthetic.plane()
    result = metrofit.fit("plane", truth.points)
    signed = (truth.points - result.center) @ result.axis
    assert_close(result.deviations, signed, 1e-9, "deviation")


def test_repr_is_readable():
    truth = synthetic.sphere()
    result = metrofit.fit("sphere", truth.points)
    text = repr(result)
    assert text.startswith("FitResult(")
    for part in ("shape='sphere'", "status='ok'", "valid=True", "radius=%.9g" % result.radius,
                 "center=(%.9g, " % result.center[0], "points=%d" % len(truth.points)):
        assert part in text, text
