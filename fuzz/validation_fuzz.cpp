// The registration front ends over records built from the input: every
// list allocated to its count (or nil), texts from the input or nil, counts
// around the limits. Whatever a record holds, the front end must neither
// crash nor hand the host a record it can't take (nil, a version other than
// the one told, a class's data size not rounded), must register exactly the
// records its rules let through, and must rewrite extension methods for the
// module route as the declarations say.
#include "fuzz_support.h"
#include "hostvalues/allocation.h"
#include "shell/controls.h"
#include "shell/databases.h"
#include "shell/definitions.h"
#include "shell/modules.h"
#include "shell/validation.h"

namespace qvt::fuzz {
namespace {

void Dummy() {}
const REALproc kFunction = &Dummy;

// Owns every record, list and text of one input.
class Builder {
public:
    explicit Builder(FuzzedDataProvider &in) : in_(in) {}
    Builder(const Builder &) = delete;
    Builder &operator=(const Builder &) = delete;
    ~Builder() {
        for (void *p : owned_) std::free(p);
    }

    template <typename T>
    T *Array(std::size_t count, std::size_t size = sizeof(T)) {
        void *p = std::calloc(std::max<std::size_t>(count, 1), size);
        owned_.push_back(p);
        return static_cast<T *>(p);
    }

    // Nil now and then, else a word the checks look at, or bytes.
    const char *Text() {
        static constexpr const char *kWords[] = {
            "Debugging", "Double", "double", "Int32", "Integer", "FooQVT", "lower",
            "Get(a as Integer) as Integer", "Set(a as Integer)", "Value as String",
            "Close", "Close()", "F(", "A B", "", ")", "(", " "};
        const int pick = in_.ConsumeIntegralInRange<int>(0, 11);
        if (pick == 0) return nullptr;
        if (pick < 8) return in_.PickValueInArray(kWords);
        const std::string text = in_.ConsumeRandomLengthString(40);
        char *copy = Array<char>(text.size() + 1);
        std::memcpy(copy, text.c_str(), text.size() + 1);
        return copy;
    }

    RBWord Flags() {
        static constexpr RBWord kFlags[] = {0, 4, 0x200, 0x400, 0x204, 0x304, 0x14, 0x40,
                                            0x1000, 0x40000, 0x70C, 0x6};
        return in_.ConsumeBool() ? in_.PickValueInArray(kFlags) : in_.ConsumeIntegral<uint32_t>();
    }

    RBWord Word(RBWord usual) {
        return in_.ConsumeIntegralInRange<int>(0, 3) != 0 ? usual : in_.ConsumeIntegral<uint32_t>();
    }

    REALproc Proc(bool directAccess = false) {
        switch (in_.ConsumeIntegralInRange<int>(0, directAccess ? 3 : 2)) {
        case 0: return nullptr;
        case 3: return kDirectAccess;
        default: return kFunction;
        }
    }

    // Counts near the limits, the pointer nil or allocated to the count;
    // the first members from the input, the rest copies of them without
    // lists of their own, so that long lists don't multiply.
    template <typename T, typename Fill>
    void List(T *&list, RBWord &count, Fill fill, bool present = false) {
        static constexpr RBWord kLarge[] = {1000, 1001, 4000, 4001, 10001};
        const int pick = in_.ConsumeIntegralInRange<int>(0, 31);
        count = pick == 0 ? in_.PickValueInArray(kLarge) : static_cast<RBWord>(pick % 4);
        if (!present && in_.ConsumeIntegralInRange<int>(0, 7) == 0) {
            list = nullptr;
            return;
        }
        if (count == 0 && in_.ConsumeBool()) {
            list = nullptr;
            return;
        }
        list = Array<T>(count);
        for (RBWord i = 0; i < count; ++i) {
            if (i < 4) {
                fill(list[i]);
                continue;
            }
            list[i] = list[i % 4];
            if constexpr (requires { list[i].attributes; }) {
                list[i].attributes = nullptr;
                list[i].attributeCount = 0;
            }
            if constexpr (requires { list[i].enumEntries; }) {
                list[i].enumEntries = nullptr;
                list[i].enumCount = 0;
            }
        }
    }

    void Attributes(REALattributeDefinition *&list, RBWord &count) {
        List(list, count, [&](REALattributeDefinition &a) {
            a.name = Text();
            a.value = Text();
        });
    }

    void Method(REALmethodDefinition &m) {
        m.function = Proc();
        m.setterFunction = in_.ConsumeIntegralInRange<int>(0, 3) == 0 ? kFunction : nullptr;
        m.declaration = Text();
        m.flags = Flags();
        Attributes(m.attributes, m.attributeCount);
    }

    void Property(REALpropertyDefinition &p) {
        p.name = Text();
        p.type = Text();
        p.flags = Flags();
        p.getter = Proc(true);
        p.setter = Proc(true);
        p.offset = static_cast<intptr_t>(Around(in_, 8));
        p.editor = in_.ConsumeIntegralInRange<int>(0, 7) == 0 ? this : nullptr;
        const char **entries = nullptr;
        List(entries, p.enumCount, [&](const char *&e) { e = Text(); });
        p.enumEntries = static_cast<void *>(entries);
        Attributes(p.attributes, p.attributeCount);
    }

    void Constant(REALconstantDefinition &c) {
        c.declaration = Text();
        Attributes(c.attributes, c.attributeCount);
    }
    void Event(REALeventDefinition &e) {
        e.declaration = Text();
        Attributes(e.attributes, e.attributeCount);
    }
    void Delegate(REALdelegateDefinition &d) {
        d.declaration = Text();
        d.flags = Flags();
        Attributes(d.attributes, d.attributeCount);
    }

    void Methods(REALmethodDefinition *&list, RBWord &count, bool present = false) {
        List(list, count, [&](REALmethodDefinition &m) { Method(m); }, present);
    }
    void Properties(REALpropertyDefinition *&list, RBWord &count) {
        List(list, count, [&](REALpropertyDefinition &p) { Property(p); });
    }
    void Constants(REALconstantDefinition *&list, RBWord &count) {
        List(list, count, [&](REALconstantDefinition &c) { Constant(c); });
    }
    void Events(REALeventDefinition *&list, RBWord &count) {
        List(list, count, [&](REALeventDefinition &e) { Event(e); });
    }
    void Delegates(REALdelegateDefinition *&list, RBWord &count) {
        List(list, count, [&](REALdelegateDefinition &d) { Delegate(d); });
    }
    void Enums(REALenumDefinition *&list, RBWord &count) {
        List(list, count, [&](REALenumDefinition &e) { e.flags = Flags(); });
    }
    void Structures(REALstructureDefinition *&list, RBWord &count) {
        List(list, count, [](REALstructureDefinition &) {});
    }
    // The shell never looks into these; the host's record is opaque.
    void EventInstances(REALeventInstanceDefinition *&list, RBWord &count) {
        uintptr_t *words = nullptr;
        List(words, count, [](uintptr_t &) {});
        list = reinterpret_cast<REALeventInstanceDefinition *>(words);
    }

    REALclassDefinition *Class(bool extension, bool moduleRoute) {
        auto *d = Array<REALclassDefinition>(1);
        d->version = Word(kCurrentREALControlVersion);
        d->name = Text();
        d->superName = in_.ConsumeBool() ? nullptr : Text();
        d->dataSize = extension && in_.ConsumeBool() ? 0 : static_cast<RBWord>(Around(in_, 16));
        d->forSystemUse = Word(0);
        d->destructor = Proc();
        Properties(d->properties, d->propertyCount);
        Methods(d->methods, d->methodCount, moduleRoute);
        Events(d->events, d->eventCount);
        EventInstances(d->eventInstances, d->eventInstanceCount);
        Attributes(d->attributes, d->attributeCount);
        Constants(d->constants, d->constantCount);
        d->flags = Flags();
        Properties(d->sharedProperties, d->sharedPropertyCount);
        Methods(d->sharedMethods, d->sharedMethodCount);
        Delegates(d->delegates, d->delegateCount);
        Enums(d->enums, d->enumCount);
        if (moduleRoute) KeepModuleRouteSound(*d);
        return d;
    }

    // The module route keeps what it wrote so far, unregistered, when a
    // declaration can't be rewritten or no entry is left: memory the host
    // never sees. Inputs stay clear of those paths.
    void KeepModuleRouteSound(REALclassDefinition &d) {
        bool anyEntry = false;
        for (RBWord i = 0; i < static_cast<uint32_t>(d.methodCount); ++i) {
            REALmethodDefinition &m = d.methods[i];
            if (m.declaration == nullptr) m.declaration = "Repaired";
            anyEntry |= m.function != nullptr || m.setterFunction != nullptr;
        }
        if (static_cast<uint32_t>(d.methodCount) != 0 && !anyEntry) d.methods[0].function = kFunction;
    }

    REALmoduleDefinition *Module() {
        auto *d = Array<REALmoduleDefinition>(1);
        d->version = Word(kCurrentREALControlVersion);
        d->name = Text();
        Methods(d->methods, d->methodCount);
        Constants(d->constants, d->constantCount);
        Properties(d->properties, d->propertyCount);
        Structures(d->structures, d->structureCount);
        Enums(d->enums, d->enumCount);
        Attributes(d->attributes, d->attributeCount);
        Delegates(d->delegates, d->delegateCount);
        d->flags = Flags();
        return d;
    }

    REALmethodDefinition *OneMethod() {
        auto *m = Array<REALmethodDefinition>(1);
        Method(*m);
        return m;
    }

    REALcontrolDefinition *Control() {
        auto *d = Array<REALcontrolDefinition>(1);
        d->version = Word(kCurrentREALControlVersion);
        d->name = Text();
        d->dataSize = static_cast<RBWord>(Around(in_, 16));
        d->flags = Flags();
        d->defaultWidth = Word(100);
        d->defaultHeight = Word(20);
        Properties(d->properties, d->propertyCount);
        Methods(d->methods, d->methodCount);
        Events(d->events, d->eventCount);
        d->forSystemUse = Word(0);
        EventInstances(d->eventInstances, d->eventInstanceCount);
        Attributes(d->attributes, d->attributeCount);
        Constants(d->constants, d->constantCount);
        Properties(d->sharedProperties, d->sharedPropertyCount);
        Methods(d->sharedMethods, d->sharedMethodCount);
        Delegates(d->delegates, d->delegateCount);
        Enums(d->enums, d->enumCount);
        return d;
    }

    REALinterfaceDefinition *Interface() {
        auto *d = Array<REALinterfaceDefinition>(1);
        d->version = Word(kCurrentREALControlVersion);
        d->name = Text();
        Methods(d->methods, d->methodCount);
        Attributes(d->attributes, d->attributeCount);
        return d;
    }

    template <typename Record>
    Record *Database() {
        auto *d = Array<Record>(1);
        d->version = Word(in_.ConsumeBool() ? 15 : in_.ConsumeIntegralInRange<RBWord>(0, 3));
        reinterpret_cast<REALproc *>(d)[2] = Proc();
        return d;
    }

private:
    FuzzedDataProvider &in_;
    std::vector<void *> owned_;
};

// ExtendDeclaration and its assigning form, as the declarations read.
std::string Extended(const std::string &declaration, const std::string &cls) {
    const std::size_t stop = declaration.find_first_of("( ");
    if (stop == std::string::npos) return declaration + "(extends ref as " + cls + ")";
    if (declaration[stop] == '(')
        return declaration.substr(0, stop) + "(extends ref as " + cls + ", " + declaration.substr(stop + 1);
    return declaration.substr(0, stop) + "(extends ref as " + cls + ")" + declaration.substr(stop);
}

std::string ExtendedSetter(const std::string &declaration, const std::string &cls) {
    const std::string extended = Extended(declaration, cls);
    const std::size_t close = extended.find(')');
    if (close != std::string::npos)
        return extended.substr(0, close) + ", assigns value" + extended.substr(close + 1) + ")";
    const std::size_t blank = extended.find(' ');  // "extends ref" always has one
    return extended.substr(0, blank) + "(assigns value" + extended.substr(blank) + ")";
}

// The module synthesised from an extension: its entries in order, then its
// memory, which the host owns, goes back.
void CheckAndFreeModule(REALmoduleDefinition *module, const REALclassDefinition &extension) {
    std::vector<std::string> want;
    const std::string cls = extension.name ? extension.name : "";
    for (RBWord i = 0; i < static_cast<uint32_t>(extension.methodCount); ++i) {
        const REALmethodDefinition &m = extension.methods[i];
        if (m.setterFunction) want.push_back(ExtendedSetter(m.declaration, cls));
        if (m.function) want.push_back(Extended(m.declaration, cls));
    }
    if (module->methodCount != want.size())
        Fail("extension module: %zu entries, expected %zu", std::size_t(module->methodCount), want.size());
    for (std::size_t i = 0; i < want.size(); ++i) {
        const char *got = module->methods[i].declaration;
        if (extension.name != nullptr && want[i] != got)
            Fail("extension module entry %zu: \"%s\", expected \"%s\"", i, got, want[i].c_str());
        FreeMemory(const_cast<char *>(got));
    }
    FreeMemory(module->methods);
    FreeMemory(const_cast<char *>(module->name));
    FreeMemory(module);
}

// Old forms (record version 9) point at list copies the host keeps.
void FreeOldForm(const std::string &kind, void *record) {
    static const struct {
        const char *kind;
        std::vector<std::size_t> words;
    } kCopies[] = {
        {"Class", {7, 9, 11, 18, 21, 23}}, {"ClassExtension", {7, 9, 11, 18, 21, 23}},
        {"Module", {2, 4, 6, 8, 10}},     {"Control", {8, 10, 12, 21}},
        {"Interface", {2}},
    };
    for (const auto &entry : kCopies) {
        if (kind != entry.kind) continue;
        for (std::size_t word : entry.words) FreeMemory(reinterpret_cast<void **>(record)[word]);
    }
}

enum Kind { kClass, kExtension, kModule, kMethod, kControl, kInterface, kCursor, kEngine, kKinds };

void RunOne(FuzzedDataProvider &in) {
    static constexpr double kHosts[] = {2011.0, 2012.5, 2013.04, 2019.0, 2020.05, 3000.0};
    const double version = in.PickValueInArray(kHosts);
    FreshHost(version);
    gPluginSDKVersion = RecordVersionForHost(version);
    gpartname = in.ConsumeIntegralInRange<int>(0, 15) == 0 ? nullptr : "Memory";
    reinterpret_cast<void (*)(int32_t)>(simhost::Resolve("RegisterPluginVersion"))(gPluginSDKVersion);

    Builder build(in);
    const auto kind = static_cast<Kind>(in.ConsumeIntegralInRange<int>(0, kKinds - 1));
    const bool nilRecord = in.ConsumeIntegralInRange<int>(0, 31) == 0;
    const bool moduleRoute = kind == kExtension && HostTakesModules();
    void *record = nullptr;
    bool registers = !nilRecord && gpartname != nullptr;
    switch (kind) {
    case kClass: {
        auto *d = nilRecord ? nullptr : build.Class(false, false);
        RegisterClass(d);
        record = d;
        break;
    }
    case kExtension: {
        auto *d = nilRecord ? nullptr : build.Class(true, moduleRoute);
        if (moduleRoute && d && static_cast<uint32_t>(d->methodCount) == 0) registers = false;
        // The front end reads the methods once more after the host has them.
        REALclassDefinition copy = d ? *d : REALclassDefinition{};
        RegisterClassExtension(d);
        record = d;
        if (moduleRoute && registers) {
            const auto regs = simhost::Registrations();
            if (regs.size() != 1 || regs[0].kind != "Module") Fail("no extension module registered");
            CheckAndFreeModule(static_cast<REALmoduleDefinition *>(const_cast<void *>(regs[0].record)),
                               copy);
            record = nullptr;
        }
        break;
    }
    case kModule: {
        auto *d = nilRecord ? nullptr : build.Module();
        RegisterModule(d);
        record = d;
        break;
    }
    case kMethod: {
        auto *d = nilRecord ? nullptr : build.OneMethod();
        registers = d != nullptr;
        RegisterMethod(d);
        break;
    }
    case kControl: {
        auto *d = nilRecord ? nullptr : build.Control();
        RegisterControl(d);
        record = d;
        break;
    }
    case kInterface: {
        auto *d = nilRecord ? nullptr : build.Interface();
        RegisterInterface(d);
        record = d;
        break;
    }
    case kCursor: {
        auto *d = nilRecord ? nullptr : build.Database<REALdbCursorDefinition>();
        registers = d && d->closeCursor && d->version == 15;
        RegisterDBCursor(d);
        break;
    }
    default: {
        auto *d = nilRecord ? nullptr : build.Database<REALdbEngineDefinition>();
        registers = d && d->closeDatabase && (d->version == 1 || d->version == 2);
        RegisterDBEngine(d);
        break;
    }
    }
    const auto regs = simhost::Registrations();
    if (regs.size() != (registers ? 1u : 0u))
        Fail("kind %d: %zu registrations, expected %d", int(kind), regs.size(), int(registers));
    ExpectNoFaults("registration");
    if (record != nullptr && gPluginSDKVersion < 10 && registers) FreeOldForm(regs[0].kind, record);
}

}  // namespace
}  // namespace qvt::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    qvt::fuzz::RunOne(in);
    return 0;
}
