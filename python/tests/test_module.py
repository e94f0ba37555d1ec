"""What the package exports besides fit()."""

import re

import metrofit

EXPECTED_SHAPES = ("line", "plane", "circle", "sphere", "cylinder", "cone", "ellipse",
                   "paraboloid", "spheroid", "torus")

EXPECTED_PARAMETERS = {
    "line": ("center", "axis"),
    "plane": ("center", "axis"),
    "circle": ("center", "axis", "radius"),
    "sphere": ("center", "radius"),
    "cylinder": ("center", "axis", "radius"),
    "cone": ("center", "axis", "half_angle"),
    "ellipse": ("center", "axis", "major_direction", "semi_axes"),
    "paraboloid": ("center", "axis", "focal_length"),
    "spheroid": ("center", "axis", "semi_axes"),
    "torus": ("center", "axis", "major_radius", "minor_radius"),
}


def test_version():
    assert re.fullmatch(r"\d+\.\d+\.\d+", metrofit.__version__)


def test_shapes():
    assert metrofit.SHAPES == EXPECTED_SHAPES


def test_parameter_names():
    for shape in EXPECTED_SHAPES:
        assert metrofit.parameter_names(shape) == EXPECTED_PARAMETERS[shape]


def test_public_names():
    for name in ("fit", "FitResult", "SHAPES", "parameter_names", "__version__"):
        assert name in metrofit.__all__ and hasattr(metrofit, name)


def test_fit_arguments_after_points_are_keyword_only():
    points = [[1.0, 0.0, 0.0], [0.0, 1.0, 0.0], [-1.0, 0.0, 0.0], [0.0, 0.0, 1.0],
              [0.0, -1.0, 0.0]]
    try:
        metrofit.fit("sphere", points, "precise")
    except TypeError:
        pass
    else:
        raise AssertionError("method accepted as a positional argument")
