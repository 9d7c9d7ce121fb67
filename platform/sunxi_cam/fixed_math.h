// Elementary functions with the same result, bit for bit, on every target.
//
// The pictures the simulator draws are hashed in event logs that must match
// on x86-64, arm64 and armhf. The C library's exp, sin and cos may differ in
// their last bit between targets (each target's library is built its own
// way), and a last bit can tip a pixel across a rounding edge. These use only
// additions, multiplications, divisions and square roots of doubles, which
// IEEE 754 defines exactly, evaluated in the order written (the build keeps
// the compiler from fusing them). They are accurate to a few units in the
// last place, which is all a picture needs.
#ifndef LASERCALI_PLATFORM_SUNXI_CAM_FIXED_MATH_H_
#define LASERCALI_PLATFORM_SUNXI_CAM_FIXED_MATH_H_

namespace sunxi_cam::sim::fixed {

inline constexpr double kPi = 3.14159265358979323846;

// e^x; 0 below -745, infinity above 709.
double Exp(double x);
// Natural logarithm of x > 0.
double Log(double x);
// Sine and cosine of x radians, for |x| up to about 1e6.
double Sin(double x);
double Cos(double x);
// The error function.
double Erf(double x);

inline double Radians(double degrees) { return degrees * kPi / 180.0; }

}  // namespace sunxi_cam::sim::fixed

#endif  // LASERCALI_PLATFORM_SUNXI_CAM_FIXED_MATH_H_
