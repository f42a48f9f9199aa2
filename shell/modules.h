// Class extensions and global methods as modules the plug-in builds at load
// time, for hosts that take extension methods best that way.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// Hosts from 2013.0 and below 3000.0 get modules; all others the direct route.
bool HostTakesModules();

// "Name(args) as T" becomes "Name(extends ref as Class, args) as T". A new
// text from AllocateMemory, or nil when none can be made.
char *ExtendDeclaration(const char *declaration, const char *className);
// The assigning form: the result type becomes a last parameter
// "assigns value as T".
char *ExtendSetterDeclaration(const char *declaration, const char *className);

// The methods of a checked class extension as a module "<Class><part>ExtensionQVT".
void RegisterExtensionModule(const REALclassDefinition *definition);

// The front end of the global methods.
void RegisterMethods(REALmethodDefinition *methods, intptr_t count);

}  // namespace qvt
