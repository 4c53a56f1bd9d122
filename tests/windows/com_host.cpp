// The Windows test host: drives camrelay.dll the way desktop programs do,
// registered with regsvr32, created by ProgID, called by name and heard
// through its connection point, against a simulated unit on loopback.
// com_host GROUP runs one group of cases and fails when any check failed.
#include <winsock2.h>
#include <windows.h>
#include <ocidl.h>

#include <boost/system/error_code.hpp>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

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

camrelay::store::TableDump Table(const fs::path& database, const char* table) {
  camrelay::store::DataVideo db;
  db.SetConnectionString(database.string());
  db.Open();
  return camrelay::store::DumpTable(db, table);
}

// ---- registration: the keys regsvr32 writes and removes. ---------------------

void Registration() {
  const std::wstring clsid = GuidText(CLSID_clsClient), classKey = L"CLSID\\" + clsid;
  CHECK(RegistryText(HKEY_CLASSES_ROOT, L"CamRelay.clsClient\\CLSID", nullptr) == clsid, "the ProgID's CLSID");
  CHECK(RegistryText(HKEY_CLASSES_ROOT, classKey + L"\\ProgID", nullptr) == L"CamRelay.clsClient", "the ProgID");
  CHECK(lstrcmpiW(RegistryText(HKEY_CLASSES_ROOT, classKey + L"\\InprocServer32", nullptr).c_str(),
                  ServerDll().wstring().c_str()) == 0,
        "InprocServer32 names the DLL");
  CHECK(RegistryText(HKEY_CLASSES_ROOT, classKey + L"\\InprocServer32", L"ThreadingModel") == L"Apartment",
        "the class lives in the host's apartment");
  const std::wstring libraryKey = L"TypeLib\\" + GuidText(LIBID_CamRelay);
  CHECK(RegistryKeyExists(HKEY_CLASSES_ROOT, libraryKey + L"\\1.0"), "the type library is registered");
  CHECK(RegistryKeyExists(HKEY_CLASSES_ROOT, L"Interface\\" + GuidText(DIID___clsClient)),
        "the event interface is registered for marshalling");

  RegisterServer(true);
  for (const std::wstring& key : {classKey, std::wstring(L"CamRelay.clsClient"), libraryKey,
                                  L"Interface\\" + GuidText(IID__clsClient),
                                  L"Interface\\" + GuidText(DIID___clsClient)})
    CHECK(!RegistryKeyExists(HKEY_CLASSES_ROOT, key), "unregistering removes " + FromWide(key));
  // Unregistering twice is no failure, and registering again restores all.
  RegisterServer(true);
  RegisterServer();
  CHECK(RegistryKeyExists(HKEY_CLASSES_ROOT, classKey), "registering again restores the class");
}

// ---- unload: DllCanUnloadNow counts objects and locks. -----------------------

void Unload() {
  const HMODULE dll = LoadLibraryW(ServerDll().wstring().c_str());
  if (!CHECK(dll != nullptr, "the DLL loads")) return;
  using CanUnload = HRESULT(WINAPI*)();
  using GetClassObject = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
  auto canUnload = reinterpret_cast<CanUnload>(reinterpret_cast<void*>(GetProcAddress(dll, "DllCanUnloadNow")));
  auto getClass = reinterpret_cast<GetClassObject>(reinterpret_cast<void*>(GetProcAddress(dll, "DllGetClassObject")));
  if (!CHECK(canUnload && getClass, "the DLL exports its entry points")) return;

  CHECK(canUnload() == S_OK, "nothing alive: the DLL may go");
  IClassFactory* factory = nullptr;
  CHECK(getClass(IID_IUnknown, IID_IClassFactory, reinterpret_cast<void**>(&factory)) == CLASS_E_CLASSNOTAVAILABLE,
        "an unknown class is refused");
  if (!CHECK(SUCCEEDED(getClass(CLSID_clsClient, IID_IClassFactory, reinterpret_cast<void**>(&factory))),
             "the class factory"))
    return;
  CHECK(canUnload() == S_FALSE, "a factory alive keeps the DLL");
  IDispatch* object = nullptr;
  CHECK(SUCCEEDED(factory->CreateInstance(nullptr, IID_IDispatch, reinterpret_cast<void**>(&object))),
        "the factory creates the object");
  CHECK(factory->LockServer(TRUE) == S_OK, "LockServer");
  factory->Release();
  CHECK(canUnload() == S_FALSE, "an object and a lock alive keep the DLL");
  object->Release();
  CHECK(canUnload() == S_FALSE, "a lock alone keeps the DLL");
  CHECK(SUCCEEDED(getClass(CLSID_clsClient, IID_IClassFactory, reinterpret_cast<void**>(&factory))), "factory");
  factory->LockServer(FALSE);
  factory->Release();
  CHECK(canUnload() == S_OK, "nothing alive again: the DLL may go");
  FreeLibrary(dll);
}

// ---- session: a login, a programming download and a firmware upload,
// through late-bound calls, with the events in order. -----------------------

void Session() {
  Created server;
  LateBound client = server.Client();
  const DWORD thread = GetCurrentThreadId();

  // Before Connetti: getters give zero; the preview accessors alone raise
  // cNoOperation.
  CHECK(client.GetLong(L"RemotePort") == 0 && server.sink.events.empty(), "RemotePort before Connetti is 0, quietly");
  CHECK(client.GetLong(L"CameraPreview") == 0 && server.sink.States() == std::vector<long>{0},
        "CameraPreview before Connetti is 0 and raises cNoOperation");

  // A first run: no settings yet, so the local port comes from the defaults.
  RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\VB and VBA Program Settings\\CamRelay");
  const fs::path folder = WorkDir() / "host";
  Connect(client, camrelay::sckTCPProtocol, 0, folder);
  // Connetti wrote the values it used where desktop programs keep settings.
  const std::wstring settings = L"Software\\VB and VBA Program Settings\\CamRelay\\AppSetting";
  CHECK(RegistryText(HKEY_CURRENT_USER, settings, L"RemoteHost") == L"127.0.0.1" &&
            RegistryText(HKEY_CURRENT_USER, settings, L"RemotePort") == std::to_wstring(UnitPort()) &&
            RegistryText(HKEY_CURRENT_USER, settings, L"LocalPort") == L"14400" &&
            RegistryText(HKEY_CURRENT_USER, settings, L"DelayLoadDataFromDB") == L"50",
        "the settings are in the registry");
  client.Put(L"StringaConnDB", Text((folder / "VideoSentrova.db").wstring()));
  client.Call(L"ApriDB");
  PumpFor(200);
  client.Put(L"StringaCodiceAccesso", Text(L"123456"));

  client.Call(L"RichiestaDiConnessione");
  CHECK(server.AwaitState({camrelay::cConnessioneOK, camrelay::cConnessioneRifiutata}), "the login is accepted");

  client.Call(L"DownLoadProgrammazione");
  CHECK(server.AwaitState({camrelay::cRicezioneProgOK, camrelay::cTimeOutConnessione}), "the programming arrives");
  const fs::path unitDir = FromUnixPath(Environment("CAMRELAY_UNIT_DIR"));
  for (const char* table : {"Ingressi", "MMS", "NumTel", "CanaliVideo", "Alimentazione", "ImpostazioniVideo"}) {
    const auto ours = Table(folder / "VideoSentrova.db", table), theirs = Table(unitDir / "VideoSentrova.db", table);
    CHECK(!theirs.rows.empty() && ours.rows == theirs.rows, std::string("the host's ") + table + " is the unit's");
  }

  std::string firmware;
  for (int i = 0; i < 20000; ++i) firmware += static_cast<char>((i * 7 + i / 256) & 0xFF);
  const fs::path update = WorkDir() / "update.bin";
  std::ofstream(update, std::ios::binary) << firmware;
  client.Call(L"UpLoadAggiornamento", {Text(update.wstring())});
  CHECK(server.AwaitState({camrelay::cTrasmissioneOK, camrelay::cTimeOutConnessione}), "the firmware is sent");
  CHECK(FileBytes(unitDir / "Firmware" / "update.bin") == firmware, "the unit keeps the firmware byte for byte");

  // Every state in the order the host saw it: each request logs in on its
  // own connection, then runs its exchange to its final state.
  namespace c = camrelay;
  const std::vector<long> expected{c::cNoOperation,  // CameraPreview before Connetti
                                   c::cConnessioneOK,
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

  // Failures reach the host as OnDebug lines, never as failed calls.
  client.Call(L"UpLoadAggiornamento", {Text((WorkDir() / "missing.bin").wstring())});
  PumpUntil([&] { return !server.sink.DebugLines().empty(); }, 5000);
  CHECK(!server.sink.DebugLines().empty(), "a missing firmware file is told through OnDebug");
}

// The unit's Windows-1252 text and the database's UTF-8 go through Windows'
// code pages, and socket errors keep the numbers Windows gives them, which are
// the ones hosts know, whether or not the link has a name of its own for them.
void PlatformConversions() {
  std::string every;
  for (int byte = 1; byte < 256; ++byte) every += static_cast<char>(byte);
  CHECK(camrelay::store::Utf8ToCp1252(camrelay::store::Cp1252ToUtf8(every)) == every, "every byte survives");
  CHECK(camrelay::store::Cp1252ToUtf8("Citt\xe0 \x80") == "Citt\xc3\xa0 \xe2\x82\xac", "accents and the euro");
  CHECK(camrelay::store::Utf8ToCp1252("\xe4\xb8\xad") == "?", "a character Windows-1252 lacks becomes ?");
  for (int number : {WSAEACCES, WSAEADDRNOTAVAIL, WSAENOBUFS, WSAECONNRESET, WSAECONNREFUSED}) {
    const auto error = camrelay::link::Translate(boost::system::error_code(number, boost::system::system_category()));
    CHECK(error.number() == number, "socket error " + std::to_string(number) + " is reported as " +
                                        std::to_string(error.number()));
    CHECK(*error.what() != '\0', "socket error " + std::to_string(number) + " comes with its text");
  }
}

}  // namespace

void TypeLibrary();
void Panel();
void NamedArgumentCases();
void RefusedCallCases();
void BadPortCases();
void Discovery();

int main(int argc, char** argv) {
  const std::string group = argc > 1 ? argv[1] : "";
  const std::map<std::string, void (*)()> groups{
      {"registration", Registration}, {"unload", Unload},          {"session", Session},
      {"typelib", TypeLibrary},       {"discovery", Discovery},    {"panel", Panel},
      {"named", NamedArgumentCases},  {"refused", RefusedCallCases}, {"ports", BadPortCases},
      {"platform", PlatformConversions}};
  const auto found = groups.find(group);
  if (found == groups.end()) {
    std::fprintf(stderr, "usage: com_host GROUP, where GROUP is one of:");
    for (const auto& [name, cases] : groups) std::fprintf(stderr, " %s", name.c_str());
    std::fprintf(stderr, "\n");
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
