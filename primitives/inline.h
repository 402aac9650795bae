// Forced inlining, and its opposite, for loops that are compiled once per instruction set. A function inlined
// into a kernel is compiled with the kernel's instructions, one that is not stays with the base set. Before a
// loop, QZSTRING_KEEP_LOOP keeps it one: unrolled by the compiler, some take more registers than there are.
// In a loop, QZSTRING_ONE_BY_ONE keeps the compiler from making vectors of it.
// QZSTRING_LIKELY(condition) lays out the code so that nothing jumps where the condition holds: a jump taken
// costs one to two cycles, of which a short text has some ten.
// Internal, not installed.
#ifndef QZSTRING_PRIMITIVES_INLINE_H
#define QZSTRING_PRIMITIVES_INLINE_H

#define QZSTRING_INLINE __attribute__((always_inline)) inline
#define QZSTRING_NOINLINE __attribute__((noinline))
#define QZSTRING_LIKELY(condition) __builtin_expect(condition, true)
#define QZSTRING_ONE_BY_ONE asm("")

#if defined(__clang__)
#define QZSTRING_KEEP_LOOP _Pragma("clang loop unroll(disable)")
#else
#define QZSTRING_KEEP_LOOP _Pragma("GCC unroll 1")
#endif

#endif
