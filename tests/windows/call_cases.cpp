// What a late-bound host may pass, hostile or careless: by-reference
// arguments that refer to nothing, too few or too many arguments, named ones
// that match no parameter, all refused with the HRESULT that says why and
// without reaching the member; then named arguments with optional ones left
// out, which bring the link up as they say; then the diagnostic panel, whose
// "Invia" sends the typed string on that UDP link.
#include <windows.h>

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
  RawCall seven{object, L"Connetti", {Text(L"127.0.0.1"), Long(1), Long(1), Long(0), Long(1), Text(L"."), Long(7)}};
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
// the port by reference as compiled hosts pass a variable. Each UDP link
// binds a local port of its own beside the unit's: Wine may refuse for a
// moment a bind to one just closed.
void NamedArguments(IDispatch* client) {
  long unitPort = UnitPort();
  auto connects = [&](RawCall& call, long protocol, const std::string& what) {
    const HRESULT hr = call.Run();
    CHECK(hr == S_OK && GetLong(client, L"Protocol") == protocol && GetLong(client, L"RemotePort") == unitPort &&
              (protocol == camrelay::sckTCPProtocol || GetLong(client, L"LocalPort") == unitPort + 1),
          "Connetti with " + what + " brings the link up as asked (" + Hex(hr) + ")");
    Call(client, L"Disconnetti");
  };
  RawCall mixed{client, L"Connetti", {Text(L"127.0.0.1")}};
  mixed.named = {{L"RemotePort", Reference(VT_I4, &unitPort)}, {L"LocalPort", Long(unitPort + 1)}};
  connects(mixed, camrelay::sckUDPProtocol, "the host by position, the ports named");
  RawCall reversed{client, L"Connetti"};
  reversed.named = {{L"CurrDir", Text((PathFrom("CAMRELAY_WORK_DIR") / "named").wstring())},
                    {L"WinsockProtocol", Long(camrelay::sckTCPProtocol)}, {L"LocalPort", Long(0)},
                    {L"RemotePort", Reference(VT_I4, &unitPort)}, {L"RemoteHost", Text(L"127.0.0.1")}};
  connects(reversed, camrelay::sckTCPProtocol, "ViewRunTimeError left out, the others named last first");
}

// Show brings up the panel; on UDP its send row is there, and "Invia" sends
// what is typed into its one writable field.
void Panel(IDispatch* client) {
  Connect(client, camrelay::sckUDPProtocol, UnitPort() + 2, PathFrom("CAMRELAY_WORK_DIR") / "host");
  Call(client, L"Show");
  HWND panel = nullptr;
  PumpUntil([&] { return (panel = FindWindowW(nullptr, L"CAMRELAY by SENTROVA")) && IsWindowVisible(panel); }, 5000);
  if (!CHECK(panel && IsWindowVisible(panel), "Show brings up the window \"CAMRELAY by SENTROVA\"")) return;
  HWND field = FindWindowExW(panel, nullptr, L"Edit", nullptr);
  while (field && (GetWindowLongW(field, GWL_STYLE) & ES_READONLY))
    field = FindWindowExW(panel, field, L"Edit", nullptr);
  const HWND invia = FindWindowExW(panel, nullptr, L"Button", L"Invia");
  CHECK(field && invia && IsWindowVisible(invia), "on UDP the send row is shown");
  SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"PROVA-PANNELLO-42"));
  SendMessageW(invia, BM_CLICK, 0, 0);
  const fs::path log = PathFrom("CAMRELAY_UNIT_LOG");
  CHECK(PumpUntil([&] { return FileBytes(log).find("PROVA-PANNELLO-42") != std::string::npos; }, 5000),
        "\"Invia\" sends the typed string");
  Call(client, L"Hide");
  PumpFor(300);
  CHECK(!IsWindowVisible(panel), "Hide takes the panel away");
  Call(client, L"Disconnetti");
}

}  // namespace

void Calls() {
  Created server;
  RefusedCalls(server.object);
  CHECK(server.sink.events.empty(), "no refused call reached its member");
  NamedArguments(server.object);
  Panel(server.object);
}
