/* pxMath: the maths library that pxImage calls for small numeric services. */
#ifndef PXMATH_H
#define PXMATH_H

#if defined(_WIN32)
#define PXMATH_API __declspec(dllexport)
#else
#define PXMATH_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A point: x the column, y the row. */
typedef struct pxMathVec2 {
    double x;
    double y;
} pxMathVec2;

/* Solves a*u^3 + b*u^2 + c*u + d = 0 for real u (a != 0). Writes the number of real roots (1 or 3, a
 * double root counted twice, a triple root three times) to nRoots and the roots, ascending, to
 * roots[0..nRoots-1]. O(1). Returns 1, or 0 (outputs untouched) when a is 0 or not finite or an output is
 * null. */
PXMATH_API int pxMathSolveCubic(double a, double b, double c, double d, int *nRoots, double roots[3]);

/* Copies one (x, y) pair from from to to; nothing when either is null. O(1). No result. */
PXMATH_API void pxMathCopyVec2ToVec2(const pxMathVec2 *from, pxMathVec2 *to);

#ifdef __cplusplus
}
#endif

#endif /* PXMATH_H */
