#include "host_support.h"

#include <winsock2.h>
#include <ocidl.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

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

void RegisterServer(bool unregister) {
  const int code = RunProgram(L"regsvr32.exe /s " + std::wstring(unregister ? L"/u \"" : L"\"") +
                              ServerDll().wstring() + L"\"");
  CHECK(code == 0, std::string(unregister ? "regsvr32 /u" : "regsvr32") + " ends with 0, not " + std::to_string(code));
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

namespace {
VARIANT Of(VARTYPE type) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = type;
  return v;
}
}  // namespace

VARIANT Text(const std::wstring& value) {
  VARIANT v = Of(VT_BSTR);
  V_BSTR(&v) = SysAllocString(value.c_str());
  return v;
}

VARIANT Long(long value) {
  VARIANT v = Of(VT_I4);
  V_I4(&v) = value;
  return v;
}

VARIANT Bool(bool value) {
  VARIANT v = Of(VT_BOOL);
  V_BOOL(&v) = value ? VARIANT_TRUE : VARIANT_FALSE;
  return v;
}

VARIANT Reference(VARTYPE type, void* target) {
  VARIANT v = Of(VT_BYREF | type);
  V_BYREF(&v) = target;
  return v;
}

std::string Hex(HRESULT hr) {
  char text[16];
  wsprintfA(text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
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

std::wstring EventSink::DebugLines(std::size_t from) const {
  std::wstring lines;
  for (std::size_t i = from; i < events.size(); ++i)
    if (events[i].id == 3) lines += events[i].text + L"\n";
  return lines;
}

void Connect(LateBound client, long protocol, long localPort, const std::filesystem::path& folder) {
  long port = UnitPort();
  std::filesystem::create_directories(folder);
  client.Call(L"Connetti", {Text(L"127.0.0.1"), Reference(VT_I4, &port), Long(localPort), Bool(false), Long(protocol),
                            Text(folder.wstring())});
}

Created::Created() {
  CLSID clsid{};
  CHECK(SUCCEEDED(CLSIDFromProgID(L"CamRelay.clsClient", &clsid)), "the ProgID CamRelay.clsClient is known");
  CHECK(IsEqualCLSID(clsid, CLSID_clsClient), "the ProgID names the class in the type library");
  const HRESULT hr =
      CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, reinterpret_cast<void**>(&object));
  if (!CHECK(SUCCEEDED(hr) && object, "CoCreateInstance creates the object")) std::exit(Failures());
  CHECK(sink.Connect(object), "a sink connects to __clsClient");
}

Created::~Created() {
  sink.Disconnect();
  object->Release();
}

bool Created::AwaitState(std::initializer_list<long> states, DWORD limit) {
  const std::size_t seen = sink.States().size();
  long reached = -1;
  PumpUntil(
      [&] {
        const auto all = sink.States();
        for (std::size_t i = seen; i < all.size(); ++i)
          for (long state : states)
            if (all[i] == state) reached = state;
        return reached >= 0;
      },
      limit);
  return reached == *states.begin();
}

std::string FileBytes(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
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
