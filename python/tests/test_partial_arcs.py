"""Features probed over part of their circumference, as a CMM often must."""

import numpy as np
import pytest

import metrofit
import synthetic

# How many standard uncertainties a value may lie from the truth.
COVERAGE = 5.0
RADIUS = 20.0


def _arc_points(seed, arc, count, length=0.0):
    """Points on a circle (length 0) or cylinder of RADIUS about synthetic.AXIS, over arc rad."""
    rng = np.random.default_rng(seed)
    u, v = synthetic.frame(synthetic.AXIS)
    angle = rng.uniform(0.0, arc, size=count)
    along = rng.uniform(-length / 2, length / 2, size=count)
    ring = np.cos(angle)[:, None] * u + np.sin(angle)[:, None] * v
    points = synthetic.OFFSET + along[:, None] * synthetic.AXIS + RADIUS * ring
    return points + rng.normal(scale=synthetic.NOISE, size=points.shape)


@pytest.mark.parametrize("degrees", [90, 120])
def test_circle_arc(degrees):
    points = _arc_points(31 + degrees, np.radians(degrees), 60)
    result = metrofit.fit("circle", points)
    assert result.status == "ok", result.message
    radius_error = abs(result.radius - RADIUS)
    assert radius_error <= COVERAGE * result.uncertainties["radius"]
    center_error = np.abs(result.center - synthetic.OFFSET)
    assert np.all(center_error <= COVERAGE * np.array(result.uncertainties["center"]))
    # A short arc pins the radius far less than a full circle of as many points would.
    full = metrofit.fit("circle", _arc_points(31 + degrees, 2 * np.pi, 60))
    assert result.uncertainties["radius"] > 2.0 * full.uncertainties["radius"]


def test_cylinder_quarter_sector():
    points = _arc_points(47, np.pi / 2, 120, length=50.0)
    result = metrofit.fit("cylinder", points)
    assert result.status == "ok", result.message
    assert abs(result.radius - RADIUS) <= COVERAGE * result.uncertainties["radius"]
    axis = result.axis if result.axis @ synthetic.AXIS > 0 else -result.axis
    axis_error = np.abs(axis - synthetic.AXIS)
    assert np.all(axis_error <= COVERAGE * np.array(result.uncertainties["axis"]))
