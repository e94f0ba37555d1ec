// Not built yet: estimators. Every function here fails cleanly until its subsystem lands.
#include "metrofit.h"

void CFitInput::EstimateLine(CFitResult&, double**, double**) {}
void CFitInput::EstimatePlane(CFitResult&, double**, double**) {}
void CFitInput::EstimateCircle(CFitResult&, double**, double**) {}
void CFitInput::EstimateSphere(CFitResult&, double**, double**) {}
void CFitInput::EstimateCylinder(CFitResult&, double**, double**) {}
void CFitInput::EstimateCone(CFitResult&, double**, double**) {}
void CFitInput::EstimateEllipse(CFitResult&, double**, double**) {}
void CFitInput::Parab2Est(CFitResult&, double**, double**) {}
void CFitInput::EstimateParaboloid(CFitResult&, double**, double**) {}
void CFitInput::EstimateTorus(CFitResult&, double**, double**) {}
void CFitInput::EstimateTorus2(CFitResult&, double**, double**) {}
void CFitInput::EstimateTorusBasedOnCircleFit(CFitResult&, double**, double**) {}
