// Kernels that gain from wider vectors carry QVT_VECTOR_CLONES: on x86-64
// with glibc the compiler builds one clone per instruction set and the
// loader picks the best the CPU has, so no CPU feature is needed to load.
// Everywhere else the single portable build is used. Every clone compiles
// the same source, so all of them give the same bytes.
#pragma once

#include <cstddef>  // defines __GLIBC__ where glibc is the C library

// ThreadSanitizer instruments the clones' resolvers, which the loader runs
// before the sanitizer's runtime is up.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QVT_NO_CLONES 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define QVT_NO_CLONES 1
#endif

#if defined(__x86_64__) && defined(__ELF__) && defined(__GLIBC__) && \
    (defined(__GNUC__) || defined(__clang__)) && !defined(QVT_NO_CLONES)
#define QVT_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define QVT_VECTOR_CLONES
#endif

// Kernels written for one x86-64 instruction set carry its target attribute
// and run only where __builtin_cpu_supports finds it; ELF only, since
// mingw's GCC cannot align the stack for spilled AVX registers.
#if defined(__x86_64__) && defined(__ELF__) && (defined(__GNUC__) || defined(__clang__))
#define QVT_X86_TARGETS 1
#endif

// The body of a function that lists such kernels: the list, where there are
// any, or none.
#if defined(QVT_X86_TARGETS)
#define QVT_X86_WAYS(ways) return ways
#else
#define QVT_X86_WAYS(ways) return {}
#endif

#include <cstdint>

namespace qvt::kernels {

// The top half of v * m + addend, all three 16-bit: the carry out of the
// low half comes from a compare, so a loop built on it stays in 16-bit
// lanes, eight to a 128-bit vector, with no widening.
[[gnu::always_inline]] inline uint16_t HighOfProduct16(uint16_t v, uint16_t m, uint16_t addend) {
    const auto upper = static_cast<uint16_t>((uint32_t{v} * m) >> 16);
    const auto lower = static_cast<uint16_t>(uint32_t{v} * m);
    const auto sum = static_cast<uint16_t>(lower + addend);
    return static_cast<uint16_t>(upper + (sum < lower ? 1 : 0));
}

}  // namespace qvt::kernels
