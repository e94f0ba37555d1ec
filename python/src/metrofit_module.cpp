// metrofit._core: the modern fitting interface for Python.
//
// The package (python/metrofit/__init__.py) wraps fit() into a FitResult object; everything
// that touches the C++ library is here. Input errors become ValueError with the library's own
// message; a fit that ran but found no feature (degenerate, not converged) is a result.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "metrofit/fit.h"

namespace py = pybind11;

namespace {

// Every shape, in the order of metrofit::Shape; the names come from the library.
constexpr metrofit::Shape kAllShapes[] = {
    metrofit::Shape::kLine,    metrofit::Shape::kPlane,      metrofit::Shape::kCircle,
    metrofit::Shape::kSphere,  metrofit::Shape::kCylinder,   metrofit::Shape::kCone,
    metrofit::Shape::kEllipse, metrofit::Shape::kParaboloid, metrofit::Shape::kSpheroid,
    metrofit::Shape::kTorus,
};

// Coordinates per point.
constexpr py::ssize_t kDimension = 3;

// Residual vectors are copied as one block of doubles.
static_assert(sizeof(std::array<double, 3>) == 3 * sizeof(double), "padded residual vector");

std::string ShapeList() {
  std::string list;
  for (metrofit::Shape shape : kAllShapes) {
    list += list.empty() ? "" : ", ";
    list += metrofit::ToString(shape);
  }
  return list;
}

metrofit::Shape ShapeArgument(const std::string& name) {
  std::optional<metrofit::Shape> shape = metrofit::ShapeFromName(name);
  if (!shape) {
    throw py::value_error("unknown shape '" + name + "'; expected one of " + ShapeList());
  }
  return *shape;
}

metrofit::Method MethodArgument(const std::string& name) {
  std::optional<metrofit::Method> method = metrofit::MethodFromName(name);
  if (!method) {
    throw py::value_error("unknown method '" + name + "'; expected 'precise' or 'compatible'");
  }
  return *method;
}

// numpy.array(value, dtype=float64, order="C", copy=True): a private C-contiguous copy, so the
// fit can run without the GIL while the caller's array stays untouched.
py::array_t<double> Float64Copy(py::handle value) {
  py::object numpy_array = py::module_::import("numpy").attr("array");
  py::object copy = numpy_array(value, py::arg("dtype") = "float64", py::arg("order") = "C",
                                py::arg("copy") = true);
  return copy.cast<py::array_t<double>>();
}

std::string ShapeText(const py::array& array) {
  std::string text = "(";
  for (py::ssize_t i = 0; i < array.ndim(); ++i) {
    text += (i ? ", " : "") + std::to_string(array.shape(i));
  }
  return text + (array.ndim() == 1 ? ",)" : ")");
}

// The points as an (N, 3) C-contiguous float64 copy; an empty sequence is zero points.
py::array_t<double> PointsArgument(py::handle points) {
  py::array_t<double> array = Float64Copy(points);
  if (array.size() == 0) {
    return py::array_t<double>(std::vector<py::ssize_t>{0, kDimension});
  }
  if (array.ndim() != 2 || array.shape(1) != kDimension) {
    throw py::value_error("points must be an (N, 3) array of coordinates; got shape " +
                          ShapeText(array));
  }
  return array;
}

// One parameter value: a number or a flat sequence of numbers.
std::vector<double> ValueArgument(const std::string& name, py::handle value) {
  if (py::isinstance<py::str>(value) || py::isinstance<py::bytes>(value)) {
    throw py::value_error("value of '" + name + "' must be a number or a sequence of numbers");
  }
  py::array_t<double> array = Float64Copy(value);
  if (array.ndim() > 1) {
    throw py::value_error("value of '" + name +
                          "' must be a number or a flat sequence; got shape " + ShapeText(array));
  }
  return std::vector<double>(array.data(), array.data() + array.size());
}

// A dict from parameter name to value (None: no entries).
std::vector<metrofit::NamedValue> NamedValuesArgument(const char* what, py::handle mapping) {
  std::vector<metrofit::NamedValue> values;
  if (mapping.is_none()) {
    return values;
  }
  if (!py::hasattr(mapping, "items")) {
    throw py::type_error(std::string(what) + " must be a dict from parameter name to value");
  }
  for (py::handle item : mapping.attr("items")()) {
    py::tuple pair = py::reinterpret_borrow<py::tuple>(item);
    if (!py::isinstance<py::str>(pair[0])) {
      throw py::type_error(std::string(what) + ": parameter names are strings, got " +
                           py::repr(pair[0]).cast<std::string>());
    }
    std::string name = pair[0].cast<std::string>();
    values.push_back({name, ValueArgument(name, pair[1])});
  }
  return values;
}

py::array_t<double> Array(const double* data, std::vector<py::ssize_t> shape) {
  py::array_t<double> array(shape);
  std::memcpy(array.mutable_data(), data, static_cast<std::size_t>(array.size()) * sizeof(double));
  return array;
}

template <std::size_t N>
py::object OptionalArray(const std::optional<std::array<double, N>>& value) {
  if (!value) {
    return py::none();
  }
  return Array(value->data(), {static_cast<py::ssize_t>(N)});
}

py::object OptionalFloat(const std::optional<double>& value) {
  return value ? py::object(py::float_(*value)) : py::object(py::none());
}

// One value as a float, several as a tuple of floats.
py::object ParameterValue(const std::vector<double>& value) {
  if (value.size() == 1) {
    return py::float_(value[0]);
  }
  py::tuple tuple(value.size());
  for (std::size_t i = 0; i < value.size(); ++i) {
    tuple[i] = py::float_(value[i]);
  }
  return std::move(tuple);
}

void AddParameters(const metrofit::FitResult& result, py::dict& fields) {
  py::dict values;
  py::dict uncertainties;
  for (const metrofit::Parameter& parameter : result.parameters) {
    values[py::str(parameter.name)] = ParameterValue(parameter.value);
    uncertainties[py::str(parameter.name)] = ParameterValue(parameter.uncertainty);
  }
  fields["parameters"] = values;
  fields["uncertainties"] = uncertainties;
}

void AddPointFields(const metrofit::FitResult& result, py::dict& fields) {
  const auto count = static_cast<py::ssize_t>(result.deviations.size());
  fields["deviations"] = Array(result.deviations.data(), {count});
  const auto rows = static_cast<py::ssize_t>(result.residuals.size());
  fields["residuals"] = Array(rows ? result.residuals.front().data() : nullptr, {rows, kDimension});
}

// The result as keyword arguments of metrofit.FitResult.
py::dict ResultFields(const metrofit::FitResult& result) {
  py::dict fields;
  fields["shape"] = metrofit::ToString(result.shape);
  fields["method"] = metrofit::ToString(result.method);
  fields["valid"] = result.valid;
  fields["status"] = metrofit::ToString(result.status);
  fields["message"] = result.message;
  fields["center"] = Array(result.center.data(), {kDimension});
  fields["axis"] = OptionalArray(result.axis);
  fields["radius"] = OptionalFloat(result.radius);
  fields["half_angle"] = OptionalFloat(result.half_angle);
  fields["major_radius"] = OptionalFloat(result.major_radius);
  fields["minor_radius"] = OptionalFloat(result.minor_radius);
  fields["semi_axes"] = OptionalArray(result.semi_axes);
  fields["focal_length"] = OptionalFloat(result.focal_length);
  fields["major_direction"] = OptionalArray(result.major_direction);
  AddParameters(result, fields);
  AddPointFields(result, fields);
  fields["rms"] = result.rms;
  fields["sigma"] = result.sigma;
  fields["min_deviation"] = result.min_deviation;
  fields["max_deviation"] = result.max_deviation;
  fields["form_error"] = result.form_error;
  fields["iterations"] = result.iterations;
  return fields;
}

py::dict Fit(const std::string& shape, py::handle points, const std::string& method,
             py::handle fixed, py::handle start, double probe_radius) {
  metrofit::FitOptions options;
  options.shape = ShapeArgument(shape);
  options.method = MethodArgument(method);
  options.fixed = NamedValuesArgument("fixed", fixed);
  options.start = NamedValuesArgument("start", start);
  options.probe_radius = probe_radius;
  py::array_t<double> xyz = PointsArgument(points);
  const double* data = xyz.data();
  const auto count = static_cast<std::size_t>(xyz.shape(0));

  metrofit::FitResult result;
  {
    // The fit keeps no shared state and reads only the private copy: other threads may run.
    py::gil_scoped_release release;
    result = metrofit::Fit(data, count, options);
  }
  if (metrofit::IsInputError(result.status)) {
    throw py::value_error(result.message.empty() ? metrofit::ToString(result.status)
                                                 : result.message);
  }
  return ResultFields(result);
}

py::tuple ParameterNames(const std::string& shape) {
  std::vector<std::string> names = metrofit::ParameterNames(ShapeArgument(shape));
  py::tuple tuple(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    tuple[i] = py::str(names[i]);
  }
  return tuple;
}

py::tuple Shapes() {
  py::tuple tuple(std::size(kAllShapes));
  for (std::size_t i = 0; i < std::size(kAllShapes); ++i) {
    tuple[i] = py::str(metrofit::ToString(kAllShapes[i]));
  }
  return tuple;
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "metrofit's C++ fitting library; use the metrofit package, not this module.";
  module.attr("__version__") = METROFIT_VERSION;
  module.attr("SHAPES") = Shapes();
  module.def("fit", &Fit, py::arg("shape"), py::arg("points"), py::kw_only(),
             py::arg("method") = "precise", py::arg("fixed") = py::none(),
             py::arg("start") = py::none(), py::arg("probe_radius") = 0.0,
             "Fits the shape to the points; returns the FitResult fields as a dict.");
  module.def("parameter_names", &ParameterNames, py::arg("shape"),
             "Names of the shape's parameters, in the order of FitResult.parameters.");
}
