// What a late-bound host may pass, hostile or careless, one group each: named
// arguments with optional ones left out (named); by-reference arguments that
// refer to nothing, too few or too many arguments (refused); ports no socket
// can take (ports). None may crash the host; a refused call never reaches the
// member.
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
  if (name == L"RemotePort") return Reference(VT_I4, unitPort);  // a variable, as compiled hosts pass it
  if (name == L"LocalPort") return Long(localPort);         // a literal
  if (name == L"ViewRunTimeError") return Bool(false);
  if (name == L"WinsockProtocol") return Long(protocol);
  return Text(folder.wstring());  // CurrDir
}

void NamedArguments(Created& server) {
  IDispatch* object = server.object;
  LateBound client(object);
  const fs::path folder = WorkDir() / "named";
  fs::create_directories(folder);
  const std::vector<Form> forms{
      {"the three required ones named", {}, {L"RemoteHost", L"RemotePort", L"LocalPort"}, camrelay::sckUDPProtocol},
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
  RawCall command{object, L"DownLoadStrCommand"};
  command.named.emplace_back(L"strCommand", Text(L"X"));
  CHECK(command.Run() == S_OK, "DownLoadStrCommand with its by-value argument named");
}

// ---- Calls the server refuses: arguments that refer to nothing, too few or too
// many, named ones that match no parameter. -------------------------------------

constexpr UINT kAnyArgument = 12345;

void Refused(RawCall& call, HRESULT expected, const std::string& what, UINT pointedAt = kAnyArgument,
             std::vector<DISPID> ids = {}) {
  const HRESULT hr = ids.empty() ? call.Run() : call.RunWithIds(ids[0], {ids.begin() + 1, ids.end()});
  CHECK(hr == expected, what + " is refused with " + Hex(expected) + ", not " + Hex(hr));
  if (pointedAt != kAnyArgument)
    CHECK(call.argumentError == pointedAt, what + ": the argument pointed at is " + std::to_string(pointedAt));
}

void RefusedCalls(Created& server) {
  IDispatch* object = server.object;
  for (const wchar_t* member : {L"AttivaPreview", L"DownLoadStreamImage", L"DownloadMultimediaFile",
                                L"UploadStrCommand", L"UpLoadMessaggiWave", L"UpLoadAggiornamento",
                                L"DownLoadStrCommand"}) {
    RawCall call{object, member, {Reference(VT_VARIANT, nullptr)}};
    Refused(call, DISP_E_TYPEMISMATCH, FromWide(member) + " with a null Variant reference", 0);
  }
  VARIANT inner = Reference(VT_BSTR, nullptr);
  RawCall nested{object, L"UploadStrCommand", {Reference(VT_VARIANT, &inner)}};
  Refused(nested, DISP_E_TYPEMISMATCH, "a reference through a Variant to nothing");
  long port = UnitPort();
  RawCall host{object, L"Connetti", {Reference(VT_BSTR, nullptr), Reference(VT_I4, &port), Long(0)}};
  Refused(host, DISP_E_TYPEMISMATCH, "Connetti with a null string reference", 2);
  RawCall let{object, L"StringaCodiceAccesso"};
  let.flags = DISPATCH_PROPERTYPUT;
  let.named.emplace_back(L"", Reference(VT_VARIANT, nullptr));
  Refused(let, DISP_E_TYPEMISMATCH, "a property let of a null reference", kAnyArgument, {15, DISPID_PROPERTYPUT});

  RawCall none{object, L"Connetti"};
  Refused(none, DISP_E_PARAMNOTOPTIONAL, "Connetti without arguments");
  RawCall one{object, L"Connetti", {Text(L"127.0.0.1")}};
  Refused(one, DISP_E_PARAMNOTOPTIONAL, "Connetti without its ports");
  RawCall gap{object, L"Connetti", {Text(L"127.0.0.1")}};
  gap.named.emplace_back(L"LocalPort", Long(0));
  Refused(gap, DISP_E_PARAMNOTOPTIONAL, "Connetti with RemotePort left out between named ones");
  RawCall command{object, L"UploadStrCommand"};
  Refused(command, DISP_E_PARAMNOTOPTIONAL, "UploadStrCommand without its string");
  RawCall extra{object, L"Show", {Long(1)}};
  Refused(extra, DISP_E_BADPARAMCOUNT, "Show with an argument");
  RawCall seven{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1), Bool(false), Long(1), Text(L"."),
                                      Long(7)}};
  Refused(seven, DISP_E_BADPARAMCOUNT, "Connetti with seven arguments");
  RawCall getter{object, L"RemotePort", {Long(1)}};
  getter.flags = DISPATCH_PROPERTYGET | DISPATCH_METHOD;
  Refused(getter, DISP_E_BADPARAMCOUNT, "a property read with an argument");

  // 40 is Connetti; 9 is no parameter of it, 1 is RemotePort again.
  RawCall unknown{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1)}};
  unknown.named.emplace_back(L"", Long(1));
  Refused(unknown, DISP_E_PARAMNOTFOUND, "a named argument for no parameter", 0, {40, 9});
  RawCall twice{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1)}};
  twice.named.emplace_back(L"", Long(1));
  Refused(twice, DISP_E_PARAMNOTFOUND, "a parameter given twice", kAnyArgument, {40, 1});
  CHECK(server.sink.events.empty(), "no refused call reached its member");
}

// ---- Ports no socket can take. ---------------------------------------------------

void BadPorts(Created& server) {
  LateBound client = server.Client();
  const EventSink& sink = server.sink;
  Connect(client, camrelay::sckUDPProtocol, FreeUdpPort(), WorkDir() / "ports");
  const long boundPort = client.GetLong(L"LocalPort");
  const std::wstring storedLocal = RegistryText(HKEY_CURRENT_USER, kSettings, L"LocalPort");

  auto refused = [&](long remotePort, long localPort, const std::wstring& line) {
    const std::size_t before = sink.events.size();
    client.Call(L"Connetti", {Text(L"127.0.0.1"), Long(remotePort), Long(localPort), Bool(false),
                              Long(camrelay::sckUDPProtocol)});
    PumpFor(100);
    const std::wstring lines = sink.DebugLines(before);
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

// Each group on an object of its own, whose sink hears whether a refused
// call reached its member after all.
template <void (*cases)(Created&)>
void OnObject() {
  Created server;
  cases(server);
}

void NamedArgumentCases() { OnObject<NamedArguments>(); }
void RefusedCallCases() { OnObject<RefusedCalls>(); }
void BadPortCases() { OnObject<BadPorts>(); }
