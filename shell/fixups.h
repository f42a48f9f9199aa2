// Changes a definition on its way to the host so that the host at hand
// understands it: flags for the host's age, default scopes in modules, and the
// old, shorter record forms for hosts of record version 9.
#pragma once

#include <cstddef>
#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// Words of the old forms that are written over the start of a record.
inline constexpr std::size_t kOldClassWords = 25;
inline constexpr std::size_t kOldModuleWords = 12;
inline constexpr std::size_t kOldControlWords = 23;
inline constexpr std::size_t kOldInterfaceWords = 4;

// Fix-ups and checks pass over a list with a nil pointer or a count below 1,
// the count read as signed.
bool ListHasMembers(const void *list, RBWord count);

// Target bits the host does not know become the console-safe bit. Idempotent.
void FixFlags(RBWord &flags);
void FixClassFlags(REALclassDefinition *definition);
void FixModuleFlags(REALmoduleDefinition *definition);
// Members of a module without a scope bit get the default scope.
void FixScope(REALmoduleDefinition *definition);

// Each gives a new array of the old, shorter records (zero-filled heap memory
// that the host keeps), or nil for an empty list, a broken pair or no memory.
uintptr_t *FixMethods(const REALmethodDefinition *list, RBWord count);
uintptr_t *FixProperties(const REALpropertyDefinition *list, RBWord count);
uintptr_t *FixConstants(const REALconstantDefinition *list, RBWord count);
uintptr_t *FixStructures(const REALstructureDefinition *list, RBWord count);
uintptr_t *FixEnums(const REALenumDefinition *list, RBWord count);
// Also points each source record's hostSlot at its copy.
uintptr_t *FixEvents(REALeventDefinition *list, RBWord count);

// The old form as a temporary of kOldClassWords or kOldModuleWords words, to
// be copied over the record and given back with FreeMemory; nil without memory.
uintptr_t *FixClass(const REALclassDefinition *definition);
uintptr_t *FixModule(const REALmoduleDefinition *definition);

// A class's or control's instance data in whole 16-byte units.
void RoundDataSize(RBWord &dataSize);

// dataSize rounding, and for controls with menu events the five events the
// host supplies itself cut off and three events renamed.
void FixControl(REALcontrolDefinition *definition);

// The old forms of a control and an interface, as FixClass for a class: a
// temporary of kOldControlWords or kOldInterfaceWords words, or nil.
uintptr_t *OldControlForm(const REALcontrolDefinition *definition);
uintptr_t *OldInterfaceForm(const REALinterfaceDefinition *definition);

}  // namespace qvt
