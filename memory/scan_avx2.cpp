// Built with AVX2 on x86-64; called only where the processor has it.
#include "memory/scan_filter.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace qvt::scan {
namespace {

struct Avx2 {
    static constexpr std::size_t kWidth = 32;
    static __m256i Splat(uint8_t c) { return _mm256_set1_epi8(static_cast<char>(c)); }
    static uint64_t Matches(const uint8_t *first, __m256i c1, const uint8_t *second, __m256i c2) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(first));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(second));
        const __m256i both = _mm256_and_si256(_mm256_cmpeq_epi8(a, c1), _mm256_cmpeq_epi8(b, c2));
        return static_cast<uint32_t>(_mm256_movemask_epi8(both));
    }
};

}  // namespace

const uint8_t *FilterAvx2(Search &search) { return FilterBy<Avx2>(search); }

}  // namespace qvt::scan
#endif
