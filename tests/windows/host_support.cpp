#include "host_support.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

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
std::filesystem::path PathFrom(const char* variable) {
  const char* value = std::getenv(variable);
  std::string windows = "Z:" + std::string(value ? value : "");
  std::replace(windows.begin(), windows.end(), '/', '\\');
  return windows;
}

int UnitPort() {
  const char* port = std::getenv("CAMRELAY_UNIT_PORT");
  return port ? std::atoi(port) : 0;
}

FARPROC Export(const char* name) {
  static const HMODULE dll = LoadLibraryW(PathFrom("CAMRELAY_DLL").wstring().c_str());
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
bool Succeeds(RawCall& call) {
  const HRESULT hr = call.Run();
  return CHECK(SUCCEEDED(hr), "calling " + FromWide(call.member) + " answers " + Hex(hr));
}
}  // namespace

void Call(IDispatch* object, const wchar_t* name, std::vector<VARIANT> arguments) {
  RawCall call(object, name, std::move(arguments));
  Succeeds(call);
}

long GetLong(IDispatch* object, const wchar_t* name) {
  RawCall call(object, name, {}, DISPATCH_PROPERTYGET | DISPATCH_METHOD);
  VARIANT number{};
  const bool ok = Succeeds(call) && SUCCEEDED(VariantChangeType(&number, &call.result, 0, VT_I4));
  return ok ? V_I4(&number) : -12345;
}

void Put(IDispatch* object, const wchar_t* name, VARIANT value) {
  RawCall call(object, name, {value}, DISPATCH_PROPERTYPUT);
  Succeeds(call);
}

HRESULT STDMETHODCALLTYPE EventSink::QueryInterface(REFIID iid, void** object) {
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, DIID___clsClient)) {
    *object = static_cast<IDispatch*>(this);  // counted by no one: it lives as long as the server
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

void Connect(IDispatch* client, long protocol, long localPort, const std::filesystem::path& folder) {
  long port = UnitPort();
  std::filesystem::create_directories(folder);
  Call(client, L"Connetti",
       {Text(L"127.0.0.1"), Reference(VT_I4, &port), Long(localPort), Long(0), Long(protocol), Text(folder.wstring())});
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

bool Created::AwaitState(long state, DWORD limit) {
  const std::size_t seen = sink.States().size();
  return PumpUntil(
      [&] {
        const auto all = sink.States();
        return std::find(all.begin() + seen, all.end(), state) != all.end();
      },
      limit);
}

std::string FileBytes(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace host
