/* Includes all the helpers: clock, bits and hex, settings file. */
#ifndef ZR4410_SUPPORT_UTILS_H
#define ZR4410_SUPPORT_UTILS_H

#include "support/Clock.h"
#include "support/Hex.h"
#include "support/Settings.h"

#endif
