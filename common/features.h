// The processor features that a source's vector code uses, as one list: it makes both the attribute that lets
// functions use them and the test whether the processor has them. Internal, not installed.
//
// A list is a macro that applies its argument to every name:
//     #define FEATURES(X) X("avx2") X("bmi")
#ifndef QZSTRING_COMMON_FEATURES_H
#define QZSTRING_COMMON_FEATURES_H

#define QZSTRING_JOIN_FEATURE(name) "," name
#define QZSTRING_TARGET_OF(features) __attribute__((target("sse2" features(QZSTRING_JOIN_FEATURE))))

#define QZSTRING_REQUIRE_FEATURE(name) \
    if (!__builtin_cpu_supports(name)) \
        return false;
// A function that tells whether the processor has them all.
#define QZSTRING_DEFINE_USABLE(features)                \
    bool usable() {                                     \
        __builtin_cpu_init();                           \
        features(QZSTRING_REQUIRE_FEATURE) return true; \
    }

#endif
