#include "invoke.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

namespace qvthost {

namespace {

using Word = uintptr_t;

// The longest declaration the plug-in registers has twelve parameters with
// its receiver, one of them a Double that takes two slots on 32-bit x86.
constexpr std::size_t kMaxSlots = 14;
constexpr std::size_t kNone = ~std::size_t{0};

// On 32-bit x86 every argument is a run of 4-byte stack slots, so a 64-bit
// integer or a Double is two words and a Single one, in memory order.
#if defined(__i386__) || defined(_M_IX86)
constexpr bool kStackSlots = true;
#else
constexpr bool kStackSlots = false;
#endif

// The words of a call and at most one argument of another class, which the
// callee's type must name at its place.
struct Frame {
    std::array<Word, kMaxSlots> words{};
    std::size_t count = 0;
    std::size_t special = kNone;
    Slot kind = Slot::Word;
    double real = 0;
    float single = 0;
    int64_t wide = 0;
};

template <bool IsSpecial, typename S>
auto Pick(const Frame &frame, std::size_t index) {
    if constexpr (!IsSpecial) {
        return frame.words[index];
    } else if constexpr (std::is_same_v<S, double>) {
        return frame.real;
    } else if constexpr (std::is_same_v<S, float>) {
        return frame.single;
    } else {
        return frame.wide;
    }
}

// The callee is called through a type that differs from its own only where
// the platform's calling convention cannot tell the two apart.
template <typename R, typename S, std::size_t P, std::size_t... I>
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
R CallWith(REALproc function, const Frame &frame, std::index_sequence<I...>) {
    using Function = R (*)(std::conditional_t<I == P, S, Word>...);
    return reinterpret_cast<Function>(function)(Pick<I == P, S>(frame, I)...);
}

// Shape k is n words with the special one at p (p == n: none), k = n(n+1)/2 + p.
struct Shape {
    std::size_t count, special;
};
constexpr Shape Decode(std::size_t k) {
    std::size_t n = 0;
    while (k > n) k -= ++n;
    return {n, k};
}
constexpr std::size_t kShapes = (kMaxSlots + 1) * (kMaxSlots + 2) / 2;

template <typename R, typename S, std::size_t K>
R Entry(REALproc function, const Frame &frame) {
    constexpr Shape shape = Decode(K);
    return CallWith<R, S, shape.special>(function, frame, std::make_index_sequence<shape.count>{});
}

template <typename R, typename S, std::size_t... K>
constexpr auto MakeTable(std::index_sequence<K...>) {
    return std::array<R (*)(REALproc, const Frame &), sizeof...(K)>{&Entry<R, S, K>...};
}

template <typename R, typename S>
R CallAs(REALproc function, const Frame &frame, std::size_t shape) {
    static constexpr auto kTable = MakeTable<R, S>(std::make_index_sequence<kShapes>{});
    return kTable[shape](function, frame);
}

template <typename R>
R Dispatch(REALproc function, const Frame &frame) {
    const std::size_t n = frame.count;
    const std::size_t shape = n * (n + 1) / 2 + (frame.special == kNone ? n : frame.special);
    if constexpr (sizeof(Word) < 8 && !kStackSlots) {
        if (frame.kind == Slot::Long) return CallAs<R, int64_t>(function, frame, shape);
    }
    if (frame.kind == Slot::Single) return CallAs<R, float>(function, frame, shape);
    return CallAs<R, double>(function, frame, shape);
}

template <typename R>
Returned Read(REALproc function, const Frame &frame) {
    if constexpr (std::is_void_v<R>) {
        Dispatch<R>(function, frame);
        return {};
    } else if constexpr (std::is_floating_point_v<R>) {
        return {0, static_cast<double>(Dispatch<R>(function, frame))};
    } else if constexpr (sizeof(R) < sizeof(Word)) {
        // A narrow result is widened in its register by the callee's own type
        // on 32-bit Arm, where a caller of another type trusts it as is: the
        // whole register is read and cut to the result's width here.
        return {static_cast<uint64_t>(static_cast<R>(Dispatch<Word>(function, frame))), 0};
    } else {
        return {static_cast<uint64_t>(Dispatch<R>(function, frame)), 0};
    }
}

bool Push(Frame &frame, const void *bytes, std::size_t size) {
    const std::size_t words = (size + sizeof(Word) - 1) / sizeof(Word);
    if (frame.count + words > kMaxSlots) return false;
    std::memcpy(&frame.words[frame.count], bytes, size);
    frame.count += words;
    return true;
}

}  // namespace

std::optional<Returned> Invoke(REALproc function, Returns returns,
                               std::span<const Argument> arguments, std::string &error) {
    Frame frame;
    for (const Argument &argument : arguments) {
        const bool wideWord = argument.slot == Slot::Long && sizeof(Word) >= 8;
        bool fits = true;
        if (argument.slot == Slot::Word || wideWord) {
            const Word word = static_cast<Word>(argument.bits);
            fits = Push(frame, &word, sizeof word);
        } else if (kStackSlots) {
            const float single = static_cast<float>(argument.real);
            fits = argument.slot == Slot::Long     ? Push(frame, &argument.bits, 8)
                   : argument.slot == Slot::Double ? Push(frame, &argument.real, 8)
                                                   : Push(frame, &single, sizeof single);
        } else if (frame.special != kNone || frame.count == kMaxSlots) {
            error =
                "this platform calls no declaration with more than one Double, Single or "
                "64-bit parameter";
            return std::nullopt;
        } else {
            frame.special = frame.count++;
            frame.kind = argument.slot;
            frame.real = argument.real;
            frame.single = static_cast<float>(argument.real);
            frame.wide = static_cast<int64_t>(argument.bits);
        }
        if (!fits) {
            error = "a declaration with this many parameters cannot be called";
            return std::nullopt;
        }
    }
    // In the order of Returns.
    static constexpr Returned (*kRead[])(REALproc, const Frame &) = {
        &Read<void>,     &Read<uint8_t>, &Read<uint16_t>, &Read<uint32_t>,
        &Read<uint64_t>, &Read<Word>,    &Read<double>,   &Read<float>};
    return kRead[static_cast<std::size_t>(returns)](function, frame);
}

}  // namespace qvthost
