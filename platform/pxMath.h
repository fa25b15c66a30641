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

/* ---- Ellipses --------------------------------------------------------------------------------------------
 */

/* An ellipse in image coordinates: centre (cx the column, cy the row), semi-axes a (along the direction
 * `angle`) and b (perpendicular to it), and `angle` in radians from the x axis (columns) toward the y axis
 * (rows). Field order is part of the interface. */
typedef struct pxMath2DEllipse {
    double cx;
    double cy;
    double a;
    double b;
    double angle;
} pxMath2DEllipse;

/* Writes n points of the ellipse's contour to points[0..n-1], evenly spaced in the parameter angle
 * t_k = 2 pi k / n (k = 0..n-1): (cx + a cos t cos angle - b sin t sin angle, cy + a cos t sin angle +
 * b sin t cos angle), so the first point is the end of the a axis. O(n). Returns 1, or 0 (nothing written)
 * when n < 1, an argument is null or a field of the ellipse is not finite. */
PXMATH_API int pxMath2DEllipseSampleContouerPts(const pxMath2DEllipse *ellipse, int n, pxMathVec2 *points);

#ifdef __cplusplus
}
#endif

#endif /* PXMATH_H */
