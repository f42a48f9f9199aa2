#include "shell/controls.h"

#include <cstddef>
#include <cstdint>

#include "diagnostics/debuglog.h"
#include "shell/binding.h"
#include "shell/definitions.h"
#include "shell/entry.h"
#include "shell/fixups.h"
#include "shell/validation.h"

namespace qvt {

namespace {

constexpr uint32_t kListLimit = 1000;
constexpr uint32_t kControlConstantLimit = 4000;

uint32_t Count(RBWord count) { return static_cast<uint32_t>(count); }
int Shown(RBWord value) { return static_cast<int>(static_cast<uint32_t>(value)); }

constexpr const char kDebuggingName[] = "Debugging";

struct TargetTexts {
    uint32_t target;
    const char *method;
    const char *sharedMethod;
    const char *property;
    const char *sharedProperty;
    const char *spared;
};

constexpr TargetTexts kDesktop = {
    REALTargetDesktop,
    "Method in control missing REALTargetDesktop: ",
    "Shared method in control missing REALTargetDesktop: ",
    "Property in control missing REALTargetDesktop: ",
    "Shared property in control missing REALTargetDesktop: ",
    kDebuggingName,
};

constexpr TargetTexts kIOS = {
    REALTargetIOS,
    "Method in control missing REALTargetIOS: ",
    "Shared method in control missing REALTargetIOS: ",
    "Property in control missing REALTargetIOS: ",
    "Shared property in control missing REALTargetIOS: ",
    nullptr,
};

// Exactly the one target within the mask: 0x304 misses the desktop.
void CheckControlTarget(const TargetTexts &texts, const REALcontrolDefinition *d) {
    ReportMembersByTarget(texts.method, d->name, d->methods, d->methodCount, texts.target, false);
    ReportMembersByTarget(texts.sharedMethod, d->name, d->sharedMethods, d->sharedMethodCount,
                          texts.target, false);
    ReportMembersByTarget(texts.property, d->name, d->properties, d->propertyCount, texts.target,
                          false);
    ReportMembersByTarget(texts.sharedProperty, d->name, d->sharedProperties,
                          d->sharedPropertyCount, texts.target, false, texts.spared);
}

}  // namespace

void CheckControlDesktop(const REALcontrolDefinition *definition) {
    CheckControlTarget(kDesktop, definition);
}

void CheckControlIOS(const REALcontrolDefinition *definition) {
    CheckControlTarget(kIOS, definition);
}

void RegisterControl(REALcontrolDefinition *d) {
    using C = REALcontrolDefinition;
    // Event instances are not allowed at all: a limit of 0.
    static constexpr ListRule kLists[] = {
        {offsetof(C, properties), kListLimit,
         "Error: The control %s has the wrong propertyCount value: %d"},
        {offsetof(C, methods), kListLimit,
         "Error: The control %s has the wrong methodCount value: %d"},
        {offsetof(C, events), kListLimit,
         "Error: The control %s has the wrong eventCount value: %d"},
        {offsetof(C, eventInstances), 0,
         "Error: The control %s has the wrong eventInstanceCount value: %d"},
        {offsetof(C, constants), kControlConstantLimit,
         "Error: The control %s has the wrong constantCount value: %d"},
        {offsetof(C, sharedMethods), kListLimit,
         "Error: The control %s has the wrong sharedMethodCount value: %d"},
        {offsetof(C, sharedProperties), kListLimit,
         "Error: The control %s has the wrong sharedPropertyCount value: %d"},
        {offsetof(C, attributes), kListLimit,
         "Error: The control %s has the wrong attributeCount value: %d"},
        {offsetof(C, delegates), kListLimit,
         "Error: The control %s has the wrong delegateCount value: %d"},
        {offsetof(C, enums), kListLimit,
         "Error: The control %s has the wrong enumCount value: %d"},
    };
    if (!MayRegister(d, "control")) return;
    CheckRecordVersion("control", d->name, d->version);
    if (Count(d->dataSize) == 0) {
        DebugLog("Error: The control %s has the dataSize being zero!", d->name);
    }
    if (d->name == nullptr) DebugLog("Error: A control without name.");
    if (Count(d->defaultWidth) == 0) {
        DebugLog("Error: The control %s has the wrong defaultWidth value: %d", d->name,
                 Shown(d->defaultWidth));
    }
    if (Count(d->defaultHeight) == 0) {
        DebugLog("Error: The control %s has the wrong defaultHeight value: %d", d->name,
                 Shown(d->defaultHeight));
    }
    CheckForSystemUse("control", d->name, d->forSystemUse);
    CheckLists(d, d->name, kLists);

    CheckMemberLists(d, Delegates::AfterShared);
    CheckVariableOffsets(d->name, d->properties, d->propertyCount, d->dataSize);
    CheckControlDesktop(d);

    FixControl(d);
    ToHost(d, &OldControlForm, kOldControlWords, host::PluginRegisterControl);
}

void RegisterInterface(REALinterfaceDefinition *d) {
    using I = REALinterfaceDefinition;
    static constexpr ListRule kLists[] = {
        {offsetof(I, methods), kListLimit,
         "Error: The interface %s has the wrong methodCount value: %d"},
        {offsetof(I, attributes), kListLimit,
         "Error: The interface %s has the wrong attributeCount value: %d"},
    };
    if (!MayRegister(d, "interface")) return;
    CheckRecordVersion("interface", d->name, d->version);
    if (d->name == nullptr) DebugLog("Error: A interface without name.");
    CheckLists(d, d->name, kLists);
    // The methods of an interface are declarations only and are not walked.
    CheckAttributes("", d->name, d->attributes, d->attributeCount);
    // The old form is told as four words written over the record; it goes
    // the way of a class's, so without memory for it nothing is registered.
    ToHost(d, &OldInterfaceForm, kOldInterfaceWords, host::PluginRegisterInterface);
}

}  // namespace qvt
