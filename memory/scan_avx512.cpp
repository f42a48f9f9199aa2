// Built with AVX-512BW on x86-64; called only where the processor has it.
#include "memory/scan_vector.h"

#if defined(__AVX512BW__)
#include <immintrin.h>

namespace qvt::scan {
namespace {

using V64 = Vectors<64>::Vector;
uint64_t Equal(V64 a, V64 c) { return _mm512_cmpeq_epi8_mask(__m512i(a), __m512i(c)); }
using Avx512 = Lanes<64, Equal>;

}  // namespace

const uint8_t *FilterAvx512(Search &search) { return FilterBy<Avx512>(search); }

std::size_t FirstOtherAvx512(const uint8_t *bytes, std::size_t count, uint8_t value) {
    return FirstOtherBy<Avx512>(bytes, count, value);
}

}  // namespace qvt::scan
#endif
