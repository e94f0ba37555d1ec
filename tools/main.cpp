#include <cstdio>

#include "metrofit.h"

int main() {
  std::puts("metrofit: not built yet");
  return 0;
}
