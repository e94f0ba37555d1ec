// Fuzz target: the exported KFit* functions.
//
// Property: no crash, no sanitizer report (ASan, UBSan), no hang, whatever the input record
// holds. The results themselves are not judged: these functions keep the host application's
// behaviour, which includes NaN results and fits reported valid for odd input.
//
// The bytes decode into the function, the fit type, the six constraint triples (modes 0, 1,
// a starting value, or any integer), probe radius, reference point and frame, options, and a
// point list on a perturbed surface (fuzz_points.h): up to fuzz_points::kMaxPoints points, or
// kMaxPointsMultiStart for the multi-start fits.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz_points.h"
#include "metrofit.h"

namespace {

using KFitFunction = std::int32_t (*)(CFitInput&, CFitResult&);

constexpr KFitFunction kFunctions[] = {KFitPoint,  KFitDistance, KFitAngle,      KFitLine,
                                       KFitLineEx, KFitPlane,    KFitCircle,     KFitCircleEx,
                                       KFitSphere, KFitSphereEx, KFitCylinder,   KFitCylinderEx,
                                       KFitCone,   KFitEllipse,  KFitParaboloid, KFitTorus};
constexpr int kFunctionCount = sizeof(kFunctions) / sizeof(kFunctions[0]);

// The fits that minimise from several candidate starts, each over every point.
bool MultiStart(KFitFunction fit) {
  return fit == KFitCylinder || fit == KFitCylinderEx || fit == KFitCone || fit == KFitTorus;
}

KPt3<double> Triple(FuzzedDataProvider& fdp, double lo, double hi) {
  const double x = fuzz_points::Number(fdp, lo, hi);
  const double y = fuzz_points::Number(fdp, lo, hi);
  const double z = fuzz_points::Number(fdp, lo, hi);
  return KPt3<double>(x, y, z);
}

// Mostly free (0), fixed (1) or a start (2); sometimes any integer, which also means a start.
int Mode(FuzzedDataProvider& fdp) {
  if (fdp.ConsumeIntegralInRange<int>(0, 15) == 0) return fdp.ConsumeIntegral<int>();
  return fdp.ConsumeIntegralInRange<int>(0, 2);
}

void DecodeParam(FuzzedDataProvider& fdp, CFitParam& p) {
  // A parameter left free in every component is the common case; it keeps decoding cheap.
  if (fdp.ConsumeIntegralInRange<int>(0, 3) != 0) return;
  p.value = Triple(fdp, -2000.0, 2000.0);
  for (int& m : p.mode) m = Mode(fdp);
}

void DecodeSettings(FuzzedDataProvider& fdp, CFitInput& in) {
  in.m_fitType = fdp.ConsumeIntegralInRange<int>(0, 15) == 0 ? fdp.ConsumeIntegral<std::int32_t>()
                                                             : fdp.ConsumeIntegralInRange(0, 8);
  in.m_probeRadius = fdp.ConsumeBool() ? 0.0 : fuzz_points::Number(fdp, -10.0, 10.0);
  in.m_refPoint = Triple(fdp, -2000.0, 2000.0);
  in.m_useReference = fdp.ConsumeBool();
  if (in.m_useReference) {
    in.m_refOrigin = Triple(fdp, -2000.0, 2000.0);
    in.m_refDirection = Triple(fdp, -1.0, 1.0);
    in.m_refSecondDirection = Triple(fdp, -1.0, 1.0);
  }
  in.m_option1Enabled = fdp.ConsumeBool();
  in.m_option1Value = fuzz_points::Number(fdp, -100.0, 100.0);
  in.m_option2Enabled = fdp.ConsumeBool();
  in.m_option2Value = fuzz_points::Number(fdp, -100.0, 100.0);
  for (CFitParam* p : {&in.m_centerParam, &in.m_axisParam, &in.m_angleParam, &in.m_size1Param,
                       &in.m_size2Param, &in.m_size3Param}) {
    DecodeParam(fdp, *p);
  }
}

// The decoded input on stderr, for reproducing a finding outside the fuzzer.
void Describe(KFitFunction fit, const CFitInput& in) {
  int index = 0;
  while (index < kFunctionCount && kFunctions[index] != fit) ++index;
  std::fprintf(stderr, "function %d, fit type %d, probe %.17g, %zu points\n", index, in.m_fitType,
               in.m_probeRadius, in.m_points.size());
  for (const KPt3<double>& p : in.m_points) {
    std::fprintf(stderr, "%.17g %.17g %.17g\n", p.x, p.y, p.z);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider fdp(data, size);
  const KFitFunction fit = kFunctions[fdp.ConsumeIntegralInRange(0, kFunctionCount - 1)];
  CFitInput in;
  DecodeSettings(fdp, in);
  const std::vector<double> xyz = fuzz_points::DecodePoints(
      fdp, MultiStart(fit) ? fuzz_points::kMaxPointsMultiStart : fuzz_points::kMaxPoints);
  in.m_points.reserve(xyz.size() / 3);
  for (std::size_t i = 0; i + 2 < xyz.size(); i += 3) {
    in.m_points.emplace_back(xyz[i], xyz[i + 1], xyz[i + 2]);
  }
  if (std::getenv("METROFIT_FUZZ_VERBOSE") != nullptr) Describe(fit, in);
  CFitResult out;
  fit(in, out);
  return 0;
}
