#include "shell/validation.h"

#include <cctype>
#include <cstddef>
#include <cstring>
#include <span>

#include "diagnostics/debuglog.h"
#include "hostvalues/allocation.h"
#include "shell/binding.h"
#include "shell/definitions.h"
#include "shell/entry.h"
#include "shell/fixups.h"
#include "shell/modules.h"

namespace qvt {

namespace {

constexpr std::size_t kWord = sizeof(uintptr_t);
constexpr uint32_t kListLimit = 1000;
constexpr uint32_t kClassConstantLimit = 4000;
constexpr uint32_t kMemberAttributeLimit = 1000;
constexpr uint32_t kValidatorLimit = 10000;

uint32_t Count(RBWord count) { return static_cast<uint32_t>(count); }
// Counts and flags are printed as the signed 32-bit numbers the messages show.
int Shown(RBWord value) { return static_cast<int>(static_cast<uint32_t>(value)); }

bool IsDirectAccess(REALproc function) { return function == kDirectAccess; }

bool EqualsIgnoringCase(const char *a, const char *b) {
    for (; *a && *b; ++a, ++b) {
        if (std::tolower(static_cast<unsigned char>(*a)) !=
            std::tolower(static_cast<unsigned char>(*b)))
            return false;
    }
    return *a == *b;
}

// Messages of a list of declared members; nilArray nil means that a nil
// array passes silently, the front end's pair rule having reported it.
struct DeclaredListTexts {
    const char *countOutOfRange;
    const char *nilArray;
    const char *nilDeclaration;
    const char *wrongAttributeCount;
};

template <typename Record, typename MoreChecks>
void CheckDeclaredList(const DeclaredListTexts &texts, const char *owner, const Record *list,
                       RBWord count, MoreChecks moreChecks) {
    if (Count(count) > kValidatorLimit) {
        DebugLog(texts.countOutOfRange, owner, Shown(count));
        return;
    }
    if (Count(count) == 0) return;
    if (list == nullptr) {
        if (texts.nilArray != nullptr) DebugLog(texts.nilArray, owner, 0);
        return;
    }
    for (uint32_t i = 0; i < Count(count); ++i) {
        const Record &record = list[i];
        if (record.declaration == nullptr) {
            DebugLog(texts.nilDeclaration, owner, static_cast<int>(i));
        }
        moreChecks(record);
        if (!ListIsRight(record.attributes, record.attributeCount, kMemberAttributeLimit)) {
            DebugLog(texts.wrongAttributeCount, owner, record.declaration,
                     Shown(record.attributeCount));
        }
        CheckAttributes(owner, record.declaration, record.attributes, record.attributeCount);
    }
}

const char *MemberName(const REALmethodDefinition &method) { return method.declaration; }
const char *MemberName(const REALpropertyDefinition &property) { return property.name; }

bool IsConsoleUnsafe(RBWord flags) { return Count(flags) != 0 && Count(flags) != kFlagConsoleSafe; }

template <typename Record>
void ReportByTarget(const char *text, const char *owner, const Record *list, RBWord count,
                    uint32_t target, bool reportEqual, const char *spared) {
    if (!ListHasMembers(list, count)) return;
    for (uint32_t i = 0; i < Count(count); ++i) {
        const char *member = MemberName(list[i]);
        if (spared != nullptr && member != nullptr && std::strcmp(member, spared) == 0) continue;
        if (((list[i].flags & kFlagTargetMask) == target) == reportEqual) {
            DebugLogStrings(text, owner, member);
        }
    }
}

// The property exempt from the check of shared properties.
constexpr const char kDebuggingName[] = "Debugging";

}  // namespace

bool ListIsRight(const void *list, RBWord count, uint32_t limit) {
    if (list == nullptr && Count(count) == 0) return true;
    return list != nullptr && Count(count) != 0 && Count(count) <= limit;
}

void CheckLists(const void *record, const char *name, std::span<const ListRule> rules) {
    auto bytes = static_cast<const unsigned char *>(record);
    for (const ListRule &rule : rules) {
        void *list = nullptr;
        RBWord count = 0;
        std::memcpy(&list, bytes + rule.offset, kWord);
        std::memcpy(&count, bytes + rule.offset + kWord, kWord);
        if (!ListIsRight(list, count, rule.limit)) DebugLog(rule.message, name, Shown(count));
    }
}

void ReportMembersByTarget(const char *text, const char *owner, const REALmethodDefinition *list,
                           RBWord count, uint32_t target, bool reportEqual) {
    ReportByTarget(text, owner, list, count, target, reportEqual, nullptr);
}

void ReportMembersByTarget(const char *text, const char *owner,
                           const REALpropertyDefinition *list, RBWord count, uint32_t target,
                           bool reportEqual, const char *spared) {
    ReportByTarget(text, owner, list, count, target, reportEqual, spared);
}

void CheckRecordVersion(const char *kind, const char *name, RBWord version, uint32_t alsoRight) {
    if (Count(version) != kCurrentREALControlVersion && Count(version) != alsoRight) {
        DebugLog("Error: The %s %s has the wrong kCurrentREALControlVersion: %d vs. %d", kind, name,
                 Shown(version), kCurrentREALControlVersion);
    }
}

void CheckForSystemUse(const char *kind, const char *name, RBWord forSystemUse) {
    if (Count(forSystemUse) != 0) {
        DebugLog("Error: The %s %s has the wrong forSystemUse value: %d", kind, name,
                 Shown(forSystemUse));
    }
}

void CheckAttributes(const char *prefix, const char *owner,
                     const REALattributeDefinition *attributes, RBWord count) {
    if (Count(count) > kValidatorLimit) {
        DebugLog("Error: attribute count out of range for %s.%s: %d.", prefix, owner, Shown(count));
        count = 0;
    }
    if (attributes == nullptr || Count(count) == 0) return;
    for (uint32_t i = 0; i < Count(count); ++i) {
        const int index = static_cast<int>(i);
        if (attributes[i].name == nullptr) {
            DebugLog("Error: %s.%s has an attribute without name! Index: %d", prefix, owner, index);
        }
        if (attributes[i].value == nullptr) {
            DebugLog("Error: %s.%s has an attribute without value! Name: %s Index: %d", prefix,
                     owner, attributes[i].name, index);
        }
    }
}

void CheckMethods(const char *owner, const REALmethodDefinition *methods, RBWord count) {
    static constexpr DeclaredListTexts kTexts = {
        "Error: method count out of range for %s: %d.",
        "Error: method %s.%d is NULL.",
        "Error: The method %s.%d has nil declaration.",
        "Error: The method %s.%s has the wrong attributeCount value: %d",
    };
    CheckDeclaredList(kTexts, owner, methods, count, [owner](const REALmethodDefinition &method) {
        if (method.function == nullptr) {
            DebugLog("Error: The method %s.%s has nil function.", owner, method.declaration);
        }
    });
}

void CheckConstants(const char *owner, const REALconstantDefinition *constants, RBWord count) {
    static constexpr DeclaredListTexts kTexts = {
        "Error: constant count out of range for %s: %d.",
        "Error: Constant %s.%d is NULL.",
        "Error: The constant %s.%d has nil declaration.",
        "Error: The constant %s.%s has the wrong attributeCount value: %d",
    };
    CheckDeclaredList(kTexts, owner, constants, count, [](const REALconstantDefinition &) {});
}

void CheckEvents(const char *owner, const REALeventDefinition *events, RBWord count) {
    static constexpr DeclaredListTexts kTexts = {
        "Error: event count out of range for %s: %d.",
        nullptr,
        "Error: The event %s.%d has nil declaration.",
        "Error: The event %s.%s has the wrong attributeCount value: %d",
    };
    CheckDeclaredList(kTexts, owner, events, count, [](const REALeventDefinition &) {});
}

void CheckDelegates(const char *owner, const REALdelegateDefinition *delegates, RBWord count) {
    static constexpr DeclaredListTexts kTexts = {
        "Error: delegate count out of range for %s: %d.",
        nullptr,
        "Error: The delegate %s.%d has nil declaration.",
        "Error: The delegate %s.%s has the wrong attributeCount value: %d",
    };
    CheckDeclaredList(kTexts, owner, delegates, count,
                      [owner](const REALdelegateDefinition &delegate) {
                          if (Count(delegate.flags) == 0) {
                              DebugLog("Warning: The delegate %s.%s has 0 for flags.", owner,
                                       delegate.declaration);
                          }
                      });
}

void CheckProperties(const char *owner, const REALpropertyDefinition *properties, RBWord count) {
    if (Count(count) > kValidatorLimit) {
        DebugLog("Error: property count out of range for %s: %d.", owner, Shown(count));
        return;
    }
    if (Count(count) == 0 || properties == nullptr) return;
    for (uint32_t i = 0; i < Count(count); ++i) {
        const REALpropertyDefinition &p = properties[i];
        const int index = static_cast<int>(i);
        if (p.name == nullptr) DebugLog("Error: The property %s.%d has nil name.", owner, index);
        if (p.getter == nullptr) {
            DebugLog("Error: The property %s.%s has nil getter.", owner, p.name);
        }
        if (p.type == nullptr) {
            DebugLog("Error: The property %s.%d has nil type.", owner, index);
        } else if (EqualsIgnoringCase(p.type, "double")) {
            // The host cannot read or write a double at an offset by itself.
            if (IsDirectAccess(p.getter)) {
                DebugLog("Error: The property %s.%s needs custom getter.", owner, p.name);
            }
            if (IsDirectAccess(p.setter)) {
                DebugLog("Error: The property %s.%s needs custom setter.", owner, p.name);
            }
        } else {
            const int32_t offset = static_cast<int32_t>(p.offset);
            for (REALproc accessor : {p.getter, p.setter}) {
                if (IsDirectAccess(accessor) && offset % 4 != 0) {
                    DebugLog("Error: The property %s.%s has unaligned offset %d.", owner, p.name,
                             offset);
                }
            }
        }
        if (p.editor != nullptr) DebugLog("Error: The property %s.%s has editor.", owner, p.name);
        if (!ListIsRight(p.enumEntries, p.enumCount, kMemberAttributeLimit)) {
            DebugLog("Error: The property %s.%s has wrong enumCount: %d", owner, p.name,
                     Shown(p.enumCount));
        }
        if (!ListIsRight(p.attributes, p.attributeCount, kMemberAttributeLimit)) {
            DebugLog("Error: The property %s.%s has attributes: %d", owner, p.name,
                     Shown(p.attributeCount));
        }
        CheckAttributes(owner, p.name, p.attributes, p.attributeCount);
    }
}

void CheckClassMembers(const REALclassDefinition *d) {
    if (IsConsoleUnsafe(d->flags)) {
        ReportMembersByTarget("Console-safe method in console-unsafe class: ", d->name, d->methods,
                              d->methodCount, kFlagConsoleSafe, true);
        ReportMembersByTarget("Console-safe shared method in console-unsafe class: ", d->name,
                              d->sharedMethods, d->sharedMethodCount, kFlagConsoleSafe, true);
        ReportMembersByTarget("Console-safe property in console-unsafe class: ", d->name,
                              d->properties, d->propertyCount, kFlagConsoleSafe, true);
        ReportMembersByTarget("Console-safe shared property in console-unsafe class: ", d->name,
                              d->sharedProperties, d->sharedPropertyCount, kFlagConsoleSafe, true,
                              kDebuggingName);
    }
    CheckVariableOffsets(d->name, d->properties, d->propertyCount, d->dataSize);
}

void CheckVariableOffsets(const char *owner, const REALpropertyDefinition *properties,
                          RBWord count, RBWord dataSize) {
    if (!ListHasMembers(properties, count)) return;
    for (uint32_t i = 0; i < Count(count); ++i) {
        const REALpropertyDefinition &p = properties[i];
        if (!IsDirectAccess(p.getter) && !IsDirectAccess(p.setter)) continue;
        const int32_t offset = static_cast<int32_t>(p.offset);
        const int64_t end = int64_t{offset} + 4;
        if (end >= 0 && end > int64_t{Count(dataSize)}) {
            DebugLog("Error: Offset for variable too big: %s.%s %d %d", owner, p.name, offset,
                     Shown(dataSize));
        }
    }
}

void CheckModuleMembers(const REALmoduleDefinition *d) {
    if (!IsConsoleUnsafe(d->flags)) return;
    ReportMembersByTarget("Console-safe method in console-unsafe module: ", d->name, d->methods,
                          d->methodCount, kFlagConsoleSafe, true);
    ReportMembersByTarget("Console-safe property in console-unsafe module: ", d->name,
                          d->properties, d->propertyCount, kFlagConsoleSafe, true);
}

void RegisterClass(REALclassDefinition *d) {
    using C = REALclassDefinition;
    static constexpr ListRule kLists[] = {
        {offsetof(C, properties), kListLimit,
         "Error: The class %s has the wrong propertyCount value: %d"},
        {offsetof(C, methods), kListLimit,
         "Error: The class %s has the wrong methodCount value: %d"},
        {offsetof(C, events), kListLimit, "Error: The class %s has the wrong eventCount value: %d"},
        {offsetof(C, eventInstances), kListLimit,
         "Error: The class %s has the wrong eventInstanceCount value: %d"},
        {offsetof(C, constants), kClassConstantLimit,
         "Error: The class %s has the wrong constantCount value: %d"},
        {offsetof(C, sharedProperties), kListLimit,
         "Error: The class %s has the wrong sharedPropertyCounttionCount value: %d"},
        {offsetof(C, sharedMethods), kListLimit,
         "Error: The class %s has the wrong sharedMethodCount value: %d"},
        {offsetof(C, attributes), kListLimit,
         "Error: The class %s has the wrong attributeCount value: %d"},
        {offsetof(C, delegates), kListLimit,
         "Error: The class %s has the wrong delegateCount value: %d"},
        {offsetof(C, enums), kListLimit, "Error: The class %s has the wrong enumCount value: %d"},
    };
    if (!MayRegister(d, "class")) return;
    CheckRecordVersion("class", d->name, d->version);
    if (d->name == nullptr) DebugLog("Error: A class without name.");
    CheckForSystemUse("class", d->name, d->forSystemUse);
    CheckLists(d, d->name, kLists);
    // A subclass of one of the plug-in's own classes inherits its data.
    if (d->superName != nullptr && Count(d->dataSize) > 0 &&
        std::strstr(d->superName, "QVT") != nullptr) {
        DebugLog("Warning: The subclass %s of %s has data size: %d", d->name, d->superName,
                 Shown(d->dataSize));
    }
    if (gHostVersion < 2020.02 && Count(d->flags) == REALTargetIOS) {
        DebugLog("Warning: iOS only class registered for old Xojo: %s", d->name);
    }

    CheckAttributes("", d->name, d->attributes, d->attributeCount);
    CheckMemberLists(d, Delegates::BeforeShared);
    CheckClassMembers(d);

    FixClassFlags(d);
    RoundDataSize(d->dataSize);
    ToHost(d, &FixClass, kOldClassWords, host::PluginRegisterClass);
}

void RegisterClassExtension(REALclassDefinition *d) {
    using C = REALclassDefinition;
    // An extension adds methods only; a limit of 0 allows no list at all.
    static constexpr ListRule kLists[] = {
        {offsetof(C, properties), kListLimit,
         "Error: The class extension %s has the wrong propertyCount value: %d"},
        {offsetof(C, methods), kListLimit,
         "Error: The class extension %s has the wrong methodCount value: %d"},
        {offsetof(C, events), 0, "Error: The class extension %s has events: %d"},
        {offsetof(C, eventInstances), 0, "Error: The class extension %s has event instances: %d"},
        {offsetof(C, constants), 0, "Error: The class extension %s has constants: %d"},
        {offsetof(C, sharedProperties), 0,
         "Error: The class extension %s has shared Properties: %d"},
        {offsetof(C, sharedMethods), 0, "Error: The class extension %s has shared Methods: %d"},
        {offsetof(C, attributes), kListLimit,
         "Error: The class extension %s has wrong attributes: %d"},
        {offsetof(C, delegates), 0, "Error: The class extension %s has delegates %d"},
        {offsetof(C, enums), 0, "Error: The class extension %s has enums: %d"},
    };
    static constexpr struct {
        std::size_t offset;
        const char *message;
    } kCountWarnings[] = {
        {offsetof(C, propertyCount),
         "Warning: The class extension %s has the propertyCount value: %d"},
        {offsetof(C, constantCount),
         "Warning: The class extension %s has the constantCount value: %d"},
        {offsetof(C, eventCount), "Warning: The class extension %s has the eventCount value: %d"},
        {offsetof(C, sharedPropertyCount),
         "Warning: The class extension %s has the sharedProperties value: %d"},
        {offsetof(C, sharedMethodCount),
         "Warning: The class extension %s has the sharedMethods value: %d"},
    };
    if (!MayRegister(d, "class extension")) return;
    CheckRecordVersion("class extension", d->name, d->version);
    if (d->name == nullptr) DebugLog("Error: A class extension without name.");
    if (d->superName != nullptr) {
        DebugLog("Error: A class extension can't have super name: %s", d->superName);
    }
    if (Count(d->dataSize) != 0) {
        DebugLog("Error: The class extension %s has the dataSize value: %d", d->name,
                 Shown(d->dataSize));
    }
    CheckForSystemUse("class extension", d->name, d->forSystemUse);
    CheckLists(d, d->name, kLists);

    CheckMemberLists(d, Delegates::AfterShared);

    for (const auto &warning : kCountWarnings) {
        RBWord count = 0;
        std::memcpy(&count, reinterpret_cast<const unsigned char *>(d) + warning.offset, kWord);
        if (Count(count) != 0) DebugLog(warning.message, d->name, Shown(count));
    }
    if (d->name != nullptr && std::islower(static_cast<unsigned char>(d->name[0]))) {
        DebugLog("Error: The class extension name %s does not start with capital letter.", d->name);
    }
    CheckClassMembers(d);
    FixClassFlags(d);

    if (HostTakesModules()) {
        RegisterExtensionModule(d);
        return;
    }
    ToHost(d, &FixClass, kOldClassWords, host::PluginRegisterClassExtension);
}

void RegisterModule(REALmoduleDefinition *d) {
    using M = REALmoduleDefinition;
    static constexpr ListRule kLists[] = {
        {offsetof(M, properties), kListLimit,
         "Error: The module %s has the wrong propertyCount value: %d"},
        {offsetof(M, methods), kListLimit,
         "Error: The module %s has the wrong methodCount value: %d"},
        {offsetof(M, structures), kListLimit,
         "Error: The module %s has the wrong structureCount value: %d"},
        {offsetof(M, enums), kListLimit, "Error: The module %s has the wrong enumCount value: %d"},
        {offsetof(M, attributes), kListLimit,
         "Error: The module %s has the wrong attributeCount value: %d"},
        {offsetof(M, delegates), kListLimit,
         "Error: The module %s has the wrong delegateCount value: %d"},
    };
    if (!MayRegister(d, "module")) return;
    // A synthesised module already carries the number told to the host.
    CheckRecordVersion("module", d->name, d->version, static_cast<uint32_t>(gPluginSDKVersion));
    if (d->name == nullptr) DebugLog("Error: A module without name.");
    CheckLists(d, d->name, kLists);

    CheckMethods(d->name, d->methods, d->methodCount);
    CheckProperties(d->name, d->properties, d->propertyCount);
    CheckConstants(d->name, d->constants, d->constantCount);
    CheckDelegates(d->name, d->delegates, d->delegateCount);
    CheckModuleMembers(d);

    FixScope(d);
    FixModuleFlags(d);
    if (Count(d->flags) == 0) d->flags = kFlagConsoleSafe;
    ToHost(d, &FixModule, kOldModuleWords, host::PluginRegisterModule);
}

void RegisterMethod(REALmethodDefinition *d) {
    if (d == nullptr) {
        DebugLog("Error: A method registered is nil.");
        return;
    }
    if (d->declaration == nullptr) DebugLog("Error: A method without declaration.");
    if (d->function == nullptr) DebugLog("Error: The method %s has no function.", d->declaration);
    if (!ListIsRight(d->attributes, d->attributeCount, kMemberAttributeLimit)) {
        DebugLog("Error: The method %s has the wrong attributeCount value: %d", d->declaration,
                 Shown(d->attributeCount));
    }
    CheckAttributes("", d->declaration, d->attributes, d->attributeCount);
    host::PluginRegisterMethod(d);
}

}  // namespace qvt
