// Built with AVX2 on x86-64; called only where the processor has it.
#include "memory/scan_filter.h"

#if defined(__AVX2__)
#include <immintrin.h>

namespace qvt::scan {
namespace {

using V32 = Vectors<32>::Vector;
uint64_t Both(V32 a, V32 c1, V32 b, V32 c2) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(__m256i(Vectors<32>::Flags((a == c1) & (b == c2)))));
}

}  // namespace

const uint8_t *FilterAvx2(Search &search) { return FilterBy<Lanes<32, Both>>(search); }

}  // namespace qvt::scan
#endif
