// Starting features for the precise fits: closed forms from the scatter of the points,
// algebraic circles and spheres, and the fits of the binary interface on a subsample.
#ifndef METROFIT_PRECISE_STARTS_H
#define METROFIT_PRECISE_STARTS_H

#include <vector>

#include "precise/point_stats.h"
#include "precise/precise_fit.h"

namespace metrofit::precise {

// Candidate starts of the request's shape (sizes of the part surface, probe removed). With an
// axis hint only that axis is tried.
std::vector<Feature> StartCandidates(const Request& request, const PointStats& stats,
                                     const Vec3* axisHint);

}  // namespace metrofit::precise

#endif  // METROFIT_PRECISE_STARTS_H
