/* Interpolation and the gain, dB and EV formulas, in double arithmetic. */
#ifndef ZR4410_CAMERA_MATH_H
#define ZR4410_CAMERA_MATH_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* A calibration point: x is the physical value, y the raw position. */
typedef struct {
  double x, y;
} InterpolationPoint;

/* Sets p->x so that p, with its p->y, is on the straight line through p0 and p1. Does not check that p0->y and p1->y
   differ. Returns 0. */
int InterpolationX(const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p);

/* The reverse: sets p->y for its p->x. Does not check that p0->x and p1->x differ. Returns 0. */
int InterpolationY(const InterpolationPoint* p0, const InterpolationPoint* p1, InterpolationPoint* p);

/* Returns 20 times the natural logarithm of the linear gain. The result is not in decibels: dB2Gain does not reverse
   this conversion. */
double Gain2dB(double gain);

/* Converts a linear gain 1.0..128.5 to a level, eight levels per doubling, truncated to 0..56. Because of rounding, the
   exact gain of a level may give the level below it: 8, 64 and 128 give 23, 47 and 55.
   Returns 0; -18 if the gain is out of range: *level is then unchanged. */
int Gain2GainLevel(double gain, int32_t* level);

/* Converts dB to the linear gain, 10 to the power dB / 20. */
double dB2Gain(double dB);

/* Converts a level 0..56 to the linear gain 1.0..128.0.
   Returns 0; -18 if the level is out of range: *gain is then unchanged. */
int GainLevel2Gain(uint32_t level, double* gain);

/* Returns value times 2 to the power ev, truncated toward zero and limited to 32 bits; 0 if the product is NaN. */
int32_t Ev2Value(int32_t value, double ev);

ZR4410_END_DECLS

#endif
