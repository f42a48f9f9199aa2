// Host strings: building, labelling, converting, and their bytes.
#include <algorithm>
#include <cctype>

#include "simhost/codec.h"
#include "simhost/state.h"

namespace simhost::detail {

namespace {

bool IsUTF32Family(uint32_t id) {
    return id == hostabi::kEncodingUTF32 || id == 0x18000100 || id == 0x1C000100;
}

std::string EncodingArg(uint32_t encoding) { return "encoding=" + std::to_string(encoding); }

}  // namespace

bool HostConvert(std::string_view bytes, uint32_t from, uint32_t to, std::string &out) {
    // Hosts before 2013.0 know no UTF-32.
    if (State().options.version < 2013.0 && (IsUTF32Family(from) || IsUTF32Family(to))) {
        return false;
    }
    return ConvertText(bytes, from, to, out);
}

namespace {

REALstring Build(const char *entry, const void *bytes, int32_t length, uint32_t encoding) {
    if (length < 0) {
        Fault(std::string(entry) + ": negative length " + std::to_string(length));
        return nullptr;
    }
    if (bytes == nullptr && length > 0) {
        Fault(std::string(entry) + ": nil bytes with length " + std::to_string(length));
        return nullptr;
    }
    std::string_view view(static_cast<const char *>(bytes), bytes != nullptr ? length : 0);
    return OrShortfall(entry, view.size(), REALstring{},
                       [&] { return HandleOf(NewStringRecord(view, encoding)); });
}

std::string BuildArgs(const void *bytes, int32_t length) {
    std::string shown =
        bytes != nullptr && length > 0
            ? Quote({static_cast<const char *>(bytes), static_cast<std::size_t>(length)})
            : "nil";
    return "bytes=" + shown + " length=" + std::to_string(length);
}

REALstring REALBuildString(const void *bytes, int32_t length) {
    HostLock lock(State().mutex);
    if (!PlainHost()) {
        CheckPresent("REALBuildString");
        LogCall("REALBuildString", BuildArgs(bytes, length));
        if (Failing("REALBuildString")) return nullptr;
    }
    return Build("REALBuildString", bytes, length, hostabi::kEncodingUnknown);
}

REALstring REALBuildStringWithEncoding(const void *bytes, int32_t length, uint32_t encoding) {
    HostLock lock(State().mutex);
    // A plain host would make the argument text only to drop it.
    if (!PlainHost()) {
        CheckPresent("REALBuildStringWithEncoding");
        LogCall("REALBuildStringWithEncoding", BuildArgs(bytes, length) + " " + EncodingArg(encoding));
        if (Failing("REALBuildStringWithEncoding")) return nullptr;
    }
    return Build("REALBuildStringWithEncoding", bytes, length, encoding);
}

REALstring REALConvertString(REALstring handle, uint32_t encoding) {
    HostLock lock(State().mutex);
    CheckPresent("REALConvertString");
    LogCall("REALConvertString", NameOfString(handle) + " " + EncodingArg(encoding));
    if (Failing("REALConvertString")) return nullptr;
    StringRecord *s = UseString("REALConvertString", handle);
    if (s == nullptr) return nullptr;
    return OrShortfall("REALConvertString", s->length, REALstring{}, [&]() -> REALstring {
        std::string converted;
        if (!HostConvert(s->Bytes(), s->encoding, encoding, converted)) return nullptr;
        return HandleOf(NewStringRecord(converted, encoding));
    });
}

void REALSetStringEncoding(REALstring handle, uint32_t encoding) {
    HostLock lock(State().mutex);
    CheckPresent("REALSetStringEncoding");
    LogCall("REALSetStringEncoding", NameOfString(handle) + " " + EncodingArg(encoding));
    if (StringRecord *s = UseString("REALSetStringEncoding", handle)) s->encoding = encoding;
}

uint32_t REALGetStringEncoding(REALstring handle) {
    HostLock lock(State().mutex);
    CheckPresent("REALGetStringEncoding");
    LogCall("REALGetStringEncoding", NameOfString(handle));
    StringRecord *s = UseString("REALGetStringEncoding", handle);
    return s != nullptr ? s->encoding : hostabi::kEncodingUnknown;
}

const char *StringGetCString(REALstring handle) {
    if (StringRecord *s = FastString(handle)) return s->storage.data();
    HostLock lock(State().mutex);
    CheckPresent("StringGetCString");
    LogCall("StringGetCString", NameOfString(handle));
    if (Failing("StringGetCString")) return nullptr;
    StringRecord *s = UseString("StringGetCString", handle);
    return s != nullptr ? s->storage.data() : nullptr;
}

RBInteger LenB(REALstring handle) {
    if (StringRecord *s = FastString(handle)) return static_cast<RBInteger>(s->length);
    HostLock lock(State().mutex);
    LogCall("LenB", NameOfString(handle));
    StringRecord *s = UseString("LenB", handle);
    return s != nullptr ? static_cast<RBInteger>(s->length) : 0;
}

std::string Squeezed(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return out;
}

void *REALLoadGlobalMethod(const char *module, const char *declaration) {
    HostLock lock(State().mutex);
    CheckPresent("REALLoadGlobalMethod");
    std::string args = "module=" + (module != nullptr ? Quote(module) : std::string("nil")) +
                       " declaration=" + (declaration != nullptr ? Quote(declaration) : "nil");
    LogCall("REALLoadGlobalMethod", std::move(args));
    if (module != nullptr || declaration == nullptr) return nullptr;
    // The host's compiler reads declarations without regard to case or blanks.
    if (Squeezed(declaration) == "lenb(sasstring)asinteger") return EntryAddress(&LenB);
    return nullptr;
}

REALstring RuntimeAddString(REALstring first, REALstring second) {
    HostLock lock(State().mutex);
    CheckPresent("RuntimeAddString");
    LogCall("RuntimeAddString", NameOfString(first) + " " + NameOfString(second));
    bool bad1 = false, bad2 = false;
    StringRecord *a = UseString("RuntimeAddString", first, &bad1);
    StringRecord *b = UseString("RuntimeAddString", second, &bad2);
    if (bad1 || bad2) return nullptr;
    uint32_t encoding = a != nullptr   ? a->encoding
                        : b != nullptr ? b->encoding
                                       : hostabi::kEncodingUTF8;
    const std::size_t size = (a != nullptr ? a->length : 0) + (b != nullptr ? b->length : 0);
    return OrShortfall("RuntimeAddString", size, REALstring{}, [&]() -> REALstring {
        std::string joined(a != nullptr ? a->Bytes() : std::string_view{});
        if (b != nullptr) {
            std::string tail(b->Bytes());
            if (b->encoding != encoding && !HostConvert(b->Bytes(), b->encoding, encoding, tail)) {
                return nullptr;
            }
            joined += tail;
        }
        return HandleOf(NewStringRecord(joined, encoding));
    });
}

const Entry kEntries[] = {
    {"REALBuildString", EntryAddress(&REALBuildString)},
    {"REALBuildStringWithEncoding", EntryAddress(&REALBuildStringWithEncoding), 2012.0},
    {"REALConvertString", EntryAddress(&REALConvertString)},
    {"REALSetStringEncoding", EntryAddress(&REALSetStringEncoding)},
    {"REALGetStringEncoding", EntryAddress(&REALGetStringEncoding)},
    {"StringGetCString", EntryAddress(&StringGetCString)},
    {"REALLoadGlobalMethod", EntryAddress(&REALLoadGlobalMethod)},
    {"RuntimeAddString", EntryAddress(&RuntimeAddString)},
};

}  // namespace

std::span<const Entry> StringEntries() { return kEntries; }

}  // namespace simhost::detail

namespace simhost {

using namespace detail;

REALstring NewString(std::string_view bytes, uint32_t encoding) {
    HostLock lock(State().mutex);
    return HandleOf(NewStringRecord(bytes, encoding));
}

namespace {

const StringRecord *Peek(REALstring handle) {
    const StringRecord *s = FindString(handle);
    return s == nullptr || s->ended ? nullptr : s;
}

}  // namespace

std::string StringBytes(REALstring handle) {
    HostLock lock(State().mutex);
    const StringRecord *s = Peek(handle);
    return s != nullptr ? std::string(s->Bytes()) : std::string();
}

uint32_t StringEncoding(REALstring handle) {
    HostLock lock(State().mutex);
    const StringRecord *s = Peek(handle);
    return s != nullptr ? s->encoding : hostabi::kEncodingUnknown;
}

std::optional<std::string> StringUTF8(REALstring handle) {
    HostLock lock(State().mutex);
    const StringRecord *s = Peek(handle);
    if (s == nullptr) return handle == nullptr ? std::optional<std::string>("") : std::nullopt;
    std::string out;
    if (!HostConvert(s->Bytes(), s->encoding, hostabi::kEncodingUTF8, out)) return std::nullopt;
    return out;
}

}  // namespace simhost
