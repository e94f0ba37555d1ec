"""The tests import the built package: build/<preset>/python must be on PYTHONPATH."""

try:
    import metrofit  # noqa: F401
except ImportError as error:
    raise ImportError(
        "metrofit with its extension is not importable: build it (cmake --workflow --preset "
        "test) and run with PYTHONPATH=build/test/python, or through ctest -L python") from error
