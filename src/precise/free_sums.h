// The pass of Accumulate for one set of free parameters fixed at compile time: the shapes fitted
// on millions of points (sphere, plane, cylinder with nothing held) spend their time here. The
// per-point work is the same as Accumulate's, in the same order, but the row is read at constant
// indices (the compiler drops the columns that are not free) and the sums live in locals (the
// normal equations in memory could alias the points, which would keep them out of registers).
// The models used here have one residual per point, and the shift columns of its row are minus
// the unit normal their Deviation gives (ChainRow of it): Describe takes both from one Rows.
#ifndef METROFIT_PRECISE_FREE_SUMS_H
#define METROFIT_PRECISE_FREE_SUMS_H

#include <cmath>
#include <cstddef>
#include <utility>

#include "precise/models/plane_model.h"
#include "precise/models/radial_model.h"
#include "precise/models/sphere_model.h"
#include "precise/pass_helpers.h"
#include "precise/solver.h"

namespace metrofit::precise {

template <class Model, int... Free>
struct FreeSums {
  using ModelType = Model;
  static constexpr int kP = sizeof...(Free);
  static constexpr int kIndex[kP] = {Free...};
  // The upper triangle of the normal matrix as a list of (row, column), for unrolling.
  static constexpr int kTriangle = kP * (kP + 1) / 2;
  struct Entries {
    int row[kTriangle] = {};
    int col[kTriangle] = {};
    constexpr Entries() {
      int t = 0;
      for (int i = 0; i < kP; ++i) {
        for (int j = i; j < kP; ++j, ++t) {
          row[t] = i;
          col[t] = j;
        }
      }
    }
  };
  static constexpr Entries kEntries{};

  double a[kP][kP] = {};
  double g[kP] = {};
  double sum = 0.0;
  double roundoff = 0.0;

  // True when the normal equations' free parameters are exactly these.
  static bool Matches(const Normal& ne) {
    if (ne.p != kP) return false;
    for (int i = 0; i < kP; ++i) {
      if (ne.index[i] != kIndex[i]) return false;
    }
    return true;
  }

  static double Sizes(const State& s) {
    return std::fabs(s.size[0]) + std::fabs(s.size[1]) + std::fabs(s.offset);
  }

  METROFIT_PRECISE_INLINE void Add(const Model& model, const double q[3], double sizes) {
    double r[Model::kComponents];
    double rows[Model::kComponents][kLocalCount];
    model.Rows(q, r, rows);
    AddRow(r, rows, q, sizes);
  }

  // The point's share, from the model's residuals and rows at its local coordinates q.
  METROFIT_PRECISE_INLINE void AddRow(const double* r, const double (*rows)[kLocalCount],
                                      const double q[3], double sizes) {
    for (int c = 0; c < Model::kComponents; ++c) {
      sum += r[c] * r[c];
      roundoff += std::fabs(r[c]) * (std::fabs(q[0]) + std::fabs(q[1]) + std::fabs(q[2]) + sizes);
      AddProducts(rows[c], r[c], std::make_index_sequence<kP>{},
                  std::make_index_sequence<kTriangle>{});
    }
  }

  // One residual's share of g and of the upper triangle of a, unrolled: with every index a
  // constant the sums stay in registers.
  template <std::size_t... I, std::size_t... T>
  METROFIT_PRECISE_INLINE void AddProducts(const double* row, double r, std::index_sequence<I...>,
                                           std::index_sequence<T...>) {
    const double jr[kP] = {row[kIndex[I]]...};
    ((g[I] += jr[I] * r), ...);
    ((a[kEntries.row[T]][kEntries.col[T]] += jr[kEntries.row[T]] * jr[kEntries.col[T]]), ...);
  }

  // Writes the sums into ne (whose free parameters match) and returns the sum of squares.
  double Store(Normal* ne) const {
    for (int i = 0; i < kP; ++i) {
      ne->g[i] = g[i];
      for (int j = i; j < kP; ++j) ne->a[i][j] = ne->a[j][i] = a[i][j];
    }
    ne->noise = kSumRoundoff * roundoff;
    return sum;
  }
};

// Accumulate through Sums (a FreeSums) when the free parameters match, else the general pass.
template <class Sums>
double AccumulateFree(const Problem& problem, const State& s, Normal* ne) {
  using Model = typename Sums::ModelType;
  if (!Sums::Matches(*ne)) return Accumulate<Model>(problem, s, ne);
  const Model model(s);
  const double sizes = Sums::Sizes(s);
  Sums sums;
  for (std::size_t k = 0; k < problem.count; ++k) {
    double q[3];
    PrefetchAhead(problem.xyz, k, problem.count);
    ToLocal(s, problem.xyz + 3 * k, q);
    sums.Add(model, q, sizes);
  }
  return sums.Store(ne);
}

// The free sets of the shapes fitted on large point clouds, with nothing held.
using SphereSums = FreeSums<SphereModel, kShiftX, kShiftY, kShiftZ, kSize0>;
using PlaneSums = FreeSums<PlaneModel, kShiftZ, kTurnX, kTurnY>;
using CylinderSums = FreeSums<RadialModel, kShiftX, kShiftY, kTurnX, kTurnY, kSize0>;

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_FREE_SUMS_H
