// Not built yet: matrix kernels. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

int mAddMatrix(double**, double**, int, int) {
  return 0;
}
int mSubtractMatrix(double**, double**, int, int) {
  return 0;
}
int mTransposeMatrix(double**, double**, int, int) {
  return 0;
}
int mMultiplyMatrix(double**, double**, double**, int, int, int) {
  return 0;
}
int mInvertMatrix(double**, int) {
  return 0;
}
double mMaxAbs(double**, int) {
  return 0.0;
}
