// The plain reading of the UTF-8 decoders' rules that unicode_fuzz and
// text_fuzz compare the plug-in with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace qvt::fuzz {

// Code points up to the first illegal sequence, the marks 0xFEFF and 0xFFFE
// dropped. After the leads 0xED and 0xF4 the table bounds the second byte
// from above only, so "ED 00 80" passes, as the plug-in's table has it.
inline std::vector<uint32_t> DecodeUTF8(const std::vector<uint8_t> &in) {
    static constexpr uint32_t kOffsets[] = {0, 0x3080, 0xE2080, 0x3C82080};
    std::vector<uint32_t> out;
    for (std::size_t i = 0; i < in.size();) {
        const uint8_t lead = in[i];
        const std::size_t trailing = lead < 0xC0 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2
                                   : lead < 0xF8 ? 3 : 4;
        if (trailing > 3 || i + trailing >= in.size()) break;
        if ((lead >= 0x80 && lead <= 0xC1) || lead > 0xF4) break;
        if (trailing >= 1) {
            const uint8_t second = in[i + 1];
            const uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90
                              : lead == 0xED || lead == 0xF4 ? 0x00 : 0x80;
            const uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
            if (second < low || second > high) break;
        }
        bool legal = true;
        for (std::size_t k = 2; k <= trailing; ++k) legal &= in[i + k] >= 0x80 && in[i + k] <= 0xBF;
        if (!legal) break;
        uint32_t value = 0;
        for (std::size_t k = 0; k <= trailing; ++k) value = (value << 6) + in[i + k];
        value -= kOffsets[trailing];
        if (value != 0xFEFF && value != 0xFFFE) out.push_back(value);
        i += trailing + 1;
    }
    return out;
}

// Code points as UTF-16 units: pairs above 0xFFFF, nothing for a lone
// surrogate, 0xFFFD beyond 0x10FFFF.
inline std::vector<uint32_t> AsUTF16(const std::vector<uint32_t> &points) {
    std::vector<uint32_t> out;
    for (uint32_t c : points) {
        if (c >= 0xD800 && c <= 0xDFFF) continue;
        if (c > 0x10FFFF) {
            out.push_back(0xFFFD);
        } else if (c >= 0x10000) {
            out.push_back(0xD800 + ((c - 0x10000) >> 10));
            out.push_back(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out.push_back(c);
        }
    }
    return out;
}

}  // namespace qvt::fuzz
