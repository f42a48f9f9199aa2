#include "hostvalues/unicode.h"

#include "diagnostics/debuglog.h"

namespace qvt {

namespace {

// Trailing bytes announced by a lead byte. Leads from 0xF8 on announce four
// or five and never pass the legality test.
constexpr uint8_t TrailingBytes(uint8_t lead) {
    if (lead < 0xC0) return 0;
    if (lead < 0xE0) return 1;
    if (lead < 0xF0) return 2;
    if (lead < 0xF8) return 3;
    if (lead < 0xFC) return 4;
    return 5;
}

// What the shifted sum of a sequence carries from its length bits.
constexpr uint32_t kLengthOffsets[4] = {0, 0x3080, 0xE2080, 0x3C82080};

bool IsLegalUTF8(const uint8_t *sequence, std::size_t length) {
    if (length < 1 || length > 4) return false;
    if (length >= 4 && (sequence[3] < 0x80 || sequence[3] > 0xBF)) return false;
    if (length >= 3 && (sequence[2] < 0x80 || sequence[2] > 0xBF)) return false;
    const uint8_t lead = sequence[0];
    if (length >= 2) {
        const uint8_t second = sequence[1];
        if (second > 0xBF) return false;
        switch (lead) {
            case 0xE0: if (second < 0xA0) return false; break;
            case 0xED: if (second > 0x9F) return false; break;
            case 0xF0: if (second < 0x90) return false; break;
            case 0xF4: if (second > 0x8F) return false; break;
            default: if (second < 0x80) return false;
        }
    }
    return !(lead >= 0x80 && lead <= 0xC1) && lead <= 0xF4;
}

bool IsByteOrderMark(uint32_t codePoint) { return codePoint == 0xFEFF || codePoint == 0xFFFE; }

// One decoder for both widths; `emit` writes a code point and returns the
// units it wrote.
template <typename Unit, typename Emit>
std::size_t DecodeUTF8(const uint8_t *bytes, std::size_t count, Unit *out, Emit emit) {
    std::size_t written = 0;
    std::size_t place = 0;
    while (place < count) {
        const std::size_t trailing = TrailingBytes(bytes[place]);
        if (place + trailing >= count || !IsLegalUTF8(bytes + place, trailing + 1)) {
            if (Debugging()) {
                DebugLogUInt32("Illegal UTF-8 sequence!", static_cast<uint32_t>(place));
            }
            break;
        }
        uint32_t codePoint = 0;
        for (std::size_t i = 0; i <= trailing; ++i) codePoint = (codePoint << 6) + bytes[place + i];
        codePoint -= kLengthOffsets[trailing];
        if (!IsByteOrderMark(codePoint)) written += emit(codePoint, out ? out + written : nullptr);
        place += trailing + 1;
    }
    if (out) out[written] = 0;
    return written;
}

}  // namespace

std::size_t AppendUTF16(uint32_t value, uint16_t *out) {
    uint16_t units[2];
    std::size_t n = 0;
    if (value < 0xD800 || (value >= 0xE000 && value <= 0xFFFF)) {
        units[n++] = static_cast<uint16_t>(value);
    } else if (value >= 0x10000 && value <= 0x10FFFF) {
        units[n++] = static_cast<uint16_t>(0xD800 + ((value - 0x10000) >> 10));
        units[n++] = static_cast<uint16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
    } else if (value > 0x10FFFF) {
        units[n++] = 0xFFFD;
    }
    if (out) {
        for (std::size_t i = 0; i < n; ++i) out[i] = units[i];
    }
    return n;
}

std::size_t ConvertUTF8ToUTF16(const uint8_t *bytes, std::size_t count, uint16_t *out) {
    return DecodeUTF8(bytes, count, out, AppendUTF16);
}

std::size_t ConvertUTF8ToUTF32(const uint8_t *bytes, std::size_t count, uint32_t *out) {
    return DecodeUTF8(bytes, count, out, [](uint32_t codePoint, uint32_t *at) -> std::size_t {
        if (at) *at = codePoint;
        return 1;
    });
}

std::size_t ConvertUTF16ToUTF32(const uint16_t *units, std::size_t count, uint32_t *out) {
    auto isHigh = [](uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; };
    auto isLow = [](uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; };
    std::size_t written = 0;
    auto put = [&](uint32_t value) {
        if (out) out[written] = value;
        ++written;
    };
    for (std::size_t i = 0; i < count; ++i) {
        const uint32_t c = units[i];
        const bool followed = i + 1 < count;
        if (isHigh(c) && followed) {
            const uint32_t d = units[++i];
            if (isLow(d)) put(0x10000 + ((c - 0xD800) << 10) + (d - 0xDC00));
        } else if (isLow(c) && followed) {
            ++i;
        } else {
            put(c);
        }
    }
    if (out) out[written] = 0;
    return written;
}

}  // namespace qvt
