// Built with AVX-512BW on x86-64; called only where the processor has it.
#include "memory/scan_filter.h"

#if defined(__AVX512BW__)
#include <immintrin.h>

namespace qvt::scan {
namespace {

struct Avx512 {
    static constexpr std::size_t kWidth = 64;
    static __m512i Splat(uint8_t c) { return _mm512_set1_epi8(static_cast<char>(c)); }
    static uint64_t Matches(const uint8_t *first, __m512i c1, const uint8_t *second, __m512i c2) {
        const __mmask64 a = _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(first), c1);
        return _mm512_mask_cmpeq_epi8_mask(a, _mm512_loadu_si512(second), c2);
    }
};

}  // namespace

const uint8_t *FilterAvx512(Search &search) { return FilterBy<Avx512>(search); }

}  // namespace qvt::scan
#endif
