// The plug-in's tables: every declaration the host's language sees, tied to
// the function behind it. The host keeps the addresses of these records and
// writes into them, so they are static, writable and never copied.
#pragma once

#include <cstdint>
#include <iterator>
#include <type_traits>

#include "abi/plugin_abi.h"

namespace qvt {

// The flags vocabulary shared by members, classes and modules.
inline constexpr uint32_t kFlagConsoleSafe = 0x4;
inline constexpr uint32_t kFlagTargetMask = 0x70C;
inline constexpr uint32_t REALTargetDesktop = 0x200;
inline constexpr uint32_t REALTargetIOS = 0x400;
inline constexpr uint32_t kFlagAllDesktopTargets = 0x308;
inline constexpr uint32_t kFlagConsoleSafeFrom2010 = 0x40000;
inline constexpr uint32_t kFlagScopeMask = 0xF0;
inline constexpr uint32_t kFlagScopeDefault = 0x40;
inline constexpr uint32_t kFlagScopeExtension = 0x10;
inline constexpr uint32_t kFlagControlMenuEvents = 0x1000;

// Any function goes into a record as REALproc; the signature names its exact
// type, which also picks one overload out of several. A macro rather than a
// function, so that the tables stay constant-initialised: the library runs no
// code of its own before REALPluginMain.
#define QVT_PROC(signature, function) \
    reinterpret_cast<REALproc>(static_cast<std::add_pointer_t<signature>>(&function))

// One method record: every method of this plug-in has the same flags and no
// attributes.
#define QVT_METHOD_RECORD(function, setterFunction, declaration) \
    { function, setterFunction, declaration, kFlagConsoleSafe, 0, nullptr }
#define QVT_METHOD(signature, function, declaration) \
    QVT_METHOD_RECORD(QVT_PROC(signature, function), nullptr, declaration)
// A method with an assigning form: the setter takes the method's arguments
// and then the value assigned.
#define QVT_METHOD_ASSIGNABLE(signature, function, setterSignature, setter, declaration) \
    QVT_METHOD_RECORD(QVT_PROC(signature, function), QVT_PROC(setterSignature, setter), declaration)

// A property that the host's language can read but not write.
#define QVT_READ_ONLY_PROPERTY(name, type, signature, getter) \
    { nullptr, name, type, 0x6, QVT_PROC(signature, getter), nullptr, 0, nullptr, 0, nullptr, \
      0, nullptr }

// A getter or setter of all ones means direct access by offset.
inline const REALproc kDirectAccess = reinterpret_cast<REALproc>(~uintptr_t{0});

// The methods added to the host's class MemoryBlock.
extern REALmethodDefinition gMemoryBlockExtensionMethods[];
extern const std::size_t kMemoryBlockExtensionMethodCount;
extern REALclassDefinition gMemoryBlockExtension;

// The class MemoryBlockQVT; the host writes the place of its instance data
// into forSystemUse.
extern REALclassDefinition gMemoryBlockQVTClass;

// The global functions.
extern REALmethodDefinition gGlobalMethods[];
extern const intptr_t kGlobalMethodCount;

// The hidden property every synthesised module carries.
extern REALpropertyDefinition gDebuggingProperty;

}  // namespace qvt
