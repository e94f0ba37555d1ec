// Export macro of the metrofit shared library, shared by the ABI header and the modern interface.
#ifndef METROFIT_EXPORT_H
#define METROFIT_EXPORT_H

#if defined(_WIN32) || defined(__CYGWIN__)
#if defined(METROFIT_BUILDING)
#define METROFIT_API __declspec(dllexport)
#else
#define METROFIT_API __declspec(dllimport)
#endif
#else
#define METROFIT_API __attribute__((visibility("default")))
#endif

#endif  // METROFIT_EXPORT_H
