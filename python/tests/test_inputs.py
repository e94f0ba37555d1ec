"""The points argument: any array-like, copied, never changed."""

import numpy as np

import metrofit
import synthetic
from checks import assert_same_result


def test_caller_array_is_unchanged():
    points = synthetic.cylinder().points
    before = points.copy()
    metrofit.fit("cylinder", points, probe_radius=1.5)
    assert np.array_equal(points, before)
    assert points.flags.writeable and points.flags.c_contiguous


def test_result_arrays_are_not_views_of_the_input():
    points = synthetic.sphere().points
    result = metrofit.fit("sphere", points)
    result.deviations[:] = 0.0
    result.center[:] = 0.0
    assert not np.shares_memory(result.residuals, points)
    again = metrofit.fit("sphere", points)
    assert again.deviations.any() and again.center.any()


def test_list_of_lists_and_tuples():
    points = synthetic.sphere().points
    reference = metrofit.fit("sphere", points)
    assert_same_result(metrofit.fit("sphere", points.tolist()), reference)
    assert_same_result(metrofit.fit("sphere", tuple(map(tuple, points.tolist()))), reference)


def test_float32_points():
    points = synthetic.sphere().points.astype(np.float32)
    before = points.copy()
    result = metrofit.fit("sphere", points)
    assert result.valid
    assert result.center.dtype == np.float64
    # The fit sees exactly the float32 coordinates, widened.
    assert_same_result(result, metrofit.fit("sphere", points.astype(np.float64)))
    assert points.dtype == np.float32 and np.array_equal(points, before)


def test_integer_points():
    # A 3 x 3 grid in the plane z = 7.
    points = [[x, y, 7] for x in range(3) for y in range(3)]
    result = metrofit.fit("plane", points)
    assert result.valid, result.message
    assert abs(abs(result.axis[2]) - 1.0) < 1e-12
    assert abs(result.center[2] - 7.0) < 1e-12


def test_non_contiguous_and_fortran_order():
    points = synthetic.cylinder().points
    view = points[::2]
    reference = metrofit.fit("cylinder", np.ascontiguousarray(view))
    assert_same_result(metrofit.fit("cylinder", view), reference)
    assert_same_result(metrofit.fit("cylinder", np.asfortranarray(view)), reference)


def test_read_only_array():
    points = synthetic.sphere().points
    points.setflags(write=False)
    result = metrofit.fit("sphere", points)
    assert result.valid


def test_probe_radius_moves_the_surface_not_the_centre():
    truth = synthetic.sphere()
    probe = 1.5
    # Probe-ball centres lie one probe radius outside the measured surface.
    centres = truth.points + probe * (truth.points - synthetic.OFFSET) / np.linalg.norm(
        truth.points - synthetic.OFFSET, axis=1)[:, None]
    surface = metrofit.fit("sphere", truth.points)
    compensated = metrofit.fit("sphere", centres, probe_radius=probe)
    assert abs(compensated.radius - surface.radius) < 1e-6
    assert np.max(np.abs(compensated.center - surface.center)) < 1e-6
