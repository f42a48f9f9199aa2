// Front ends for controls and interfaces: checked, reported and fixed up as a
// class is, then registered. The plug-in's own tables hold neither kind.
#pragma once

#include "abi/plugin_abi.h"

namespace qvt {

void RegisterControl(REALcontrolDefinition *definition);
void RegisterInterface(REALinterfaceDefinition *definition);

// Members whose target bits are not exactly those of a desktop or a mobile
// control. The desktop check spares a shared property "Debugging".
void CheckControlDesktop(const REALcontrolDefinition *definition);
void CheckControlIOS(const REALcontrolDefinition *definition);

}  // namespace qvt
