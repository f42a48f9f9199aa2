// Built with AVX2 on x86-64; called only where the processor has it.
#include "memory/scan_vector.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace qvt::scan {
namespace {

using V32 = Vectors<32>::Vector;
uint64_t Equal(V32 a, V32 c) { return static_cast<uint32_t>(_mm256_movemask_epi8(__m256i(Vectors<32>::Flags(a == c)))); }
using Avx2 = Lanes<32, Equal>;

}  // namespace

const uint8_t *FilterAvx2(Search &search) { return FilterBy<Avx2>(search); }

std::size_t FirstOtherAvx2(const uint8_t *bytes, std::size_t count, uint8_t value) {
    return FirstOtherBy<Avx2>(bytes, count, value);
}

}  // namespace qvt::scan
#endif
