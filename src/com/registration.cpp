// DllRegisterServer and DllUnregisterServer: the class under its CLSID and
// ProgID, served in-process in the host's apartment, and its type library.
#include <windows.h>
#include <oleauto.h>

#include <string>

#include "camrelay.h"
#include "com/module.h"

namespace camrelay::com {
namespace {

constexpr wchar_t kProgId[] = L"CamRelay.clsClient";

std::wstring GuidText(REFGUID guid) {
  wchar_t text[40];
  StringFromGUID2(guid, text, 40);
  return text;
}

std::wstring ClassKey() { return L"CLSID\\" + GuidText(CLSID_clsClient); }

LSTATUS SetValue(const std::wstring& key, const wchar_t* name, const std::wstring& value) {
  HKEY handle = nullptr;
  LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &handle,
                                   nullptr);
  if (status != ERROR_SUCCESS) return status;
  status = RegSetValueExW(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(handle);
  return status;
}

HRESULT RegisterClassKeys() {
  const std::wstring clsid = ClassKey();
  const struct {
    std::wstring key;
    const wchar_t* name;
    std::wstring value;
  } values[] = {
      {clsid, nullptr, kProgId},
      {clsid + L"\\InprocServer32", nullptr, ModulePath()},
      {clsid + L"\\InprocServer32", L"ThreadingModel", L"Apartment"},
      {clsid + L"\\ProgID", nullptr, kProgId},
      {clsid + L"\\TypeLib", nullptr, GuidText(LIBID_CamRelay)},
      {clsid + L"\\VERSION", nullptr, L"1.0"},
      {kProgId, nullptr, kProgId},
      {std::wstring(kProgId) + L"\\CLSID", nullptr, GuidText(CLSID_clsClient)},
  };
  for (const auto& entry : values) {
    const LSTATUS status = SetValue(entry.key, entry.name, entry.value);
    if (status != ERROR_SUCCESS) return HRESULT_FROM_WIN32(status);
  }
  return S_OK;
}

HRESULT RemoveClassKeys() {
  for (const std::wstring& key : {ClassKey(), std::wstring(kProgId)}) {
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND) return HRESULT_FROM_WIN32(status);
  }
  return S_OK;
}

}  // namespace
}  // namespace camrelay::com

extern "C" HRESULT WINAPI DllRegisterServer() {
  using namespace camrelay::com;
  ITypeLib* library = nullptr;
  HRESULT hr = LoadModuleTypeLib(&library);
  if (FAILED(hr)) return hr;
  std::wstring path = ModulePath();
  hr = RegisterTypeLib(library, path.data(), nullptr);
  library->Release();
  if (FAILED(hr)) return hr;
  return RegisterClassKeys();
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
  using namespace camrelay::com;
  // A library that is not registered is no failure of unregistering.
  HRESULT typeLib = S_OK;
  ITypeLib* registered = nullptr;
  if (SUCCEEDED(LoadRegTypeLib(LIBID_CamRelay, 1, 0, LOCALE_NEUTRAL, &registered))) {
    registered->Release();
    typeLib = UnRegisterTypeLib(LIBID_CamRelay, 1, 0, LOCALE_NEUTRAL, SYS_WIN64);
  }
  const HRESULT classes = RemoveClassKeys();
  return FAILED(classes) ? classes : typeLib;
}
