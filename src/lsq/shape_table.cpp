// The nine least-squares shapes, in the order of their fit type codes. Each description is
// made from its shape class in lsq/shapes/; nothing about a shape is written down anywhere
// else.
#include "lsq/shape.h"
#include "lsq/shapes/circle_shape.h"
#include "lsq/shapes/cone_shape.h"
#include "lsq/shapes/cylinder_shape.h"
#include "lsq/shapes/ellipse_shape.h"
#include "lsq/shapes/line_shape.h"
#include "lsq/shapes/paraboloid_shape.h"
#include "lsq/shapes/plane_shape.h"
#include "lsq/shapes/sphere_shape.h"
#include "lsq/shapes/torus_shape.h"

namespace metrofit {
namespace {

// Whether a shape class writes its own form error (the cone has none).
template <class Shape, class = void>
struct HasFormError {
  static constexpr bool value = false;
};
template <class Shape>
struct HasFormError<Shape, decltype(void(&Shape::FormError))> {
  static constexpr bool value = true;
};

template <class Shape>
constexpr auto FormErrorOf() {
  using Fn = void (*)(const CFitInput&, CFitResult&);
  if constexpr (HasFormError<Shape>::value) {
    return static_cast<Fn>(&Shape::FormError);
  } else {
    return static_cast<Fn>(nullptr);
  }
}

template <class Shape>
constexpr ShapeDescription Describe() {
  static_assert(Shape::kEngine.parameters <= kMaxParameters, "too many parameters");
  static_assert(Shape::kDriver.unknowns == Shape::kEngine.parameters,
                "the driver and the engine must agree on the number of unknowns");
  return ShapeDescription{Shape::kFitType,
                          Shape::kName,
                          Shape::kEngine,
                          Shape::kDriver,
                          Shape::kEstimator,
                          &Shape::WriteParameters,
                          &Shape::Pass::Accumulate,
                          &Shape::Pass::Residuals,
                          &PointPass<Shape>::Evaluate,
                          FormErrorOf<Shape>()};
}

const ShapeDescription kShapes[] = {
    Describe<LineShape>(),   Describe<PlaneShape>(),    Describe<CircleShape>(),
    Describe<SphereShape>(), Describe<CylinderShape>(), Describe<ParaboloidShape>(),
    Describe<ConeShape>(),   Describe<EllipseShape>(),  Describe<TorusShape>(),
};
constexpr int kShapeCount = static_cast<int>(sizeof(kShapes) / sizeof(kShapes[0]));

// A code without a shape: nothing to estimate or write, empty sums, a zero residual per point.
struct NoShape {
  static void WriteParameters(const CFitInput&, CFitResult&, double**) {}
  static void Accumulate(PassContext&, NormalSums& sums) { sums.objective = 0.0; }
  static ResidualSums Residuals(PassContext& ctx) {
    auto& out = ctx.res.m_deviations;
    out.insert(out.end(), ctx.in.m_points.size(), KPt3<double>());
    ResidualSums sums;
    if (!ctx.in.m_points.empty()) sums.smallest = 0.0;  // every appended vector is zero
    return sums;
  }
  static void Evaluate(const KPt3<double>&, const CFitResult&, double**, double**, double**,
                       double**) {}
};

const ShapeDescription kNoShape{-1,
                                "none",
                                EngineLayout{0, 0, 0},
                                DriverLayout{0, kNoSlot, kNoSlot, kNoSlot, kNoSlot},
                                nullptr,
                                &NoShape::WriteParameters,
                                &NoShape::Accumulate,
                                &NoShape::Residuals,
                                &NoShape::Evaluate,
                                nullptr};

}  // namespace

const ShapeDescription* ShapeFor(int fitType) {
  if (fitType < 0 || fitType >= kShapeCount) return nullptr;
  return &kShapes[fitType];
}

const ShapeDescription& EngineShapeFor(int fitType) {
  const ShapeDescription* shape = ShapeFor(fitType);
  return shape != nullptr ? *shape : kNoShape;
}

EngineLayout EngineLayoutFor(int fitType) {
  const ShapeDescription* shape = ShapeFor(fitType);
  return shape != nullptr ? shape->engine : EngineLayout{0, 0, 0};
}

void EvaluateShapeModel(int fitType, const KPt3<double>& p, const CFitResult& r, double** Q,
                        double** B, double** A, double** w) {
  const ShapeDescription* shape = ShapeFor(fitType);
  if (shape != nullptr) shape->evaluate(p, r, Q, B, A, w);
}

}  // namespace metrofit
