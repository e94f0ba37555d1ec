// Cone about a pivot on its axis near the data: radius r0 at the pivot, half angle phi, opening
// towards +u. D = (rho - r0) cos(phi) - h sin(phi); the apex is c - u r0 / tan(phi). Every model
// subtracts the probe offset: the probe centres lie that far outside the part surface.
#ifndef METROFIT_PRECISE_MODELS_CONE_MODEL_H
#define METROFIT_PRECISE_MODELS_CONE_MODEL_H

#include <cmath>

#include "precise/local_frame.h"
#include "precise/models/radial_direction.h"

namespace metrofit::precise {

struct ConeModel {
  static constexpr int kComponents = 1;
  explicit ConeModel(const State& s)
      : r0_(s.size[0]), offset_(s.offset), cos_(std::cos(s.size[1])), sin_(std::sin(s.size[1])) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    double g[3];
    double c, s;
    const double rho = RadialDirection(q, &c, &s);
    r[0] = (rho - r0_) * cos_ - q[2] * sin_ - offset_;
    g[0] = cos_ * c;
    g[1] = cos_ * s;
    g[2] = -sin_;
    ChainRow(g, q, rows[0]);
    rows[0][kSize0] = -cos_;
    rows[0][kSize1] = -(rho - r0_) * sin_ - q[2] * cos_;
  }
  double Deviation(const double q[3], double n[3]) const {
    double c, s;
    const double rho = RadialDirection(q, &c, &s);
    n[0] = cos_ * c;
    n[1] = cos_ * s;
    n[2] = -sin_;
    return (rho - r0_) * cos_ - q[2] * sin_ - offset_;
  }

 private:
  double r0_;
  double offset_;
  double cos_;
  double sin_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_CONE_MODEL_H
