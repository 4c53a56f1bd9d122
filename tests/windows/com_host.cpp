// The Windows test host: drives camrelay.dll the way desktop programs do,
// registered, created by ProgID, called by name and heard through its
// connection point, against a simulated unit on loopback.
// com_host GROUP runs one group of cases and fails when any check failed.
#include <winsock2.h>
#include <windows.h>

#include <boost/system/error_code.hpp>

#include <cstdio>
#include <fstream>
#include <map>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"
#include "link/platform.h"
#include "platform/windows/codepage.h"
#include "store/DataVideo.h"
#include "store/dump.h"
#include "store/text.h"

namespace fs = std::filesystem;
using namespace host;
using camrelay::platform::windows::FromWide;

namespace {

const std::wstring kSettings = L"Software\\VB and VBA Program Settings\\CamRelay\\AppSetting";

std::wstring GuidText(REFGUID guid) {
  wchar_t text[40];
  StringFromGUID2(guid, text, 40);
  return text;
}

camrelay::store::TableDump Table(const fs::path& database, const char* table) {
  camrelay::store::DataVideo db;
  db.SetConnectionString(database.string());
  db.Open();
  return camrelay::store::DumpTable(db, table);
}

// ---- registration: the keys the DLL writes and removes, what a host learns
// of the class before it calls it, from the registered type library and from
// the object itself, and DllCanUnloadNow counting the objects alive. ---------

void Registration() {
  const std::wstring classKey = L"CLSID\\" + GuidText(CLSID_clsClient);
  CHECK(RegistryText(HKEY_CLASSES_ROOT, classKey + L"\\InprocServer32", L"ThreadingModel") == L"Apartment",
        "the class lives in the host's apartment");
  // Every key the DLL writes, and none left after unregistering.
  const std::wstring keys[] = {classKey, L"CamRelay.clsClient", L"TypeLib\\" + GuidText(LIBID_CamRelay),
                               L"Interface\\" + GuidText(IID__clsClient), L"Interface\\" + GuidText(DIID___clsClient)};
  for (const bool registered : {true, false}) {
    for (const std::wstring& key : keys) {
      HKEY handle = nullptr;
      const bool exists = RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) == ERROR_SUCCESS;
      if (exists) RegCloseKey(handle);
      CHECK(exists == registered, FromWide(key) + (registered ? " is registered" : " is left after unregistering"));
    }
    if (registered) RegisterServer(true);
  }
  // Unregistering twice is no failure, and registering again restores all.
  RegisterServer(true);
  RegisterServer();

  ITypeLib* library = nullptr;
  if (!CHECK(SUCCEEDED(LoadRegTypeLib(LIBID_CamRelay, 1, 0, 0, &library)), "the registered type library loads"))
    return;
  // Compiled hosts call through the vtable and script hosts by name: the
  // interface must offer both.
  ITypeInfo* info = nullptr;
  TYPEATTR* attributes = nullptr;
  if (CHECK(SUCCEEDED(library->GetTypeInfoOfGuid(IID__clsClient, &info)), "the library holds _clsClient")) {
    info->GetTypeAttr(&attributes);
    CHECK(attributes->wTypeFlags & TYPEFLAG_FDUAL, "_clsClient is dual");
    info->ReleaseTypeAttr(attributes);
    info->Release();
  }
  library->Release();

  // DllCanUnloadNow counts the objects alive, so that COM never unloads the
  // DLL under one; and hosts that ask the class for its default source get
  // the sink's.
  auto canUnload = reinterpret_cast<HRESULT(WINAPI*)()>(reinterpret_cast<void*>(Export("DllCanUnloadNow")));
  if (!CHECK(canUnload && canUnload() == S_OK, "nothing alive: the DLL may go")) return;
  {
    Created server;
    CHECK(canUnload() == S_FALSE, "an object alive keeps the DLL");
    IProvideClassInfo2* provider = nullptr;
    server.object->QueryInterface(IID_IProvideClassInfo2, reinterpret_cast<void**>(&provider));
    if (!CHECK(provider != nullptr, "the object provides IProvideClassInfo2")) return;
    GUID source{};
    CHECK(provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source) == S_OK && IsEqualIID(source, DIID___clsClient),
          "the default source is __clsClient");
    CHECK(provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID + 1, &source) == E_INVALIDARG, "another kind is refused");
    ITypeInfo* coclass = nullptr;
    BSTR name = nullptr;
    CHECK(provider->GetClassInfo(&coclass) == S_OK && coclass &&
              SUCCEEDED(coclass->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr)) && name &&
              std::wstring(name) == L"clsClient",
          "the class information is clsClient's");
    SysFreeString(name);
    if (coclass) coclass->Release();
    provider->Release();
  }
  CHECK(canUnload() == S_OK, "nothing alive again: the DLL may go");
}

// ---- session: a login, a programming download and a firmware upload,
// through late-bound calls, with the events in order; then what is refused. -

void Session() {
  // The unit's Windows-1252 text and the database's UTF-8 go through Windows'
  // code pages, and socket errors keep the numbers Windows gives them, which
  // are the ones hosts know, whether or not the link has a name for them.
  std::string every;
  for (int byte = 1; byte < 256; ++byte) every += static_cast<char>(byte);
  CHECK(camrelay::store::Utf8ToCp1252(camrelay::store::Cp1252ToUtf8(every)) == every, "every byte survives");
  CHECK(camrelay::store::Cp1252ToUtf8("Citt\xe0 \x80") == "Citt\xc3\xa0 \xe2\x82\xac", "accents and the euro");
  CHECK(camrelay::store::Utf8ToCp1252("\xe4\xb8\xad") == "?", "a character Windows-1252 lacks becomes ?");
  for (int number : {WSAEACCES, WSAEADDRNOTAVAIL, WSAENOBUFS, WSAECONNRESET, WSAECONNREFUSED}) {
    const auto error = camrelay::link::Translate(boost::system::error_code(number, boost::system::system_category()));
    CHECK(error.number() == number && *error.what() != '\0',
          "socket error " + std::to_string(number) + " is reported as " + std::to_string(error.number()) + ", " +
              error.what());
  }

  Created server;
  IDispatch* client = server.object;
  const DWORD thread = GetCurrentThreadId();
  // A first run: no settings yet, so the local port comes from the defaults.
  RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\VB and VBA Program Settings\\CamRelay");
  const fs::path folder = PathFrom("CAMRELAY_WORK_DIR") / "host";
  Connect(client, camrelay::sckTCPProtocol, 0, folder);
  // Connetti wrote the values it used where desktop programs keep settings.
  CHECK(RegistryText(HKEY_CURRENT_USER, kSettings, L"RemoteHost") == L"127.0.0.1" &&
            RegistryText(HKEY_CURRENT_USER, kSettings, L"RemotePort") == std::to_wstring(UnitPort()) &&
            RegistryText(HKEY_CURRENT_USER, kSettings, L"LocalPort") == L"14400" &&
            RegistryText(HKEY_CURRENT_USER, kSettings, L"DelayLoadDataFromDB") == L"50",
        "the settings are in the registry");
  Put(client, L"StringaConnDB", Text((folder / "VideoSentrova.db").wstring()));
  Call(client, L"ApriDB");
  PumpFor(200);
  Put(client, L"StringaCodiceAccesso", Text(L"123456"));

  Call(client, L"RichiestaDiConnessione");
  CHECK(server.AwaitState(camrelay::cConnessioneOK), "the login is accepted");

  Call(client, L"DownLoadProgrammazione");
  CHECK(server.AwaitState(camrelay::cRicezioneProgOK), "the programming arrives");
  const fs::path unitDir = PathFrom("CAMRELAY_UNIT_DIR");
  for (const char* table : {"Ingressi", "MMS", "NumTel", "CanaliVideo", "Alimentazione", "ImpostazioniVideo"}) {
    const auto ours = Table(folder / "VideoSentrova.db", table), theirs = Table(unitDir / "VideoSentrova.db", table);
    CHECK(!theirs.rows.empty() && ours.rows == theirs.rows, std::string("the host's ") + table + " is the unit's");
  }

  std::string firmware;
  for (int i = 0; i < 20000; ++i) firmware += static_cast<char>((i * 7 + i / 256) & 0xFF);
  const fs::path update = PathFrom("CAMRELAY_WORK_DIR") / "update.bin";
  std::ofstream(update, std::ios::binary) << firmware;
  Call(client, L"UpLoadAggiornamento", {Text(update.wstring())});
  CHECK(server.AwaitState(camrelay::cTrasmissioneOK), "the firmware is sent");
  CHECK(FileBytes(unitDir / "Firmware" / "update.bin") == firmware, "the unit keeps the firmware byte for byte");

  // Every state in the order the host saw it: each request logs in on its
  // own connection, then runs its exchange to its final state.
  namespace c = camrelay;
  const std::vector<long> expected{c::cConnessioneOK,
                                   c::cRichiestaProg, c::cConnessioneOK, c::cRicezioneProgOK,
                                   c::cTrasmettiAggiornamento, c::cConnessioneOK, c::cTrasmissioneOK};
  std::string seen;
  for (long state : server.sink.States()) seen += std::to_string(state) + " ";
  CHECK(server.sink.States() == expected, "the states arrive in order; they were " + seen);
  bool databaseOpened = false;
  for (const auto& event : server.sink.events) {
    if (event.id == 2 && event.number == camrelay::cDbAperto) databaseOpened = true;
    CHECK(event.thread == thread, "every event arrives on the host's thread");
  }
  CHECK(databaseOpened, "CambioStatoDB tells the database is open");

  // Failures reach the host as OnDebug lines, never as failed calls: here a
  // port no socket can take, the remote one from the settings, which leaves
  // the link and the settings as they were.
  HKEY key = nullptr;
  RegCreateKeyExW(HKEY_CURRENT_USER, kSettings.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  const wchar_t stored[] = L"70002";
  RegSetValueExW(key, L"RemotePort", 0, REG_SZ, reinterpret_cast<const BYTE*>(stored), sizeof stored);
  RegCloseKey(key);
  const std::size_t before = server.sink.events.size();
  Call(client, L"Connetti", {Text(L"127.0.0.1"), Long(0), Long(70000), Long(0), Long(camrelay::sckUDPProtocol)});
  PumpFor(100);
  std::wstring lines;
  for (std::size_t i = before; i < server.sink.events.size(); ++i)
    if (server.sink.events[i].id == 3) lines += server.sink.events[i].text + L"\n";
  CHECK(lines == L"Connetti: the remote port 70002 is outside 1 to 65535\n",
        "the port is refused with one OnDebug line; it was: " + FromWide(lines));
  CHECK(GetLong(client, L"Protocol") == camrelay::sckTCPProtocol && GetLong(client, L"RemotePort") == UnitPort() &&
            RegistryText(HKEY_CURRENT_USER, kSettings, L"LocalPort") == L"14400",
        "the link in place and the settings stay as they were");
  Call(client, L"Disconnetti");
  RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\VB and VBA Program Settings\\CamRelay");
}

}  // namespace

void Calls();

int main(int argc, char** argv) {
  const std::string group = argc > 1 ? argv[1] : "";
  const std::map<std::string, void (*)()> groups{{"registration", Registration}, {"session", Session},
                                                 {"calls", Calls}};
  const auto found = groups.find(group);
  if (found == groups.end()) {
    std::fprintf(stderr, "usage: com_host registration|session|calls\n");
    return 2;
  }
  OleInitialize(nullptr);
  // Every group works on the registered server.
  RegisterServer();
  found->second();
  OleUninitialize();
  std::fprintf(stderr, "%s: %d failed check(s)\n", group.c_str(), Failures());
  return Failures() == 0 ? 0 : 1;
}
