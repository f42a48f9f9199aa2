// The plug-in's entry and the globals it sets while the host loads it.
#pragma once

#include <cstdint>

#include "abi/plugin_abi.h"

namespace qvt {

// Written only while the host loads the plug-in; read afterwards.
extern REALresolver gResolver;
extern double gHostVersion;
extern int32_t gPluginSDKVersion;
extern const char *gpartname;

// The record version for which every table is written.
inline constexpr int32_t kCurrentREALControlVersion = 15;

// The record version a host of the given version understands.
int32_t RecordVersionForHost(double hostVersion);

void PluginEntry();
void PluginStart(const char *partName);
void PluginEnd();

}  // namespace qvt
