// What a late-bound host may pass, hostile or careless: by-reference
// arguments that refer to nothing, too few or too many arguments, named ones
// that match no parameter, all refused with the HRESULT that says why and
// without reaching the member; then named arguments with optional ones left
// out, which bring the link up as they say.
#include <windows.h>
#include <ocidl.h>

#include <string>
#include <vector>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"

namespace fs = std::filesystem;
using namespace host;

namespace {

constexpr UINT kAnyArgument = 12345;

void Refused(RawCall& call, HRESULT expected, const std::string& what, UINT pointedAt = kAnyArgument) {
  const HRESULT hr = call.Run();
  CHECK(hr == expected, what + " is refused with " + Hex(expected) + ", not " + Hex(hr));
  if (pointedAt != kAnyArgument)
    CHECK(call.argumentError == pointedAt, what + ": the argument pointed at is " + std::to_string(pointedAt));
}

void RefusedCalls(IDispatch* object) {
  long port = UnitPort();
  RawCall host{object, L"Connetti", {Reference(VT_BSTR, nullptr), Reference(VT_I4, &port), Long(0)}};
  Refused(host, DISP_E_TYPEMISMATCH, "Connetti with a null string reference", 2);
  VARIANT inner = Reference(VT_BSTR, nullptr);
  RawCall nested{object, L"UploadStrCommand", {Reference(VT_VARIANT, &inner)}};
  Refused(nested, DISP_E_TYPEMISMATCH, "a reference through a Variant to nothing");

  RawCall gap{object, L"Connetti", {Text(L"127.0.0.1")}};
  gap.named.emplace_back(L"LocalPort", Long(0));
  Refused(gap, DISP_E_PARAMNOTOPTIONAL, "Connetti with RemotePort left out between named ones");
  RawCall seven{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1), Bool(false), Long(1), Text(L"."),
                                      Long(7)}};
  Refused(seven, DISP_E_BADPARAMCOUNT, "Connetti with seven arguments");
  RawCall getter{object, L"RemotePort", {Long(1)}, DISPATCH_PROPERTYGET | DISPATCH_METHOD};
  Refused(getter, DISP_E_BADPARAMCOUNT, "a property read with an argument");

  // Connetti has six parameters: a seventh (DISPID 6) is none of them.
  RawCall unknown{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1)}};
  unknown.named.emplace_back(L"", Long(1));
  unknown.namedIds = {6};
  Refused(unknown, DISP_E_PARAMNOTFOUND, "a named argument for no parameter", 0);
  RawCall twice{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1)}};
  twice.named.emplace_back(L"RemotePort", Long(1));
  Refused(twice, DISP_E_PARAMNOTFOUND, "a parameter given twice");
}

// Connetti as hosts write it with named arguments, optional ones left out,
// the port by reference as compiled hosts pass a variable.
void NamedArguments(Created& server) {
  LateBound client = server.Client();
  long unitPort = UnitPort();
  long localPort = FreeUdpPort();
  auto connects = [&](RawCall& call, long protocol, const std::string& what) {
    const HRESULT hr = call.Run();
    CHECK(hr == S_OK && client.GetLong(L"Protocol") == protocol && client.GetLong(L"RemotePort") == unitPort &&
              (protocol == camrelay::sckTCPProtocol || client.GetLong(L"LocalPort") == localPort),
          "Connetti with " + what + " brings the link up as asked (" + Hex(hr) + ")");
    client.Call(L"Disconnetti");
  };
  RawCall mixed{server.object, L"Connetti", {Text(L"127.0.0.1")}};
  mixed.named = {{L"RemotePort", Reference(VT_I4, &unitPort)}, {L"LocalPort", Long(localPort)}};
  connects(mixed, camrelay::sckUDPProtocol, "the host by position, the ports named");
  RawCall gap{server.object, L"Connetti"};
  gap.named = {{L"RemoteHost", Text(L"127.0.0.1")}, {L"RemotePort", Reference(VT_I4, &unitPort)},
               {L"LocalPort", Long(localPort)}, {L"WinsockProtocol", Long(camrelay::sckTCPProtocol)}};
  connects(gap, camrelay::sckTCPProtocol, "ViewRunTimeError left out before a named protocol");
  const fs::path folder = WorkDir() / "named";
  fs::create_directories(folder);
  // A fresh local port: Wine may refuse for a moment a bind to one just closed.
  localPort = FreeUdpPort();
  RawCall reversed{server.object, L"Connetti"};
  reversed.named = {{L"CurrDir", Text(folder.wstring())}, {L"WinsockProtocol", Long(camrelay::sckUDPProtocol)},
                    {L"ViewRunTimeError", Bool(false)}, {L"LocalPort", Long(localPort)},
                    {L"RemotePort", Reference(VT_I4, &unitPort)}, {L"RemoteHost", Text(L"127.0.0.1")}};
  connects(reversed, camrelay::sckUDPProtocol, "all six named, last first");
  RawCall command{server.object, L"DownLoadStrCommand"};
  command.named.emplace_back(L"strCommand", Text(L"X"));
  CHECK(command.Run() == S_OK, "DownLoadStrCommand with its by-value argument named");
}

}  // namespace

void Calls() {
  Created server;
  RefusedCalls(server.object);
  CHECK(server.sink.events.empty(), "no refused call reached its member");
  NamedArguments(server);
}
