// The DLL as a whole: its instance handle, the count of live objects and
// server locks that DllCanUnloadNow answers from, and its type library.
#pragma once

#include <windows.h>
#include <oaidl.h>

#include <string>

namespace camrelay::com {

HINSTANCE ModuleInstance();
std::wstring ModulePath();

// Every live object and every LockServer(TRUE) counts; the DLL may be
// unloaded only when nothing does.
void AddModuleReference();
void ReleaseModuleReference();
bool ModuleInUse();

// The type library embedded in the DLL; the caller releases it.
HRESULT LoadModuleTypeLib(ITypeLib** library);
// The description of one interface or class of that library.
HRESULT LoadTypeInfo(REFGUID guid, ITypeInfo** info);

}  // namespace camrelay::com
