// Every host operation the binding layer knows, one line each, called as
// qvt::host::Name(...). Included through shell/binding.h.
#pragma once

#include "shell/binding.h"

// A binding that passes its arguments unchanged; its result type is given.
#define QVT_HOST_CALL(name, result, ...) \
    inline constinit ::qvt::HostCall<result> name{#name __VA_OPT__(, ) __VA_ARGS__}

// The families: the result as the host gives it, 0 or nil when missing; the
// host's bool unchanged, false when missing; any non-zero answer reduced to
// true, false when missing (a get operation's value comes back through its
// third argument).
#define QVT_PLAIN(name, result, ...) QVT_HOST_CALL(name, result __VA_OPT__(, ) __VA_ARGS__)
#define QVT_FALSE_WHEN_MISSING(name) QVT_HOST_CALL(name, ::qvt::HostBool)
#define QVT_REDUCED(name, ...) QVT_HOST_CALL(name, bool __VA_OPT__(, ) __VA_ARGS__)

namespace qvt::host {

// ---- Operations whose arguments are settled: those this system calls ------

QVT_HOST_BINDING(REALinRuntime, bool());
QVT_HOST_BINDING(PluginRegisterClass, void(REALclassDefinition *));
QVT_HOST_BINDING(PluginRegisterClassExtension, void(REALclassDefinition *));
QVT_HOST_BINDING(PluginRegisterModule, void(REALmoduleDefinition *));
QVT_HOST_BINDING(PluginRegisterMethod, void(REALmethodDefinition *));
QVT_HOST_BINDING(PluginRegisterControl, void(REALcontrolDefinition *));
QVT_HOST_BINDING(PluginRegisterInterface, void(REALinterfaceDefinition *));
QVT_HOST_BINDING(PluginRegisterDBCursor, void(REALdbCursorDefinition *));
QVT_HOST_BINDING(PluginRegisterDBEngine, void(REALdbEngineDefinition *));
QVT_HOST_BINDING(REALLockObject, void(REALobject));
QVT_HOST_BINDING(REALUnlockObject, void(REALobject));
QVT_HOST_BINDING(REALLockString, void(REALstring));
QVT_HOST_BINDING(REALUnlockString, void(REALstring));
QVT_HOST_BINDING(memoryBlockGetPtr, void *(REALobject));
QVT_HOST_BINDING(memoryBlockGetSize, RBInteger(REALobject));
QVT_HOST_BINDING(newMemoryBlock, REALobject(RBInteger));
QVT_HOST_BINDING(PtrToMemoryBlock, REALobject(const void *));
QVT_HOST_BINDING(PluginNewInstance, REALobject(const char *));
QVT_HOST_BINDING(REALSetPropValueInteger, bool(REALobject, const char *, RBInteger),
                 "REALSetPropValueInt");
QVT_HOST_BINDING(REALGetPropValueInteger, bool(REALobject, const char *, RBInteger *),
                 "REALGetPropValueInt");
QVT_HOST_BINDING(REALSetPropValueString, bool(REALobject, const char *, REALstring));
QVT_HOST_BINDING(RuntimeRaiseException, void(REALobject));
QVT_HOST_BINDING(REALBuildString, REALstring(const void *, int32_t));
QVT_HOST_BINDING(REALBuildStringWithEncoding, REALstring(const void *, int32_t, uint32_t));
QVT_HOST_BINDING(REALConvertString, REALstring(REALstring, uint32_t));
QVT_HOST_BINDING(REALSetStringEncoding, void(REALstring, uint32_t));
QVT_HOST_BINDING(REALGetStringEncoding, uint32_t(REALstring));
QVT_HOST_BINDING(PluginGetStringData, bool(REALstring, uint32_t, REALstringData *));
QVT_HOST_BINDING(PluginDisposeStringData, void(REALstringData *));
QVT_HOST_BINDING(RuntimeUBound, RBInteger(REALarray));
QVT_HOST_BINDING(RuntimeArrayCreateSingleDimBoundedArray, REALarray(int32_t, RBInteger));
QVT_HOST_BINDING(RuntimeDirectReadObjectArray, REALobject(REALarray, RBInteger));
QVT_HOST_BINDING(RuntimeDirectReadStringArray, REALstring(REALarray, RBInteger));
QVT_HOST_BINDING(PluginGetTextData, void *(void *, const char *, RBInteger));
QVT_HOST_BINDING(PluginDisposeTextData, void(void *));
QVT_HOST_BINDING(RuntimeAddString, REALstring(REALstring, REALstring));
QVT_HOST_BINDING(REALLoadObjectMethod, void *(REALobject, const char *));
QVT_HOST_BINDING(pluginObjectType, REALclassRef(const char *));
QVT_HOST_BINDING(RuntimeObjectIsa, bool(REALobject, REALclassRef));

// ---- Plain ------------------------------------------------------------------
// Text values travel as void *, as in PluginGetTextData.

QVT_PLAIN(REALBuildPictureFromDIB, REALobject);
QVT_PLAIN(REALGetControlGraphicsWithDC, REALobject);
QVT_PLAIN(REALGetGraphicsOrigin, void);
QVT_PLAIN(REALBuildPictureFromBuffer, REALobject);
QVT_PLAIN(REALBuildPictureFromPictureDescription, REALobject);
QVT_PLAIN(PluginBuildText, void *);
QVT_PLAIN(RuntimeStringCompare, RBInteger);
QVT_PLAIN(PluginCompareText, RBInteger);
QVT_PLAIN(PluginConcatenateText, void *);
QVT_PLAIN(REALConstructDBDatabase, REALobject);
QVT_PLAIN(drawPicturePrimitive, void);
QVT_PLAIN(RuntimeDirectReadIntArray, RBInteger);
QVT_PLAIN(GetControlBounds, void);
QVT_PLAIN(REALGetControlGraphics, REALobject);
QVT_PLAIN(getControlWindow, REALobject);
QVT_PLAIN(REALGetCursorFromREALdbCursor, void *);
QVT_PLAIN(REALGetDBDatabaseName, REALstring);
QVT_PLAIN(REALGetDBFromREALdbDatabase, void *);
QVT_PLAIN(REALGetDBPassword, REALstring);
QVT_PLAIN(REALGetDBUserName, REALstring);
QVT_PLAIN(PluginGetDelegateInvoker, void *);
QVT_PLAIN(REALGetFontEncoding, uint32_t);
QVT_PLAIN(pluginPictureGraphicsGetter, REALobject);
QVT_PLAIN(REALGetPictureMask, REALobject);
QVT_PLAIN(PluginGetPluginData, void *);
QVT_PLAIN(REALGraphicsDC, void *);
QVT_PLAIN(REALGraphicsReleaseDC, void);
QVT_PLAIN(PluginLoadSharedMethod, void *);
QVT_PLAIN(lockPictureDescription, void *);
QVT_PLAIN(PluginLockText, void);
QVT_PLAIN(RuntimeMsgBox, void);
QVT_PLAIN(newPicture, REALobject);
QVT_PLAIN(NewRowSetFromDBCursor, REALobject);
QVT_PLAIN(BooleanToVariant, REALobject);
QVT_PLAIN(DoubleToVariant, REALobject);
QVT_PLAIN(Int32ToVariant, REALobject);
QVT_PLAIN(Int64ToVariant, REALobject);
QVT_PLAIN(IntegerToVariant, REALobject, "Int32ToVariant");
QVT_PLAIN(PtrToVariant, REALobject);
QVT_PLAIN(SingleToVariant, REALobject);
QVT_PLAIN(StringToVariant, REALobject);
QVT_PLAIN(PluginNewVariantText, REALobject);
QVT_PLAIN(UInt32ToVariant, REALobject);
QVT_PLAIN(UInt64ToVariant, REALobject);
QVT_PLAIN(REALPictureClearCache, void);
QVT_PLAIN(PluginRegisterDBTable, void);
QVT_PLAIN(PluginRegisterMobileControl, void);
QVT_PLAIN(unlockPictureDescription, void);
QVT_PLAIN(PluginUnlockText, void);
QVT_PLAIN(PluginUnregisterBackgroundTask, void);
QVT_PLAIN(REALYieldToRB, void);
QVT_PLAIN(REALdbCursorFromDBCursor, REALobject);
QVT_PLAIN(REALdbDatabaseFromDBDatabase, REALobject);
QVT_PLAIN(PluginNewInstanceOfClass, REALobject);
QVT_PLAIN(REALpathFromFolderItem, REALstring);

// With a result of their own when missing.
QVT_PLAIN(PluginPictureGetType, RBInteger, nullptr, {2});
QVT_PLAIN(PluginRegisterBackgroundTask, RBInteger, nullptr, {-1});

// ---- False when missing -----------------------------------------------------

QVT_FALSE_WHEN_MISSING(PluginAddEventHandler);
QVT_FALSE_WHEN_MISSING(PluginRemoveEventHandler);
QVT_FALSE_WHEN_MISSING(PluginIsEventHandled);
QVT_FALSE_WHEN_MISSING(GetTabPanelVisible);
QVT_FALSE_WHEN_MISSING(IsDarkMode);
QVT_FALSE_WHEN_MISSING(IsXojoThread);
QVT_FALSE_WHEN_MISSING(IsXojoMainThread);

// ---- Reduced to a bool --------------------------------------------------------

QVT_REDUCED(REALGetPropValueDouble);
QVT_REDUCED(REALGetPropValueInt);
QVT_REDUCED(REALGetPropValueInt8);
QVT_REDUCED(REALGetPropValueInt16);
QVT_REDUCED(REALGetPropValueInt64);
QVT_REDUCED(REALGetPropValueUInt16);
QVT_REDUCED(REALGetPropValueUInt32);
QVT_REDUCED(REALGetPropValueUInt64);
QVT_REDUCED(REALGetPropValueSingle);
QVT_REDUCED(REALGetPropValueObject);
QVT_REDUCED(REALGetPropValuePtr);
QVT_REDUCED(REALGetPropValueString);
QVT_REDUCED(PluginGetPropValueText);
QVT_REDUCED(REALInDebugMode);
QVT_REDUCED(REALLockPictureDescription);
QVT_REDUCED(REALSetPropValueBoolean);
QVT_REDUCED(REALSetPropValueDouble);
QVT_REDUCED(REALSetPropValueInt);
QVT_REDUCED(REALSetPropValueInt8);
QVT_REDUCED(REALSetPropValueInt16);
QVT_REDUCED(REALSetPropValueInt64);
QVT_REDUCED(REALSetPropValueUInt16);
QVT_REDUCED(REALSetPropValueUInt32);
QVT_REDUCED(REALSetPropValueUInt64);
QVT_REDUCED(REALSetPropValueObject);
QVT_REDUCED(REALGetPropValueColor, "REALGetPropValueInt");
QVT_REDUCED(REALGetPropValueCurrency, "REALGetPropValueInt64");
QVT_REDUCED(REALGetPropValueUInteger, "REALGetPropValueUInt32");
QVT_REDUCED(REALGetPropValueUInt8, "REALGetPropValueBool");
QVT_REDUCED(REALSetPropValueColor, "REALSetPropValueInt");
QVT_REDUCED(REALSetPropValueCurrency, "REALSetPropValueInt64");
QVT_REDUCED(REALSetPropValueUInteger, "REALSetPropValueUInt32");
// The host has no setter of the name UInt8: a byte is set as a Boolean.
inline constinit ::qvt::HostCall<bool> REALSetPropValueUInt8{"REALSetPropValueBoolean"};

// Stores exactly true or false in `place`, whatever byte the host writes;
// the place keeps its value when the host has no such entry.
bool REALGetPropValueBool(REALobject object, const char *name, bool *place);

// ---- With rules of their own ------------------------------------------------

// The handler of `event` for `instance`, through the host's word in the
// event record, or in its old-form copy on hosts told record version 9.
REALproc GetEventInstance(REALobject instance, const REALeventDefinition *event);

// A new instance of `cls`, carrying one reference; nil for a nil class.
REALobject CreateInstance(REALclassRef cls);

// Runs `function(argument)` under the host's exception handler and gives the
// exception object raised meanwhile, or nil. Without the host's entry the
// function is still run, unguarded.
REALobject PluginCallFunctionWithExceptionHandler(void (*function)(void *), void *argument);

// Hosts from 2018.02 take the coordinates as doubles.
void RuntimeGraphicsDrawString(REALobject graphics, REALstring text, RBInteger x, RBInteger y,
                               RBInteger width);
// Hosts below 2007.02 answer an integer width.
double RuntimeGraphicsStringWidth(REALobject graphics, REALstring text);

// Through the second resolver, on the object's class: 0 or false when the
// host lacks the operation or the object has no class.
inline constinit ::qvt::ScriptBinding<RBInteger> REALCountClassProperties{
    "REALCountClassProperties"};
inline constinit ::qvt::ScriptBinding<bool> REALGetClassProperty{"REALGetClassProperty"};

// A global function of the host's language, found by its declaration.
void *REALLoadGlobalMethod(const char *declaration);

// The string's bytes; when `length` is given, its length in bytes is stored
// there through the host's own LenB.
const char *StringGetCString(REALstring string, RBInteger *length);

}  // namespace qvt::host
