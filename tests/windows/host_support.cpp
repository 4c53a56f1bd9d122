#include "host_support.h"

#include <winsock2.h>
#include <ocidl.h>

#include <cstdio>
#include <cstdlib>

#include "camrelay.h"
#include "platform/windows/codepage.h"

namespace host {

namespace {
int failures = 0;
}  // namespace

bool Check(bool condition, const std::string& what, const char* file, int line) {
  if (!condition) {
    ++failures;
    std::fprintf(stderr, "%s:%d: FAILED: %s\n", file, line, what.c_str());
  }
  return condition;
}

int Failures() { return failures; }

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  if (!value || !*value) {
    std::fprintf(stderr, "the environment variable %s is not set (run through with-unit.sh)\n", name);
    std::exit(2);
  }
  return value;
}

std::filesystem::path FromUnixPath(const std::string& path) {
  std::string windows = "Z:" + path;
  for (char& c : windows)
    if (c == '/') c = '\\';
  return windows;
}

std::filesystem::path ServerDll() { return FromUnixPath(Environment("CAMRELAY_DLL")); }
std::filesystem::path WorkDir() { return FromUnixPath(Environment("CAMRELAY_WORK_DIR")); }
int UnitPort() { return std::atoi(Environment("CAMRELAY_UNIT_PORT").c_str()); }

int RunProgram(const std::wstring& commandLine, DWORD timeoutMs) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  std::wstring line = commandLine;
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
    return -1;
  DWORD code = static_cast<DWORD>(-1);
  if (WaitForSingleObject(process.hProcess, timeoutMs) == WAIT_OBJECT_0) GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return static_cast<int>(code);
}

void RegisterServer() {
  const int code = RunProgram(L"regsvr32.exe /s \"" + ServerDll().wstring() + L"\"");
  CHECK(code == 0, "regsvr32 registers camrelay.dll (exit code " + std::to_string(code) + ")");
}

void UnregisterServer() {
  const int code = RunProgram(L"regsvr32.exe /u /s \"" + ServerDll().wstring() + L"\"");
  CHECK(code == 0, "regsvr32 /u unregisters camrelay.dll (exit code " + std::to_string(code) + ")");
}

bool RegistryKeyExists(HKEY root, const std::wstring& key) {
  HKEY handle = nullptr;
  if (RegOpenKeyExW(root, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return false;
  RegCloseKey(handle);
  return true;
}

std::wstring RegistryText(HKEY root, const std::wstring& key, const wchar_t* name) {
  wchar_t value[1024] = {};
  DWORD bytes = sizeof value;
  if (RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ, nullptr, value, &bytes) != ERROR_SUCCESS) return {};
  return value;
}

std::wstring GuidText(REFGUID guid) {
  wchar_t text[40];
  StringFromGUID2(guid, text, 40);
  return text;
}

bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs) {
  const ULONGLONG deadline = GetTickCount64() + timeoutMs;
  while (!done()) {
    if (GetTickCount64() >= deadline) return false;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
  }
  return true;
}

void PumpFor(DWORD ms) {
  PumpUntil([] { return false; }, ms);
}

VARIANT Text(const std::wstring& value) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = SysAllocString(value.c_str());
  return v;
}

VARIANT Long(long value) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_I4;
  V_I4(&v) = value;
  return v;
}

VARIANT Bool(bool value) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_BOOL;
  V_BOOL(&v) = value ? VARIANT_TRUE : VARIANT_FALSE;
  return v;
}

HRESULT LateBound::Invoke(const wchar_t* name, WORD flags, std::vector<VARIANT>& arguments, VARIANT* result) {
  DISPID id = 0;
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  HRESULT hr = object_->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id);
  if (SUCCEEDED(hr)) {
    std::vector<VARIANT> reversed(arguments.rbegin(), arguments.rend());
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS params{reversed.data(), flags == DISPATCH_PROPERTYPUT ? &put : nullptr,
                      static_cast<UINT>(reversed.size()), flags == DISPATCH_PROPERTYPUT ? 1u : 0u};
    UINT argumentError = 0;
    hr = object_->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, nullptr, &argumentError);
  }
  for (auto& argument : arguments) VariantClear(&argument);
  CHECK(SUCCEEDED(hr), "calling " + camrelay::platform::windows::FromWide(name) + " answers S_OK");
  return hr;
}

HRESULT LateBound::Call(const wchar_t* name, std::vector<VARIANT> arguments) {
  return Invoke(name, DISPATCH_METHOD, arguments, nullptr);
}

VARIANT LateBound::Get(const wchar_t* name) {
  VARIANT result;
  VariantInit(&result);
  std::vector<VARIANT> none;
  Invoke(name, DISPATCH_PROPERTYGET | DISPATCH_METHOD, none, &result);
  return result;
}

std::wstring LateBound::GetText(const wchar_t* name) {
  VARIANT value = Get(name);
  std::wstring text = V_VT(&value) == VT_BSTR && V_BSTR(&value) ? V_BSTR(&value) : L"";
  VariantClear(&value);
  return text;
}

long LateBound::GetLong(const wchar_t* name) {
  VARIANT value = Get(name);
  VARIANT number;
  VariantInit(&number);
  const bool ok = SUCCEEDED(VariantChangeType(&number, &value, 0, VT_I4));
  VariantClear(&value);
  return ok ? V_I4(&number) : -12345;
}

HRESULT LateBound::Put(const wchar_t* name, VARIANT value) {
  std::vector<VARIANT> arguments{value};
  return Invoke(name, DISPATCH_PROPERTYPUT, arguments, nullptr);
}

HRESULT STDMETHODCALLTYPE EventSink::QueryInterface(REFIID iid, void** object) {
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, DIID___clsClient)) {
    *object = static_cast<IDispatch*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

HRESULT STDMETHODCALLTYPE EventSink::GetTypeInfoCount(UINT* count) {
  *count = 0;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE EventSink::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                            EXCEPINFO*, UINT*) {
  Event event{member, 0, {}, GetCurrentThreadId()};
  if (params && params->cArgs == 1) {
    const VARIANT& argument = params->rgvarg[0];
    if (V_VT(&argument) == (VT_BYREF | VT_I4)) event.number = *V_I4REF(&argument);
    if (V_VT(&argument) == (VT_BYREF | VT_BSTR) && *V_BSTRREF(&argument)) event.text = *V_BSTRREF(&argument);
    CHECK(V_VT(&argument) & VT_BYREF, "event " + std::to_string(member) + " passes its argument by reference");
  } else {
    CHECK(false, "event " + std::to_string(member) + " comes with one argument");
  }
  events.push_back(event);
  return S_OK;
}

bool EventSink::Connect(IUnknown* object) {
  IConnectionPointContainer* container = nullptr;
  if (FAILED(object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container))))
    return false;
  const HRESULT found = container->FindConnectionPoint(DIID___clsClient, &point_);
  container->Release();
  return SUCCEEDED(found) && SUCCEEDED(point_->Advise(static_cast<IDispatch*>(this), &cookie_));
}

void EventSink::Disconnect() {
  if (!point_) return;
  CHECK(SUCCEEDED(point_->Unadvise(cookie_)), "Unadvise drops the sink");
  point_->Release();
  point_ = nullptr;
}

std::vector<long> EventSink::States() const {
  std::vector<long> states;
  for (const auto& event : events)
    if (event.id == 1) states.push_back(event.number);
  return states;
}

bool EventSink::Saw(long state) const {
  for (long seen : States())
    if (seen == state) return true;
  return false;
}

std::wstring EventSink::DebugLines() const {
  std::wstring lines;
  for (const auto& event : events)
    if (event.id == 3) lines += event.text + L"\n";
  return lines;
}

// Connetti to the test's unit; arguments passed by value, as scripts pass
// literals, except the port, passed by reference as compiled hosts pass it.
void Connect(LateBound client, long protocol, long localPort, const std::filesystem::path& folder) {
  long port = UnitPort();
  VARIANT byReference;
  VariantInit(&byReference);
  V_VT(&byReference) = VT_BYREF | VT_I4;
  V_I4REF(&byReference) = &port;
  std::filesystem::create_directories(folder);
  client.Call(L"Connetti", {Text(L"127.0.0.1"), byReference, Long(localPort), Bool(false), Long(protocol),
                            Text(folder.wstring())});
}

long FreeUdpPort() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  SOCKET s = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address);
  int size = sizeof address;
  getsockname(s, reinterpret_cast<sockaddr*>(&address), &size);
  closesocket(s);
  return ntohs(address.sin_port);
}

}  // namespace host
