// Block forms of the numeric core against their one-point forms: the objective and the normal
// equations of a fit must come out bit for bit the same whichever form computes them, so the
// minimiser takes the same steps. The extended cylinder's model, the one fit with block forms,
// is the workload.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "extended/circle_fit_ex.h"
#include "extended/cylinder_model.h"
#include "extended/sphere_fit_ex.h"
#include "numeric/compensated.h"
#include "numeric/levenberg_marquardt.h"
#include "numeric/numeric_test_util.h"
#include "numeric/nvector.h"
#include "numeric/vector_path.h"
#include "support/vector_paths.h"

namespace metrofit::numeric {
namespace {

using testing::Rng;
using testing::Uniform;
using testing_paths::OnEveryVectorPath;

// Equal bit for bit, any NaN equal to any NaN (which NaN an operation passes on is not
// observable).
bool SameBits(double a, double b) {
  if (std::isnan(a) && std::isnan(b)) return true;
  return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST(NumericBlocks, PairedHypot3IsTheScalarHypot3InEachLane) {
  Rng rng(41);
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> values = {0.0,    -0.0, 1.0,  -3.0, 1e-310,  -1e-300, 1e300,
                                -1e308, inf,  -inf, nan,  2.5e-17, 7.0};
  for (int k = 0; k < 40; ++k) values.push_back(Uniform(rng, -1e3, 1e3));
  for (double a : values)
    for (double b : values)
      for (int k = 0; k < 3; ++k) {
        const double c = values[(k * 7 + static_cast<int>(values.size()) / 2) % values.size()];
        const DoublePair h = Hypot3(MakePair(a, c), MakePair(b, a), MakePair(c, b));
        EXPECT_TRUE(SameBits(h[0], Hypot3(a, b, c))) << a << " " << b << " " << c;
        EXPECT_TRUE(SameBits(h[1], Hypot3(c, a, b))) << c << " " << a << " " << b;
      }
}

struct CylinderCase {
  UniquePointSet points;
  UniqueVector x;
};

// Points about a tilted cylinder 500 mm from the origin; some exactly on the axis.
CylinderCase MakeCylinderCase(std::int32_t count, Rng& rng) {
  CylinderCase c{UniquePointSet(CreatePointSet(count)),
                 UniqueVector(CreateVector(kCylinderParams))};
  double axis[3];
  testing::RandomUnit(rng, axis);
  const double centre[3] = {310.0, -240.0, 330.0};
  for (int k = 0; k < 3; ++k) {
    (*c.x)[k] = centre[k];
    (*c.x)[3 + k] = axis[k] * 1.0000001;  // not quite unit: the residual divides by |a|
  }
  (*c.x)[6] = 12.5;
  for (std::int32_t i = 0; i < count; ++i) {
    double* p = c.points->Point(i);
    for (int k = 0; k < 3; ++k) p[k] = centre[k] + Uniform(rng, -20.0, 20.0);
    if (i % 17 == 3)
      for (int k = 0; k < 3; ++k) p[k] = centre[k] + 2.0 * (*c.x)[3 + k];  // on the axis
  }
  return c;
}

// On every vector path, with counts that leave every remainder of four and two lanes.
TEST(NumericBlocks, CylinderResidualsAreTheOnePointResiduals) {
  OnEveryVectorPath([] {
    Rng rng(42);
    for (std::int32_t count : {1, 2, 3, 5, 6, 7, 64, 257}) {
      CylinderCase c = MakeCylinderCase(count, rng);
      std::vector<double> out(static_cast<std::size_t>(count));
      CylinderResiduals(*c.points, 0, count, *c.x, out.data());
      for (std::int32_t i = 0; i < count; ++i)
        EXPECT_TRUE(SameBits(out[i], CylinderResidual(*c.points, i, *c.x))) << count << " " << i;
    }
  });
}

TEST(NumericBlocks, CylinderRowsAreTheOnePointRows) {
  OnEveryVectorPath([] {
    Rng rng(43);
    for (std::int32_t count : {1, 2, 3, 4, 6, 7, 100}) {
      CylinderCase c = MakeCylinderCase(count, rng);
      std::vector<double> rows(static_cast<std::size_t>(count) * kCylinderParams);
      std::vector<double> residuals(static_cast<std::size_t>(count));
      CylinderResidualRows(*c.points, 0, count, *c.x, rows.data(), residuals.data());
      for (std::int32_t i = 0; i < count; ++i) {
        double one[kCylinderParams];
        NVector view = VectorView(one, kCylinderParams);
        double r = 0.0;
        CylinderResidualRow(*c.points, i, *c.x, view, r);
        EXPECT_TRUE(SameBits(residuals[i], r)) << i;
        for (int k = 0; k < kCylinderParams; ++k)
          EXPECT_TRUE(SameBits(rows[static_cast<std::size_t>(i) * kCylinderParams + k], one[k]))
              << i << " " << k;
      }
    }
  });
}

TEST(NumericBlocks, BlockSumOfSquaresIsTheOnePointSum) {
  Rng rng(44);
  // No point, one point (no compensation), two, and more than one block.
  for (std::int32_t count : {0, 1, 2, 3, 256, 257, 1000}) {
    CylinderCase c = MakeCylinderCase(count, rng);
    EXPECT_TRUE(SameBits(SumOfSquares(*c.points, *c.x, CylinderResiduals),
                         SumOfSquares(*c.points, *c.x, CylinderResidual)))
        << count;
  }
}

TEST(NumericBlocks, BlockNormalEquationsAreTheOnePointSums) {
  Rng rng(45);
  for (std::int32_t count : {1, 2, 3, 256, 600}) {
    CylinderCase c = MakeCylinderCase(count, rng);
    UniqueVector g1(CreateVector(kCylinderParams)), g2(CreateVector(kCylinderParams));
    UniqueMatrix a1(CreateMatrix(kCylinderParams, kCylinderParams, kPackedSymmetric));
    UniqueMatrix a2(CreateMatrix(kCylinderParams, kCylinderParams, kPackedSymmetric));
    NormalEquations(*c.points, *c.x, CylinderResidualRow, *g1, *a1);
    NormalEquations(*c.points, *c.x, CylinderResidualRows, *g2, *a2);
    for (int k = 0; k < kCylinderParams; ++k) EXPECT_TRUE(SameBits((*g1)[k], (*g2)[k])) << k;
    const std::int64_t packed = ElementCount(kPackedSymmetric, kCylinderParams, kCylinderParams);
    for (std::int64_t k = 0; k < packed; ++k)
      EXPECT_TRUE(SameBits(a1->data[k], a2->data[k])) << count << " " << k;
  }
}

// Sphere and circle (in its plane, z ignored): the block forms against the one-point forms on
// points about a centre, some exactly at it.
template <class Residual, class Residuals, class Row, class Rows>
void ExpectBlockFormsMatch(std::int32_t params, Residual residual, Residuals residuals, Row row,
                           Rows rows) {
  OnEveryVectorPath([&] {
    Rng rng(47);
    for (std::int32_t count : {1, 2, 3, 5, 6, 7, 9, 300}) {
      UniquePointSet pts(CreatePointSet(count));
      UniqueVector x(CreateVector(params));
      for (std::int32_t k = 0; k < params; ++k) (*x)[k] = Uniform(rng, 100.0, 200.0);
      for (std::int32_t i = 0; i < count; ++i)
        for (int k = 0; k < 3; ++k)
          pts->Point(i)[k] = (i % 5 == 2 && k < 2 ? (*x)[k] : Uniform(rng, 50.0, 250.0));
      std::vector<double> out(static_cast<std::size_t>(count)), res(out.size());
      std::vector<double> rowData(out.size() * static_cast<std::size_t>(params));
      residuals(*pts, 0, count, *x, out.data());
      rows(*pts, 0, count, *x, rowData.data(), res.data());
      std::vector<double> one(static_cast<std::size_t>(params));
      for (std::int32_t i = 0; i < count; ++i) {
        EXPECT_TRUE(SameBits(out[i], residual(*pts, i, *x))) << i;
        NVector view = VectorView(one.data(), params);
        double r = 0.0;
        row(*pts, i, *x, view, r);
        EXPECT_TRUE(SameBits(res[i], r)) << i;
        for (std::int32_t k = 0; k < params; ++k)
          EXPECT_TRUE(SameBits(rowData[static_cast<std::size_t>(i * params + k)], one[k]));
      }
    }
  });
}

TEST(NumericBlocks, SphereBlockFormsAreTheOnePointForms) {
  ExpectBlockFormsMatch(4, SphereResidual, SphereResiduals, SphereResidualRow, SphereResidualRows);
}

TEST(NumericBlocks, CircleBlockFormsAreTheOnePointForms) {
  ExpectBlockFormsMatch(3, CircleResidual, CircleResiduals, CircleResidualRow, CircleResidualRows);
}

// The processor's vector path and the baseline path give the same normal equations bit for
// bit, for every row length the block form handles (here through the sphere, circle and
// cylinder rows: 4, 3 and 7 unknowns).
TEST(NumericBlocks, NormalEquationsAreTheSameOnEveryVectorPath) {
  if (!VectorPathAvailable(VectorPath::kAvx2)) {
    GTEST_SKIP() << "this processor has no AVX2: only the baseline path exists here";
  }
  Rng rng(48);
  CylinderCase c = MakeCylinderCase(300, rng);
  const auto sums = [&](VectorPath path, std::int32_t p, ResidualRowBlockFn rows) {
    ForceVectorPath(path);
    EXPECT_EQ(ActiveVectorPath(), path);
    UniqueVector g(CreateVector(p));
    UniqueMatrix a(CreateMatrix(p, p, kPackedSymmetric));
    NormalEquations(*c.points, *c.x, rows, *g, *a);
    ResetVectorPath();
    std::vector<double> out(g->data, g->data + p);
    out.insert(out.end(), a->data, a->data + ElementCount(kPackedSymmetric, p, p));
    return out;
  };
  const std::pair<std::int32_t, ResidualRowBlockFn> models[] = {
      {kCylinderParams, CylinderResidualRows}, {4, SphereResidualRows}, {3, CircleResidualRows}};
  for (const auto& [p, rows] : models) {
    const std::vector<double> base = sums(VectorPath::kBaseline, p, rows);
    const std::vector<double> wide = sums(VectorPath::kAvx2, p, rows);
    ASSERT_EQ(base.size(), wide.size());
    for (std::size_t k = 0; k < base.size(); ++k)
      EXPECT_TRUE(SameBits(base[k], wide[k])) << p << " unknowns, element " << k;
  }
}

// Rows of every width the block form takes (1 to 8 unknowns) from a fixed table, so that the
// sums can be checked element by element against plain Kahan sums formed here.
constexpr std::int32_t kTablePoints = 600;
std::vector<double> tableRows, tableResiduals;
std::int32_t tableWidth = 0;

void TableRows(const PointSet&, std::int32_t first, std::int32_t count, const NVector&,
               double* rows, double* residuals) {
  for (std::int32_t i = 0; i < count; ++i) {
    for (std::int32_t u = 0; u < tableWidth; ++u)
      rows[i * tableWidth + u] = tableRows[static_cast<std::size_t>((first + i) * tableWidth + u)];
    residuals[i] = tableResiduals[static_cast<std::size_t>(first + i)];
  }
}

// Each element of the normal equations is the Kahan sum, point after point, of its products:
// row[u] row[v] (v <= u) of the packed matrix, then r row[u] of the gradient; on every vector
// path and for every row width, with counts that leave every remainder of a block.
TEST(NumericBlocks, NormalEquationsOfEveryWidthAreThePlainKahanSums) {
  Rng rng(49);
  for (std::int32_t p = 1; p <= kMaxBlockUnknowns; ++p) {
    tableWidth = p;
    tableRows.resize(static_cast<std::size_t>(kTablePoints * p));
    tableResiduals.resize(kTablePoints);
    // Magnitudes far apart, so that the corrections matter.
    for (double& v : tableRows) v = Uniform(rng, -1.0, 1.0) * std::pow(10.0, Uniform(rng, -8, 8));
    for (double& v : tableResiduals) v = Uniform(rng, -1e-3, 1e-3);
    for (std::int32_t count : {1, 3, 255, 256, 257, kTablePoints}) {
      std::vector<double> expected;
      for (std::int32_t u = 0; u < p; ++u)
        for (std::int32_t v = 0; v <= u; ++v) {
          KahanSum sum;
          for (std::int32_t i = 0; i < count; ++i)
            sum.Add(tableRows[static_cast<std::size_t>(i * p + u)] *
                    tableRows[static_cast<std::size_t>(i * p + v)]);
          expected.push_back(sum.Sum());
        }
      for (std::int32_t u = 0; u < p; ++u) {
        KahanSum sum;
        for (std::int32_t i = 0; i < count; ++i)
          sum.Add(tableResiduals[static_cast<std::size_t>(i)] *
                  tableRows[static_cast<std::size_t>(i * p + u)]);
        expected.push_back(sum.Sum());
      }
      for (VectorPath path : {VectorPath::kBaseline, VectorPath::kAvx2}) {
        if (!VectorPathAvailable(path)) continue;
        ForceVectorPath(path);
        UniquePointSet pts(CreatePointSet(count));
        UniqueVector x(CreateVector(p)), g(CreateVector(p));
        UniqueMatrix a(CreateMatrix(p, p, kPackedSymmetric));
        NormalEquations(*pts, *x, TableRows, *g, *a);
        ResetVectorPath();
        const std::int64_t packed = ElementCount(kPackedSymmetric, p, p);
        for (std::int64_t k = 0; k < packed; ++k)
          EXPECT_TRUE(SameBits(a->data[k], expected[static_cast<std::size_t>(k)]))
              << p << " unknowns, " << count << " points, element " << k;
        for (std::int32_t u = 0; u < p; ++u)
          EXPECT_TRUE(SameBits((*g)[u], expected[static_cast<std::size_t>(packed + u)]))
              << p << " unknowns, " << count << " points, gradient " << u;
      }
    }
  }
}

TEST(NumericBlocks, ForcingAnUnavailablePathTakesTheBaseline) {
  ForceVectorPath(VectorPath::kBaseline);
  EXPECT_EQ(ActiveVectorPath(), VectorPath::kBaseline);
  ResetVectorPath();
  EXPECT_EQ(ActiveVectorPath(),
            VectorPathAvailable(VectorPath::kAvx2) ? VectorPath::kAvx2 : VectorPath::kBaseline);
  if (!VectorPathAvailable(VectorPath::kAvx2)) {
    ForceVectorPath(VectorPath::kAvx2);
    EXPECT_EQ(ActiveVectorPath(), VectorPath::kBaseline);
    ResetVectorPath();
  }
}

// More unknowns than the block form holds: both outputs zero, as for mismatched shapes.
TEST(NumericBlocks, BlockNormalEquationsRefuseTooManyUnknowns) {
  Rng rng(46);
  CylinderCase c = MakeCylinderCase(10, rng);
  const std::int32_t p = kMaxBlockUnknowns + 1;
  UniqueVector x(CreateVector(p)), g(CreateVector(p));
  UniqueMatrix a(CreateMatrix(p, p, kPackedSymmetric));
  for (std::int32_t k = 0; k < p; ++k) (*g)[k] = 5.0;
  NormalEquations(*c.points, *x, CylinderResidualRows, *g, *a);
  for (std::int32_t k = 0; k < p; ++k) EXPECT_EQ((*g)[k], 0.0);
}

}  // namespace
}  // namespace metrofit::numeric
