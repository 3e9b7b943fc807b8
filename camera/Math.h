/* Interpolation and the gain, dB and EV formulas. Pure functions in plain double arithmetic. */
#ifndef ZR4410_CAMERA_MATH_H
#define ZR4410_CAMERA_MATH_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* A calibration point: x is the physical value, y the raw position. */
typedef struct {
  double x, y;
} InterpolationPoint;

/* Interpolates on the straight line through p0 and p1: fills p->x from p->y. Equal end points are not
   checked for. Returns 0. */
int InterpolationX(const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p);

/* The reverse: fills p->y from p->x. Returns 0. */
int InterpolationY(const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p);

/* 20 times the natural logarithm of the gain. */
double Gain2dB(double gain);

/* Linear gain 1.0..128.5 to a level, eight per doubling, truncated. 0; -18 outside, *level unchanged. */
int Gain2GainLevel(double gain, int32_t* level);

/* 10 raised to dB / 20. */
double dB2Gain(double dB);

/* Level 0..56 to the linear gain 1.0..128.0. 0; -18 outside, *gain unchanged. */
int GainLevel2Gain(uint32_t level, double* gain);

/* value times 2 to the ev, truncated toward zero, saturated to 32 bits; NaN gives 0. */
int32_t Ev2Value(int32_t value, double ev);

ZR4410_END_DECLS

#endif
