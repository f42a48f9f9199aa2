// Built with AVX-512BW on x86-64; called only where the processor has it.
#include "memory/scan_filter.h"

#if defined(__AVX512BW__)
#include <immintrin.h>

namespace qvt::scan {
namespace {

using V64 = Vectors<64>::Vector;
// Compared into mask registers, which a vector of flags would only go through.
uint64_t Both(V64 a, V64 c1, V64 b, V64 c2) {
    return _mm512_mask_cmpeq_epi8_mask(_mm512_cmpeq_epi8_mask(__m512i(a), __m512i(c1)), __m512i(b), __m512i(c2));
}

}  // namespace

const uint8_t *FilterAvx512(Search &search) { return FilterBy<Lanes<64, Both>>(search); }

}  // namespace qvt::scan
#endif
