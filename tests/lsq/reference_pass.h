// A straightforward evaluation of one engine pass, point by point on row-pointer matrices with
// the generic kernels: the model of the point, M = B Q B^T inverted in place, and
//   objective += w^T M^-1 w,  N += A^T M^-1 A,  u += A^T M^-1 w,  v = Q B^T M^-1 w.
// The engine's specialised passes are tested against it.
#ifndef METROFIT_TESTS_LSQ_REFERENCE_PASS_H
#define METROFIT_TESTS_LSQ_REFERENCE_PASS_H

#include <vector>

#include "lsq/shape.h"
#include "lsq_test_util.h"
#include "metrofit.h"

namespace lsq_test {

struct ReferenceSums {
  std::vector<std::vector<double>> N;
  std::vector<double> u;
  double objective = 0.0;
  std::vector<Pt> residuals;
};

inline ReferenceSums ReferencePass(int type, const std::vector<Pt>& points, const CFitResult& r,
                                   bool noRedundancy) {
  const metrofit::EngineLayout lay = metrofit::EngineLayoutFor(type);
  const int n = lay.parameters, m = lay.conditions;
  Matrix Q(3, 3), B(m, 3), A(m, n), w(m, 1), BQ(m, 3), Bt(3, m), M(m, m), At(n, m), AtM(n, m),
      AtMA(n, n), AtMw(n, 1), wt(1, m), wtM(1, m), wtMw(1, 1), QBt(3, m), QBtM(3, m), v(3, 1);
  ReferenceSums out;
  out.N.assign(n, std::vector<double>(n, 0.0));
  out.u.assign(n, 0.0);
  for (const Pt& p : points) {
    metrofit::EvaluateShapeModel(type, p, r, Q.get(), B.get(), A.get(), w.get());
    mMultiplyMatrix(B.get(), Q.get(), BQ.get(), m, 3, 3);
    mTransposeMatrix(B.get(), Bt.get(), m, 3);
    mMultiplyMatrix(BQ.get(), Bt.get(), M.get(), m, 3, m);
    mInvertMatrix(M.get(), m);
    if (noRedundancy) {
      out.objective = 1.0;
    } else {
      mTransposeMatrix(w.get(), wt.get(), m, 1);
      mMultiplyMatrix(wt.get(), M.get(), wtM.get(), 1, m, m);
      mMultiplyMatrix(wtM.get(), w.get(), wtMw.get(), 1, m, 1);
      out.objective += wtMw[0][0];
    }
    mTransposeMatrix(A.get(), At.get(), m, n);
    mMultiplyMatrix(At.get(), M.get(), AtM.get(), n, m, m);
    mMultiplyMatrix(AtM.get(), A.get(), AtMA.get(), n, m, n);
    mMultiplyMatrix(AtM.get(), w.get(), AtMw.get(), n, m, 1);
    for (int a = 0; a < n; ++a) {
      for (int b = 0; b < n; ++b) out.N[a][b] += AtMA[a][b];
      out.u[a] += AtMw[a][0];
    }
    mMultiplyMatrix(Q.get(), Bt.get(), QBt.get(), 3, 3, m);
    mMultiplyMatrix(QBt.get(), M.get(), QBtM.get(), 3, m, m);
    mMultiplyMatrix(QBtM.get(), w.get(), v.get(), 3, m, 1);
    out.residuals.push_back(Pt(v[0][0], v[1][0], v[2][0]));
  }
  return out;
}

}  // namespace lsq_test

#endif  // METROFIT_TESTS_LSQ_REFERENCE_PASS_H
