// Plane: the height over the plane through the centre.
#ifndef METROFIT_PRECISE_MODELS_PLANE_MODEL_H
#define METROFIT_PRECISE_MODELS_PLANE_MODEL_H

#include "precise/local_frame.h"

namespace metrofit::precise {

struct PlaneModel {
  static constexpr int kComponents = 1;
  explicit PlaneModel(const State& s) : offset_(s.offset) {}
  void Rows(const double q[3], double* r, double (*rows)[kLocalCount]) const {
    static const double kNormal[3] = {0.0, 0.0, 1.0};
    r[0] = q[2] - offset_;
    ChainRow(kNormal, q, rows[0]);
    rows[0][kSize0] = rows[0][kSize1] = 0.0;
  }
  double Deviation(const double q[3], double n[3]) const {
    n[0] = n[1] = 0.0;
    n[2] = 1.0;
    return q[2] - offset_;
  }

 private:
  double offset_;
};

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_MODELS_PLANE_MODEL_H
