// Marks of the library's declarations: what a shared build exports, and what a compiler can check of a call.
//
// A shared build (BUILD_SHARED_LIBS=ON) compiles everything hidden and exports only what QZSTRING_EXPORT
// marks. The header needs no configure step: a program that links the shared library need define nothing
// either, as default visibility serves both sides of an ELF or Mach-O library.
#ifndef QZSTRING_COMMON_EXPORT_H
#define QZSTRING_COMMON_EXPORT_H

#if !defined(__GNUC__)
#error "qzString needs GCC or Clang"
#endif

#define QZSTRING_EXPORT __attribute__((visibility("default")))
// A variable internal to the library: its other sources address it directly, without the global offset table.
#define QZSTRING_HIDDEN __attribute__((visibility("hidden")))
// Checks the arguments of a printf-like function; positions count from 1, `this` included, 0 for a va_list.
#define QZSTRING_PRINTF(formatAt, argumentsAt) __attribute__((format(printf, formatAt, argumentsAt)))

// A result that borrows from the object: lets the compiler warn when the object is a temporary.
#if defined(__clang__)
#define QZSTRING_LIFETIMEBOUND [[clang::lifetimebound]]
#else
#define QZSTRING_LIFETIMEBOUND
#endif

#endif
