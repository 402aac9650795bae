// Forced inlining, and its opposite, for loops that are compiled once per instruction set. A function inlined
// into a kernel is compiled with the kernel's instructions, one that is not stays with the base set.
// Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_INLINE_H
#define QZSTRING_PRIMITIVES_INLINE_H

#if defined(__GNUC__) || defined(__clang__)
#define QZSTRING_INLINE __attribute__((always_inline)) inline
#define QZSTRING_NOINLINE __attribute__((noinline))
#else
#define QZSTRING_INLINE inline
#define QZSTRING_NOINLINE
#endif

#endif
