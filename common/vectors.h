// Which vector code is compiled in: QZSTRING_VECTORS_X86 or QZSTRING_VECTORS_NEON, or neither. It assumes
// wide characters of 32 bits. Internal, not installed.
#ifndef QZSTRING_COMMON_VECTORS_H
#define QZSTRING_COMMON_VECTORS_H

#if __SIZEOF_WCHAR_T__ == 4
#if defined(__x86_64__)
#define QZSTRING_VECTORS_X86 1
#elif defined(__aarch64__) && defined(__AARCH64EL__)
#define QZSTRING_VECTORS_NEON 1
#endif
#endif

#endif
