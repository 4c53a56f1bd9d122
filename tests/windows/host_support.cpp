#include "host_support.h"

#include <winsock2.h>
#include <ocidl.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "camrelay.h"
#include "platform/windows/codepage.h"

namespace host {

using camrelay::platform::windows::FromWide;

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

// Set by with-unit.sh and the test's environment.
std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
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

FARPROC Export(const char* name) {
  static const HMODULE dll = LoadLibraryW(ServerDll().wstring().c_str());
  return dll ? GetProcAddress(dll, name) : nullptr;
}

void RegisterServer(bool unregister) {
  const auto entry = reinterpret_cast<HRESULT(WINAPI*)()>(
      reinterpret_cast<void*>(Export(unregister ? "DllUnregisterServer" : "DllRegisterServer")));
  const HRESULT hr = entry ? entry() : E_FAIL;
  CHECK(hr == S_OK, std::string(unregister ? "DllUnregisterServer" : "DllRegisterServer") + " answers " + Hex(hr));
}

std::wstring RegistryText(HKEY root, const std::wstring& key, const wchar_t* name) {
  wchar_t value[1024] = {};
  DWORD bytes = sizeof value;
  if (RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ, nullptr, value, &bytes) != ERROR_SUCCESS) return {};
  return value;
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
  VARIANT v{};
  V_VT(&v) = VT_BSTR;
  V_BSTR(&v) = SysAllocString(value.c_str());
  return v;
}

VARIANT Long(long value) {
  VARIANT v{};
  V_VT(&v) = VT_I4;
  V_I4(&v) = value;
  return v;
}

VARIANT Bool(bool value) {
  VARIANT v{};
  V_VT(&v) = VT_BOOL;
  V_BOOL(&v) = value ? VARIANT_TRUE : VARIANT_FALSE;
  return v;
}

VARIANT Reference(VARTYPE type, void* target) {
  VARIANT v{};
  V_VT(&v) = VT_BYREF | type;
  V_BYREF(&v) = target;
  return v;
}

std::string Hex(HRESULT hr) {
  char text[16];
  wsprintfA(text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
}

RawCall::RawCall(IDispatch* object, std::wstring member, std::vector<VARIANT> positional, WORD flags)
    : object(object), member(std::move(member)), positional(std::move(positional)), flags(flags), result() {}

RawCall::~RawCall() {
  for (auto& value : positional) VariantClear(&value);
  for (auto& [name, value] : named) VariantClear(&value);
  VariantClear(&result);
}

HRESULT RawCall::Run() {
  std::vector<std::wstring> names{member};
  if (namedIds.empty())
    for (const auto& [name, value] : named) names.push_back(name);
  std::vector<LPOLESTR> pointers;
  for (auto& name : names) pointers.push_back(name.data());
  std::vector<DISPID> ids(names.size());
  const HRESULT hr = object->GetIDsOfNames(IID_NULL, pointers.data(), static_cast<UINT>(pointers.size()),
                                           LOCALE_USER_DEFAULT, ids.data());
  if (FAILED(hr)) return hr;
  if (namedIds.empty()) namedIds.assign(ids.begin() + 1, ids.end());
  if (flags == DISPATCH_PROPERTYPUT) namedIds.push_back(DISPID_PROPERTYPUT);
  // Named arguments come first in rgvarg, then the positional ones last first.
  std::vector<VARIANT> arguments;
  for (auto& [name, value] : named) arguments.push_back(value);
  arguments.insert(arguments.end(), positional.rbegin(), positional.rend());
  DISPPARAMS params{arguments.data(), namedIds.data(), static_cast<UINT>(arguments.size()),
                    static_cast<UINT>(namedIds.size())};
  return object->Invoke(ids[0], IID_NULL, LOCALE_USER_DEFAULT, flags, &params, &result, nullptr, &argumentError);
}

namespace {
HRESULT Succeeds(RawCall& call) {
  const HRESULT hr = call.Run();
  CHECK(SUCCEEDED(hr), "calling " + FromWide(call.member) + " answers " + Hex(hr));
  return hr;
}
}  // namespace

void LateBound::Call(const wchar_t* name, std::vector<VARIANT> arguments) {
  RawCall call(object_, name, std::move(arguments));
  Succeeds(call);
}

long LateBound::GetLong(const wchar_t* name) {
  RawCall call(object_, name, {}, DISPATCH_PROPERTYGET | DISPATCH_METHOD);
  VARIANT number{};
  const bool ok = SUCCEEDED(Succeeds(call)) && SUCCEEDED(VariantChangeType(&number, &call.result, 0, VT_I4));
  return ok ? V_I4(&number) : -12345;
}

void LateBound::Put(const wchar_t* name, VARIANT value) {
  RawCall call(object_, name, {value}, DISPATCH_PROPERTYPUT);
  Succeeds(call);
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

HRESULT STDMETHODCALLTYPE EventSink::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*,
                                            EXCEPINFO*, UINT*) {
  Event event{member, 0, {}, GetCurrentThreadId()};
  const VARIANT* argument = params && params->cArgs == 1 ? &params->rgvarg[0] : nullptr;
  CHECK(argument && (V_VT(argument) & VT_BYREF),
        "event " + std::to_string(member) + " passes one argument by reference");
  if (argument && V_VT(argument) == (VT_BYREF | VT_I4)) event.number = *V_I4REF(argument);
  if (argument && V_VT(argument) == (VT_BYREF | VT_BSTR) && *V_BSTRREF(argument)) event.text = *V_BSTRREF(argument);
  events.push_back(event);
  return S_OK;
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
  IConnectionPointContainer* container = nullptr;
  object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container));
  CHECK(container && SUCCEEDED(container->FindConnectionPoint(DIID___clsClient, &point)) &&
            SUCCEEDED(point->Advise(&sink, &cookie)),
        "a sink connects to __clsClient");
  if (container) container->Release();
}

Created::~Created() {
  if (point) CHECK(SUCCEEDED(point->Unadvise(cookie)), "Unadvise drops the sink");
  if (point) point->Release();
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
