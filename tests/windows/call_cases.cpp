// What a late-bound host may pass, hostile or careless, one group each: named
// arguments with optional ones left out (named), by-reference arguments that
// refer to nothing (nulls), too few or too many arguments (counts), ports no
// socket can take (ports). None may crash the host; a refused call never
// reaches the member.
// discovery: the event source found the ways hosts look for it.
#include <windows.h>
#include <ocidl.h>

#include <string>
#include <utility>
#include <vector>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"
#include "platform/windows/codepage.h"

namespace fs = std::filesystem;
using namespace host;
using camrelay::platform::windows::FromWide;

namespace {

const std::wstring kSettings = L"Software\\VB and VBA Program Settings\\CamRelay\\AppSetting";

IDispatch* CreateClient() {
  CLSID clsid{};
  CLSIDFromProgID(L"CamRelay.clsClient", &clsid);
  IDispatch* object = nullptr;
  CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, reinterpret_cast<void**>(&object));
  return object;
}

// A call as a host builds it: the member and its parameters by name, the
// positional arguments in written order, then the named ones.
struct RawCall {
  RawCall(IDispatch* object, std::wstring member, std::vector<VARIANT> positional = {})
      : object(object), member(std::move(member)), positional(std::move(positional)) {}
  RawCall(const RawCall&) = delete;
  RawCall& operator=(const RawCall&) = delete;

  IDispatch* object;
  std::wstring member;
  std::vector<VARIANT> positional;
  std::vector<std::pair<std::wstring, VARIANT>> named;
  WORD flags = DISPATCH_METHOD;
  UINT argumentError = 12345;

  HRESULT Run() {
    std::vector<std::wstring> names{member};
    for (const auto& [name, value] : named) names.push_back(name);
    std::vector<LPOLESTR> pointers;
    for (auto& name : names) pointers.push_back(name.data());
    std::vector<DISPID> ids(names.size());
    HRESULT hr = object->GetIDsOfNames(IID_NULL, pointers.data(), static_cast<UINT>(pointers.size()),
                                       LOCALE_USER_DEFAULT, ids.data());
    if (FAILED(hr)) return hr;
    return RunWithIds(ids[0], std::vector<DISPID>(ids.begin() + 1, ids.end()));
  }

  // The same with the parameters' DISPIDs given, right or wrong.
  HRESULT RunWithIds(DISPID id, std::vector<DISPID> namedIds) {
    // Named arguments come first in rgvarg, then the positional ones last
    // first.
    std::vector<VARIANT> arguments;
    for (auto& [name, value] : named) arguments.push_back(value);
    for (auto it = positional.rbegin(); it != positional.rend(); ++it) arguments.push_back(*it);
    DISPPARAMS params{arguments.data(), namedIds.data(), static_cast<UINT>(arguments.size()),
                      static_cast<UINT>(namedIds.size())};
    VARIANT result;
    VariantInit(&result);
    const HRESULT hr = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, &result, nullptr,
                                      &argumentError);
    VariantClear(&result);
    return hr;
  }

  ~RawCall() {
    for (auto& value : positional) VariantClear(&value);
    for (auto& [name, value] : named) VariantClear(&value);
  }
};

VARIANT ByReference(long* value) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_BYREF | VT_I4;
  V_I4REF(&v) = value;
  return v;
}

VARIANT ReferenceTo(VARTYPE type, void* target) {
  VARIANT v;
  VariantInit(&v);
  V_VT(&v) = VT_BYREF | type;
  V_BYREF(&v) = target;
  return v;
}

std::string Hex(HRESULT hr) {
  char text[16];
  wsprintfA(text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
}

// ---- Named arguments: each form a late-bound host writes, optionals left out
// in every way; the link comes up as the arguments say. --------------------------

struct Form {
  const char* what;
  std::vector<const wchar_t*> positional;  // in order, from RemoteHost on
  std::vector<const wchar_t*> named;       // in the order written
  long protocol;                           // what Protocol must read afterwards
};

VARIANT ArgumentFor(const std::wstring& name, long* unitPort, long localPort, long protocol,
                    const fs::path& folder) {
  if (name == L"RemoteHost") return Text(L"127.0.0.1");
  if (name == L"RemotePort") return ByReference(unitPort);  // a variable, as compiled hosts pass it
  if (name == L"LocalPort") return Long(localPort);         // a literal
  if (name == L"ViewRunTimeError") return Bool(false);
  if (name == L"WinsockProtocol") return Long(protocol);
  return Text(folder.wstring());  // CurrDir
}

void NamedArguments(IDispatch* object) {
  LateBound client(object);
  const fs::path folder = WorkDir() / "named";
  fs::create_directories(folder);
  const std::vector<Form> forms{
      {"the three required ones named", {}, {L"RemoteHost", L"RemotePort", L"LocalPort"}, camrelay::sckUDPProtocol},
      {"named in another order", {}, {L"LocalPort", L"RemoteHost", L"RemotePort"}, camrelay::sckUDPProtocol},
      {"the host by position, the ports named", {L"RemoteHost"}, {L"RemotePort", L"LocalPort"},
       camrelay::sckUDPProtocol},
      {"ViewRunTimeError left out before a named protocol", {},
       {L"RemoteHost", L"RemotePort", L"LocalPort", L"WinsockProtocol"}, camrelay::sckTCPProtocol},
      {"two optionals left out before CurrDir", {}, {L"RemoteHost", L"RemotePort", L"LocalPort", L"CurrDir"},
       camrelay::sckUDPProtocol},
      {"the last two left out", {L"RemoteHost", L"RemotePort", L"LocalPort"}, {L"ViewRunTimeError"},
       camrelay::sckUDPProtocol},
      {"all six named", {},
       {L"CurrDir", L"WinsockProtocol", L"ViewRunTimeError", L"LocalPort", L"RemotePort", L"RemoteHost"},
       camrelay::sckTCPProtocol},
  };
  for (const Form& form : forms) {
    long unitPort = UnitPort();
    const long localPort = FreeUdpPort();
    RawCall call{object, L"Connetti"};
    for (const wchar_t* name : form.positional)
      call.positional.push_back(ArgumentFor(name, &unitPort, localPort, form.protocol, folder));
    for (const wchar_t* name : form.named)
      call.named.emplace_back(name, ArgumentFor(name, &unitPort, localPort, form.protocol, folder));
    const std::string what = std::string("Connetti with ") + form.what;
    const HRESULT hr = call.Run();
    CHECK(hr == S_OK, what + " answers S_OK, not " + Hex(hr));
    CHECK(client.GetLong(L"Protocol") == form.protocol, what + ": the protocol asked for");
    CHECK(client.GetLong(L"RemotePort") == UnitPort(), what + ": the remote port given");
    if (form.protocol == camrelay::sckUDPProtocol)
      CHECK(client.GetLong(L"LocalPort") == localPort, what + ": the local port given");
    client.Call(L"Disconnetti");
  }

  // A by-value argument named as well.
  RawCall command{object, L"DownLoadStrCommand"};
  command.named.emplace_back(L"strCommand", Text(L"X"));
  CHECK(command.Run() == S_OK, "DownLoadStrCommand with its argument named");

  // A name's DISPID that matches no parameter, or one already given.
  RawCall unknown{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1)}};
  unknown.named.emplace_back(L"", Long(1));
  CHECK(unknown.RunWithIds(40, {9}) == DISP_E_PARAMNOTFOUND && unknown.argumentError == 0,
        "a named argument for no parameter is refused and pointed at");
  RawCall twice{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1)}};
  twice.named.emplace_back(L"", Long(1));
  CHECK(twice.RunWithIds(40, {1}) == DISP_E_PARAMNOTFOUND, "a parameter given twice is refused");
}

// ---- Arguments that refer to nothing. -----------------------------------------------

void NullReferences(IDispatch* object, const EventSink& sink) {
  for (const wchar_t* member : {L"AttivaPreview", L"DownLoadStreamImage", L"DownloadMultimediaFile",
                                L"UploadStrCommand", L"UpLoadMessaggiWave", L"UpLoadAggiornamento",
                                L"DownLoadStrCommand"}) {
    RawCall call{object, member, {ReferenceTo(VT_VARIANT, nullptr)}};
    const HRESULT hr = call.Run();
    CHECK(hr == DISP_E_TYPEMISMATCH && call.argumentError == 0,
          FromWide(member) + " refuses a null Variant reference (" + Hex(hr) + ")");
  }
  // A Variant that refers to a Variant that refers to nothing.
  VARIANT inner = ReferenceTo(VT_BSTR, nullptr);
  RawCall nested{object, L"UploadStrCommand", {ReferenceTo(VT_VARIANT, &inner)}};
  CHECK(nested.Run() == DISP_E_TYPEMISMATCH, "a reference through a Variant to nothing is refused");
  long port = UnitPort();
  RawCall host{object, L"Connetti", {ReferenceTo(VT_BSTR, nullptr), ByReference(&port), Long(0)}};
  CHECK(host.Run() == DISP_E_TYPEMISMATCH && host.argumentError == 2, "Connetti refuses a null string reference");
  RawCall let{object, L"StringaCodiceAccesso"};
  let.flags = DISPATCH_PROPERTYPUT;
  let.named.emplace_back(L"", ReferenceTo(VT_VARIANT, nullptr));
  CHECK(let.RunWithIds(15, {DISPID_PROPERTYPUT}) == DISP_E_TYPEMISMATCH, "a property let refuses one too");
  CHECK(sink.events.empty(), "no refused call reached its member");
}

// ---- Too few and too many arguments. ----------------------------------------------

void ArgumentCounts(IDispatch* object, const EventSink& sink) {
  RawCall none{object, L"Connetti"};
  CHECK(none.Run() == DISP_E_PARAMNOTOPTIONAL, "Connetti without arguments: a required one is missing");
  RawCall one{object, L"Connetti", {Text(L"127.0.0.1")}};
  CHECK(one.Run() == DISP_E_PARAMNOTOPTIONAL, "Connetti without its ports: a required one is missing");
  RawCall gap{object, L"Connetti", {Text(L"127.0.0.1")}};
  gap.named.emplace_back(L"LocalPort", Long(0));
  CHECK(gap.Run() == DISP_E_PARAMNOTOPTIONAL, "Connetti with RemotePort left out between named ones");
  RawCall command{object, L"UploadStrCommand"};
  CHECK(command.Run() == DISP_E_PARAMNOTOPTIONAL, "UploadStrCommand without its string");
  RawCall extra{object, L"Show", {Long(1)}};
  CHECK(extra.Run() == DISP_E_BADPARAMCOUNT, "Show takes no argument");
  RawCall seven{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1), Bool(false), Long(1), Text(L"."),
                                      Long(7)}};
  CHECK(seven.Run() == DISP_E_BADPARAMCOUNT, "Connetti takes six arguments, not seven");
  RawCall getter{object, L"RemotePort", {Long(1)}};
  getter.flags = DISPATCH_PROPERTYGET | DISPATCH_METHOD;
  CHECK(getter.Run() == DISP_E_BADPARAMCOUNT, "a property read takes no argument");
  CHECK(sink.events.empty(), "no refused call reached its member");
}

// ---- Ports no socket can take. ---------------------------------------------------

void BadPorts(IDispatch* object, const EventSink& sink) {
  LateBound client(object);
  const fs::path folder = WorkDir() / "ports";
  Connect(client, camrelay::sckUDPProtocol, FreeUdpPort(), folder);
  const long boundPort = client.GetLong(L"LocalPort");
  const std::wstring storedLocal = RegistryText(HKEY_CURRENT_USER, kSettings, L"LocalPort");

  auto refused = [&](long remotePort, long localPort, const std::wstring& line) {
    const std::size_t before = sink.events.size();
    client.Call(L"Connetti", {Text(L"127.0.0.1"), Long(remotePort), Long(localPort), Bool(false),
                              Long(camrelay::sckUDPProtocol)});
    PumpFor(100);
    std::wstring lines;
    for (std::size_t i = before; i < sink.events.size(); ++i)
      if (sink.events[i].id == 3) lines += sink.events[i].text + L"\n";
    CHECK(lines == line + L"\n", "the port is refused with one OnDebug line; it was: " + FromWide(lines));
    CHECK(client.GetLong(L"LocalPort") == boundPort && client.GetLong(L"RemotePort") == UnitPort(),
          "the link in place stays as it was");
  };
  refused(70001, 0, L"Connetti: the remote port 70001 is outside 1 to 65535");
  refused(UnitPort(), 70000, L"Connetti: the local port 70000 is outside 0 to 65535");
  CHECK(RegistryText(HKEY_CURRENT_USER, kSettings, L"RemotePort") == std::to_wstring(UnitPort()) &&
            RegistryText(HKEY_CURRENT_USER, kSettings, L"LocalPort") == storedLocal,
        "a refused port is never written to the settings");

  // A port from the settings is held to the same bounds.
  HKEY key = nullptr;
  RegCreateKeyExW(HKEY_CURRENT_USER, kSettings.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  const wchar_t stored[] = L"70002";
  RegSetValueExW(key, L"RemotePort", 0, REG_SZ, reinterpret_cast<const BYTE*>(stored), sizeof stored);
  RegCloseKey(key);
  refused(0, 0, L"Connetti: the remote port 70002 is outside 1 to 65535");
  client.Call(L"Disconnetti");
  RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\VB and VBA Program Settings\\CamRelay");
}

}  // namespace

// Each group on an object of its own, with a sink that hears whether a
// refused call reached its member after all.
template <class Cases>
void WithObject(Cases cases) {
  RegisterServer();
  IDispatch* object = CreateClient();
  if (!CHECK(object != nullptr, "the object is created")) return;
  EventSink sink;
  CHECK(sink.Connect(object), "a sink connects");
  cases(object, sink);
  sink.Disconnect();
  object->Release();
}

void NamedArgumentCases() {
  WithObject([](IDispatch* object, const EventSink&) { NamedArguments(object); });
}
void NullReferenceCases() { WithObject(NullReferences); }
void ArgumentCountCases() { WithObject(ArgumentCounts); }
void BadPortCases() { WithObject(BadPorts); }

// ---- discovery: the event source found by walking the container's points and
// by asking the class for its default source. ---------------------------------

namespace {

// Advises sink on point and checks that an event arrives through it:
// CameraPreview read before Connetti raises cNoOperation.
void CheckEventsArrive(IDispatch* object, IConnectionPoint* point, const std::string& how) {
  EventSink sink;
  DWORD cookie = 0;
  if (!CHECK(SUCCEEDED(point->Advise(static_cast<IDispatch*>(&sink), &cookie)), how + ": the sink is advised"))
    return;
  LateBound(object).GetLong(L"CameraPreview");
  CHECK(sink.States() == std::vector<long>{camrelay::cNoOperation}, how + ": the event reaches the sink");
  CHECK(SUCCEEDED(point->Unadvise(cookie)), how + ": the sink is unadvised");
}

void WalkPoints(IDispatch* object) {
  IConnectionPointContainer* container = nullptr;
  object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container));
  if (!CHECK(container != nullptr, "the object is a connection point container")) return;
  IEnumConnectionPoints* points = nullptr;
  const HRESULT hr = container->EnumConnectionPoints(&points);
  container->Release();
  if (!CHECK(hr == S_OK && points, "EnumConnectionPoints answers (" + Hex(hr) + ")")) return;
  IConnectionPoint* found[2] = {};
  ULONG fetched = 0;
  CHECK(points->Next(2, found, &fetched) == S_FALSE && fetched == 1, "there is exactly one connection point");
  IEnumConnectionPoints* copy = nullptr;
  CHECK(points->Reset() == S_OK && points->Clone(&copy) == S_OK && copy, "the enumeration restarts and copies");
  IConnectionPoint* again = nullptr;
  if (copy) {
    CHECK(copy->Next(1, &again, nullptr) == S_OK && again == found[0], "the copy gives the same point");
    CHECK(copy->Skip(1) == S_FALSE, "nothing is left to skip");
    copy->Release();
  }
  if (again) again->Release();
  points->Release();
  if (!found[0]) return;
  IID events{};
  found[0]->GetConnectionInterface(&events);
  CHECK(IsEqualIID(events, DIID___clsClient), "the point is __clsClient's");
  CheckEventsArrive(object, found[0], "through the enumerated point");
  found[0]->Release();
}

void DefaultSource(IDispatch* object) {
  IProvideClassInfo2* info = nullptr;
  object->QueryInterface(IID_IProvideClassInfo2, reinterpret_cast<void**>(&info));
  if (!CHECK(info != nullptr, "the object provides IProvideClassInfo2")) return;
  GUID source{};
  CHECK(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source) == S_OK && IsEqualIID(source, DIID___clsClient),
        "the default source is __clsClient");
  GUID other{};
  CHECK(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID + 1, &other) == E_INVALIDARG, "another kind is refused");
  ITypeInfo* coclass = nullptr;
  CHECK(info->GetClassInfo(&coclass) == S_OK && coclass, "the class's type information");
  if (coclass) {
    TYPEATTR* attributes = nullptr;
    coclass->GetTypeAttr(&attributes);
    CHECK(attributes && IsEqualCLSID(attributes->guid, CLSID_clsClient), "it describes clsClient");
    if (attributes) coclass->ReleaseTypeAttr(attributes);
    coclass->Release();
  }
  info->Release();

  IConnectionPointContainer* container = nullptr;
  object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container));
  IConnectionPoint* point = nullptr;
  if (container && SUCCEEDED(container->FindConnectionPoint(source, &point))) {
    CheckEventsArrive(object, point, "through the default source");
    point->Release();
  } else {
    CHECK(false, "the default source's point is found");
  }
  if (container) container->Release();
}

}  // namespace

void Discovery() {
  RegisterServer();
  IDispatch* object = CreateClient();
  if (!CHECK(object != nullptr, "the object is created")) return;
  WalkPoints(object);
  DefaultSource(object);
  object->Release();
}
