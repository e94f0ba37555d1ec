// metrofit: geometric fitting for coordinate metrology.
//
// The binary interface of the shared library, with global names as the host application
// expects them: field order and types of the records, the fit type codes, the exported fit
// functions and matrix utilities. The modern interface, with
// honest statuses and the exact least-squares solution, is <metrofit/fit.h>.
#ifndef METROFIT_H
#define METROFIT_H

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "metrofit/export.h"

// ---------------------------------------------------------------------------------------------
// Points and vectors
// ---------------------------------------------------------------------------------------------

// A point or vector of three coordinates. A plain value type: no invariant, a direction is not
// kept normalised unless an operation says so.
template <class T>
class KPt3 {
 public:
  T x;
  T y;
  T z;

  KPt3() : x(0), y(0), z(0) {}
  KPt3(T x_, T y_, T z_) : x(x_), y(y_), z(z_) {}

  KPt3 operator+(const KPt3& b) const { return KPt3(x + b.x, y + b.y, z + b.z); }
  KPt3 operator-(const KPt3& b) const { return KPt3(x - b.x, y - b.y, z - b.z); }
  KPt3 operator-() const { return KPt3(-x, -y, -z); }
  KPt3 operator*(T s) const { return KPt3(s * x, s * y, s * z); }
  KPt3& operator+=(const KPt3& b) {
    x += b.x;
    y += b.y;
    z += b.z;
    return *this;
  }
  KPt3& operator-=(const KPt3& b) {
    x -= b.x;
    y -= b.y;
    z -= b.z;
    return *this;
  }
  bool operator==(const KPt3& b) const { return x == b.x && y == b.y && z == b.z; }
  bool operator!=(const KPt3& b) const { return !(*this == b); }

  T Dot(const KPt3& b) const { return x * b.x + y * b.y + z * b.z; }
  KPt3 Cross(const KPt3& b) const {
    return KPt3(y * b.z - z * b.y, z * b.x - x * b.z, x * b.y - y * b.x);
  }
  // sqrt(x^2 + y^2 + z^2). When the plain sum of squares under- or overflows, the length is
  // taken by scaling with the largest magnitude, so tiny and huge vectors still normalise.
  T Length() const {
    const T s = x * x + y * y + z * z;
    if (s > T(2.2250738585072014e-308) && s <= T(1.7976931348623157e308)) return std::sqrt(s);
    const T m = std::fmax(std::fabs(x), std::fmax(std::fabs(y), std::fabs(z)));
    if (m == T(0) || !std::isfinite(m)) return std::sqrt(s);
    const T a = x / m, b = y / m, c = z / m;
    return m * std::sqrt(a * a + b * b + c * c);
  }
  // Divides by the length in place. A vector of length exactly 0 stays as it is, so callers
  // that need a usable direction test the length first.
  KPt3& Normalize() {
    const T len = Length();
    if (len != T(0)) {
      x /= len;
      y /= len;
      z /= len;
    }
    return *this;
  }
};

template <class T>
inline KPt3<T> operator*(T s, const KPt3<T>& v) {
  return KPt3<T>(s * v.x, s * v.y, s * v.z);
}
template <class T>
inline T Dot(const KPt3<T>& a, const KPt3<T>& b) {
  return a.Dot(b);
}
template <class T>
inline KPt3<T> Cross(const KPt3<T>& a, const KPt3<T>& b) {
  return a.Cross(b);
}
template <class T>
inline T Length(const KPt3<T>& v) {
  return v.Length();
}
template <class T>
inline KPt3<T>& Normalize(KPt3<T>& v) {
  return v.Normalize();
}

// Parameter t of the foot of the perpendicular from p onto the line through a and b, so that
// a + t (b - a) is that foot. Coincident a and b (squared distance at most the double epsilon)
// give 0.
template <class T>
inline T LineParameter(const KPt3<T>& a, const KPt3<T>& b, const KPt3<T>& p) {
  const KPt3<T> ab = b - a;
  const T len2 = ab.Dot(ab);
  if (!(len2 > T(2.220446049250313e-16))) return T(0);
  return (p - a).Dot(ab) / len2;
}

// ---------------------------------------------------------------------------------------------
// Row-pointer matrices (double**): the shape always travels beside the matrix.
// ---------------------------------------------------------------------------------------------

// Zero-filled rows x cols matrix, or null when an allocation fails.
METROFIT_API double** mCreateMatrix(int rows, int cols);
// Zero-fills the first rows rows, cols doubles each; returns 0.
METROFIT_API int mClearMatrix(double** m, int rows, int cols);
// Releases *pm, sets it to null and returns null; harmless on a null handle.
METROFIT_API double** mFreeMatrix(double*** pm, int rows);
// Copies cols doubles of each of the first rows rows; returns 0.
METROFIT_API int mCopyMatrix(double** dst, double** src, int rows, int cols);
// One-block matrix: the row pointers followed by the elements; released by
// mFreeMatrixContiguous.
METROFIT_API double** mCreateMatrixContiguous(int rows, int cols);
METROFIT_API int mFreeMatrixContiguous(double*** pm);

// Kernels of the least-squares engine. Dimensions are passed explicitly, nothing is checked.
METROFIT_API int mAddMatrix(double** dst, double** src, int rows, int cols);
METROFIT_API int mSubtractMatrix(double** dst, double** src, int rows, int cols);
// c = a b with a rows x inner and b inner x cols; c must not alias a or b.
METROFIT_API int mMultiplyMatrix(double** a, double** b, double** c, int rows, int inner, int cols);
METROFIT_API int mTransposeMatrix(double** src, double** dst, int rows, int cols);
// Gauss-Jordan inversion in place without pivoting; 0 on success, otherwise the index of the
// pivot that was too small (the matrix is then partly transformed).
METROFIT_API int mInvertMatrix(double** a, int n);
// Largest absolute entry of an n x 1 column (0 for n < 1).
METROFIT_API double mMaxAbs(double** v, int n);
// Gauss-Jordan elimination with partial pivoting of a (n x n) against b (n x m), in place.
// 0 solved (solution in b), -1 singular.
METROFIT_API std::int32_t mSolveLinear(double** a, int n, double** b, int m);

// ---------------------------------------------------------------------------------------------
// Rotation convention: R(a1, a2, a3) is the transpose of Rx(a1) Ry(a2) Rz(a3); its row 2,
// (sin a2, -cos a2 sin a1, cos a2 cos a1), is the feature axis.
// ---------------------------------------------------------------------------------------------

// Writes R row after row into nine doubles.
METROFIT_API void ConvertAnglesToMatrix(double a1, double a2, double a3, double* m9);
// Writes R into rows 0..2, columns 0..2 of a row-pointer matrix.
METROFIT_API void ConvertAnglesToMatrix(double a1, double a2, double a3, double** m);
// Reads the three rows of a rotation and writes its angles, each wrapped into [0, 2 pi).
METROFIT_API void ConvertMatrixTo3Angles(KPt3<double>* const m, double* a1, double* a2, double* a3);

// ---------------------------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------------------------

enum KFitType {
  FIT_LINE = 0,
  FIT_PLANE = 1,
  FIT_CIRCLE = 2,
  FIT_SPHERE = 3,
  FIT_CYLINDER = 4,
  FIT_PARABOLOID = 5,
  FIT_CONE = 6,
  FIT_ELLIPSE = 7,
  FIT_TORUS = 8
};

// One triple of parameter values with a constraint mode per component:
// 0 free, 1 fixed, any other value a starting value.
struct CFitParam {
  KPt3<double> value;
  int mode[3] = {0, 0, 0};
};

class CFitResult;

class METROFIT_API CFitInput {
 public:
  std::int32_t m_fitType;
  std::vector<KPt3<double>> m_points;
  KPt3<double> m_refPoint;
  KPt3<double> m_auxPoints[3];
  KPt3<double> m_givenMinMax;
  KPt3<double> m_givenStats;
  double m_auxValues[5];
  KPt3<double> m_refOrigin;
  KPt3<double> m_refDirection;
  KPt3<double> m_refSecondDirection;
  bool m_option1Enabled;
  double m_option1Value;
  bool m_option2Enabled;
  double m_option2Value;
  bool m_useReference;
  double m_probeRadius;
  CFitParam m_centerParam;
  CFitParam m_axisParam;
  CFitParam m_angleParam;
  CFitParam m_size1Param;
  CFitParam m_size2Param;
  CFitParam m_size3Param;

  CFitInput();
  // Copies the settings, not the measurement: the copy has no points.
  CFitInput(const CFitInput& other);
  // Copies fit type, reference frame, options, probe radius and the six parameters; leaves
  // the points, reference point, auxiliary data and given values of the target alone.
  void operator=(const CFitInput& other);
  virtual ~CFitInput();

  // Least-squares engine: Gauss-Helmert iteration over the shape model of m_fitType.
  void BestFit(CFitResult& result, double** constraints, double** params);

  // Starting values for the engine, written where the constraint diagonal is exactly 0.
  void EstimateLine(CFitResult& result, double** constraints, double** params);
  void EstimatePlane(CFitResult& result, double** constraints, double** params);
  void EstimateCircle(CFitResult& result, double** constraints, double** params);
  void EstimateSphere(CFitResult& result, double** constraints, double** params);
  void EstimateCylinder(CFitResult& result, double** constraints, double** params);
  void EstimateCone(CFitResult& result, double** constraints, double** params);
  void EstimateEllipse(CFitResult& result, double** constraints, double** params);
  void Parab2Est(CFitResult& result, double** constraints, double** params);
  void EstimateParaboloid(CFitResult& result, double** constraints, double** params);
  void EstimateTorus(CFitResult& result, double** constraints, double** params);
  void EstimateTorus2(CFitResult& result, double** constraints, double** params);
  void EstimateTorusBasedOnCircleFit(CFitResult& result, double** constraints, double** params);

  // Three well-spread points of the set; true when three distinct points were chosen.
  bool GetFurthest3Points(KPt3<double>* out);

  // Point `index` moved by the probe radius onto the current paraboloid or torus.
  KPt3<double> RemoveProbeRadius(int index, CFitResult& result, double** rotation);
  // Moves the points into the frame of a parameter vector (forward) or back.
  void RectifyPoints(double** params, double** saved, double** rotation, bool forward);
};

class METROFIT_API CFitResult {
 public:
  KPt3<double> m_center;
  KPt3<double> m_axis;
  KPt3<double> m_angles;
  KPt3<double> m_size1;
  KPt3<double> m_size2;
  KPt3<double> m_size3;
  std::vector<KPt3<double>> m_deviations;
  double m_sigma;
  double m_rms;
  double m_formError;
  double m_minDeviation;
  double m_maxDeviation;
  double m_extraValue;  // deliberately left unset by the constructors
  int m_iterations;
  int m_valid;
  double m_objective;
  std::string m_message;

  CFitResult();
  // A copy-constructed result starts empty: nothing is copied from the argument.
  CFitResult(const CFitResult& other);
  // Copies the parameters and statistics (and the message, unless self-assigned); keeps the
  // target's deviation list and extra value.
  void operator=(const CFitResult& other);
  // Seeds the parameters from the nominal values of an input.
  void operator=(const CFitInput& input);
  virtual ~CFitResult();
};

// ---------------------------------------------------------------------------------------------
// Fit entry points. Each returns 1 on success and 0 on failure unless noted.
// ---------------------------------------------------------------------------------------------

METROFIT_API std::int32_t KFitPoint(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitDistance(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitAngle(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitLine(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitLineEx(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitPlane(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitCircle(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitCircleEx(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitSphere(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitSphereEx(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitCylinder(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitCylinderEx(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitCone(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitEllipse(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitParaboloid(CFitInput& in, CFitResult& out);
METROFIT_API std::int32_t KFitTorus(CFitInput& in, CFitResult& out);

#endif  // METROFIT_H
