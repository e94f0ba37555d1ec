"""Parameters held fixed, and starting values, given as dicts by name."""

import numpy as np
import pytest

import metrofit
import synthetic
from checks import assert_close, assert_same_direction

# A free parameter after the fit still lies within this of the truth (mm, rad).
TRUTH_TOLERANCE = 0.002
DIRECTION_TOLERANCE = 1e-4
# Two fits that reach the same minimum from different starts agree to well below the noise.
SAME_MINIMUM = 1e-7


def test_fixed_radius_is_held_exactly():
    truth = synthetic.sphere()
    nominal = 12.503  # 3 um off the truth: the centre must still come out right
    result = metrofit.fit("sphere", truth.points, fixed={"radius": nominal})
    assert result.valid, result.message
    assert result.radius == nominal
    assert result.parameters["radius"] == nominal
    assert result.uncertainties["radius"] == 0.0
    assert_close(result.center, truth.fields["center"], TRUTH_TOLERANCE, "center")
    assert min(result.uncertainties["center"]) > 0.0
    # Held off the truth, the points lie on average 3 um inside the sphere.
    assert_close(np.mean(result.deviations), -0.003, 0.0005, "mean deviation")


@pytest.mark.parametrize("value_type", (tuple, list, np.array), ids=("tuple", "list", "ndarray"))
def test_fixed_center_in_any_sequence_type(value_type):
    truth = synthetic.sphere()
    center = truth.fields["center"]
    result = metrofit.fit("sphere", truth.points, fixed={"center": value_type(list(center))})
    assert result.valid, result.message
    assert np.array_equal(result.center, center)
    assert result.uncertainties["center"] == (0.0, 0.0, 0.0)
    assert_close(result.radius, truth.fields["radius"], TRUTH_TOLERANCE, "radius")
    assert result.uncertainties["radius"] > 0.0


def test_fixed_axis_of_a_cylinder():
    truth = synthetic.cylinder()
    axis = truth.fields["axis"]
    result = metrofit.fit("cylinder", truth.points, fixed={"axis": axis})
    assert result.valid, result.message
    assert_same_direction(result.axis, axis, 1e-12, "axis", signed=False)
    assert result.uncertainties["axis"] == (0.0, 0.0, 0.0)
    assert_close(result.radius, truth.fields["radius"], TRUTH_TOLERANCE, "radius")


def test_fixed_numpy_scalar():
    truth = synthetic.sphere()
    result = metrofit.fit("sphere", truth.points, fixed={"radius": np.float32(12.5)})
    assert result.radius == 12.5


def test_start_reaches_the_same_minimum():
    truth = synthetic.cylinder()
    free = metrofit.fit("cylinder", truth.points)
    tilted = truth.fields["axis"] + np.array([0.02, -0.01, 0.0])
    started = metrofit.fit(
        "cylinder", truth.points,
        start={"center": truth.fields["center"] + 0.05, "axis": tilted / np.linalg.norm(tilted),
               "radius": 15.2})
    assert started.valid, started.message
    assert_close(started.radius, free.radius, SAME_MINIMUM, "radius")
    assert_same_direction(started.axis, free.axis, SAME_MINIMUM, "axis")
    assert_close(started.deviations, free.deviations, SAME_MINIMUM, "deviations")


def test_start_for_a_torus():
    truth = synthetic.torus()
    result = metrofit.fit(
        "torus", truth.points,
        start={"center": truth.fields["center"], "axis": truth.fields["axis"],
               "major_radius": 40.1, "minor_radius": 7.9})
    assert result.valid, result.message
    assert_close(result.major_radius, 40.0, TRUTH_TOLERANCE, "major_radius")
    assert_close(result.minor_radius, 8.0, TRUTH_TOLERANCE, "minor_radius")


def test_fixed_and_start_together():
    truth = synthetic.circle()
    result = metrofit.fit("circle", truth.points, fixed={"radius": 20.0},
                          start={"axis": truth.fields["axis"]})
    assert result.valid, result.message
    assert result.radius == 20.0
    assert_same_direction(result.axis, truth.fields["axis"], DIRECTION_TOLERANCE, "axis")
    assert_close(result.center, truth.fields["center"], TRUTH_TOLERANCE, "center")


def test_empty_dicts_change_nothing():
    truth = synthetic.sphere()
    plain = metrofit.fit("sphere", truth.points)
    empty = metrofit.fit("sphere", truth.points, fixed={}, start={})
    assert plain.parameters == empty.parameters
