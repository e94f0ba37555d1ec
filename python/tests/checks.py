"""Small comparison helpers shared by the tests."""

import numpy as np


def assert_close(actual, expected, tolerance, what=""):
    """Every element of actual within tolerance of expected (absolute, in the data's units)."""
    actual = np.asarray(actual, dtype=float)
    expected = np.asarray(expected, dtype=float)
    error = np.max(np.abs(actual - expected)) if actual.size else 0.0
    assert error <= tolerance, "%s: %r differs from %r by %.3g (tolerance %.3g)" % (
        what, actual, expected, error, tolerance)


def assert_relative(actual, expected, relative, what=""):
    """actual within relative * |expected| of expected."""
    assert_close(actual, expected, relative * np.max(np.abs(expected)), what)


def assert_same_direction(actual, expected, tolerance, what="", signed=False):
    """Unit vectors at most tolerance radians apart (either sense unless signed)."""
    cosine = float(np.dot(actual, expected))
    if not signed:
        cosine = abs(cosine)
    angle = np.arccos(min(1.0, cosine))
    assert angle <= tolerance, "%s: %r is %.3g rad from %r (tolerance %.3g)" % (
        what, actual, angle, expected, tolerance)


def assert_same_result(a, b):
    """Two FitResults with identical numbers, bit for bit."""
    assert (a.shape, a.method, a.valid, a.status, a.message) == (
        b.shape, b.method, b.valid, b.status, b.message)
    assert a.parameters == b.parameters
    assert a.uncertainties == b.uncertainties
    assert np.array_equal(a.center, b.center)
    assert np.array_equal(a.deviations, b.deviations)
    assert np.array_equal(a.residuals, b.residuals)
    assert (a.rms, a.sigma, a.form_error, a.iterations) == (b.rms, b.sigma, b.form_error,
                                                            b.iterations)
