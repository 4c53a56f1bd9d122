#include "com/module.h"

#include <atomic>

#include "com/class_factory.h"
#include "camrelay.h"

namespace camrelay::com {

namespace {
HINSTANCE instance = nullptr;
std::atomic<long> references{0};
}  // namespace

HINSTANCE ModuleInstance() { return instance; }

std::wstring ModulePath() {
  std::wstring path(MAX_PATH, L'\0');
  const DWORD length = GetModuleFileNameW(instance, path.data(), static_cast<DWORD>(path.size()));
  path.resize(length);
  return path;
}

void AddModuleReference() { ++references; }
void ReleaseModuleReference() { --references; }
bool ModuleInUse() { return references > 0; }

HRESULT LoadModuleTypeLib(ITypeLib** library) { return LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, library); }

HRESULT LoadTypeInfo(REFGUID guid, ITypeInfo** info) {
  ITypeLib* library = nullptr;
  HRESULT hr = LoadModuleTypeLib(&library);
  if (FAILED(hr)) return hr;
  hr = library->GetTypeInfoOfGuid(guid, info);
  library->Release();
  return hr;
}

}  // namespace camrelay::com

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    camrelay::com::instance = module;
    DisableThreadLibraryCalls(module);
  }
  return TRUE;
}

extern "C" HRESULT WINAPI DllGetClassObject(REFCLSID clsid, REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (!IsEqualCLSID(clsid, CLSID_clsClient)) return CLASS_E_CLASSNOTAVAILABLE;
  auto* factory = new camrelay::com::ClassFactory();
  const HRESULT hr = factory->QueryInterface(iid, object);
  factory->Release();
  return hr;
}

extern "C" HRESULT WINAPI DllCanUnloadNow() { return camrelay::com::ModuleInUse() ? S_FALSE : S_OK; }
