// NEON intrinsics: native on 32- and 64-bit Arm, translated by SIMDe elsewhere so that the
// vector kernels are built and tested on every host.
#ifndef VANTOR_PLATFORM_NEON_H
#define VANTOR_PLATFORM_NEON_H

#if defined(__ARM_NEON) || defined(__ARM_NEON__)
#include <arm_neon.h>
#else
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/arm/neon.h>
#endif

#define VTR_PREFETCH(p) __builtin_prefetch(p)

#endif  // VANTOR_PLATFORM_NEON_H
