"""Bad input raises ValueError with a message saying what is wrong; bad geometry does not."""

import math

import numpy as np
import pytest

import metrofit
import synthetic


@pytest.fixture(scope="module")
def points():
    return synthetic.sphere().points


def test_unknown_shape(points):
    with pytest.raises(ValueError, match="blob"):
        metrofit.fit("blob", points)


def test_unknown_shape_for_parameter_names():
    with pytest.raises(ValueError, match="blob"):
        metrofit.parameter_names("blob")


def test_unknown_method(points):
    with pytest.raises(ValueError, match="fastest"):
        metrofit.fit("sphere", points, method="fastest")


@pytest.mark.parametrize("shape", [(10, 2), (10, 4), (3,), (2, 10, 3), (10, 3, 1)],
                         ids=str)
def test_points_not_n_by_3(shape):
    with pytest.raises(ValueError, match=r"\(N, 3\)"):
        metrofit.fit("sphere", np.ones(shape))


def test_ragged_points():
    with pytest.raises(ValueError):
        metrofit.fit("sphere", [[1.0, 2.0, 3.0], [1.0, 2.0]])


def test_text_points():
    with pytest.raises(ValueError):
        metrofit.fit("sphere", [["a", "b", "c"]] * 5)


@pytest.mark.parametrize("shape", metrofit.SHAPES)
def test_too_few_points(shape):
    truth = synthetic.sphere(count=1)
    with pytest.raises(ValueError) as error:
        metrofit.fit(shape, truth.points)
    assert str(error.value)


def test_three_points_are_too_few_for_a_sphere(points):
    with pytest.raises(ValueError):
        metrofit.fit("sphere", points[:3])


def test_no_points():
    with pytest.raises(ValueError):
        metrofit.fit("plane", [])


@pytest.mark.parametrize("bad", [math.nan, math.inf, -math.inf], ids=str)
def test_non_finite_coordinate(points, bad):
    broken = points.copy()
    broken[7, 1] = bad
    with pytest.raises(ValueError) as error:
        metrofit.fit("sphere", broken)
    assert str(error.value)


@pytest.mark.parametrize("where", ["fixed", "start"])
def test_unknown_parameter_name(points, where):
    with pytest.raises(ValueError, match="diameter"):
        metrofit.fit("sphere", points, **{where: {"diameter": 25.0}})


@pytest.mark.parametrize("where", ["fixed", "start"])
def test_parameter_of_another_shape(points, where):
    # A sphere has no axis.
    with pytest.raises(ValueError, match="axis"):
        metrofit.fit("sphere", points, **{where: {"axis": (0.0, 0.0, 1.0)}})


@pytest.mark.parametrize("name, value", [("center", (1.0, 2.0)), ("center", (1.0, 2.0, 3.0, 4.0)),
                                         ("radius", (12.0, 13.0)), ("center", 5.0),
                                         ("radius", ())])
@pytest.mark.parametrize("where", ["fixed", "start"])
def test_wrong_value_length(points, where, name, value):
    with pytest.raises(ValueError) as error:
        metrofit.fit("sphere", points, **{where: {name: value}})
    assert str(error.value)


def test_nested_value(points):
    with pytest.raises(ValueError, match="center"):
        metrofit.fit("sphere", points, fixed={"center": [[1.0, 2.0, 3.0]]})


def test_text_value(points):
    with pytest.raises(ValueError, match="radius"):
        metrofit.fit("sphere", points, fixed={"radius": "12.5"})


def test_non_text_parameter_name(points):
    with pytest.raises(TypeError):
        metrofit.fit("sphere", points, fixed={3: 12.5})


def test_fixed_not_a_dict(points):
    with pytest.raises(TypeError):
        metrofit.fit("sphere", points, fixed=[("radius", 12.5)])


def test_non_finite_probe_radius(points):
    with pytest.raises(ValueError):
        metrofit.fit("sphere", points, probe_radius=math.nan)


def test_collinear_points_are_a_degenerate_sphere_not_an_error():
    t = np.linspace(-20.0, 20.0, 30)
    points = synthetic.OFFSET + t[:, None] * synthetic.AXIS
    result = metrofit.fit("sphere", points)
    assert result.valid is False
    assert result.status == "degenerate"
    assert result.message
    assert "degenerate" in repr(result)


def test_same_parameter_fixed_and_started(points):
    with pytest.raises(ValueError, match="radius"):
        metrofit.fit("sphere", points, fixed={"radius": 12.5}, start={"radius": 12.4})


@pytest.mark.parametrize("name, value", [("radius", math.nan), ("radius", -12.5),
                                         ("center", (0.0, math.inf, 0.0))])
def test_unusable_value(points, name, value):
    with pytest.raises(ValueError, match=name):
        metrofit.fit("sphere", points, fixed={name: value})


def test_zero_axis():
    truth = synthetic.cylinder()
    with pytest.raises(ValueError, match="axis"):
        metrofit.fit("cylinder", truth.points, start={"axis": (0.0, 0.0, 0.0)})


def test_probe_radius_of_a_line():
    truth = synthetic.line()
    with pytest.raises(ValueError):
        metrofit.fit("line", truth.points, probe_radius=2.0)


def test_compatible_planar_ellipse_is_unsupported():
    # No KFit function fits a planar ellipse; that is a request error, not a failed fit.
    truth = synthetic.ellipse()
    with pytest.raises(ValueError, match="ellipse"):
        metrofit.fit("ellipse", truth.points, method="compatible")
