// What the Windows test host needs around the server: checks that count
// failures, the unit's whereabouts, a message pump, late-bound calls as
// hosts make them, and the server created with a sink that records its events.
#pragma once

#include <windows.h>
#include <oaidl.h>
#include <ocidl.h>

#include <filesystem>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace host {

// A failed check prints where and why and makes the program fail; the
// group goes on, so one run shows every fault.
bool Check(bool condition, const std::string& what, const char* file, int line);
#define CHECK(condition, what) ::host::Check((condition), (what), __FILE__, __LINE__)
int Failures();

// A POSIX path handed over by the test's script, as Wine's drive Z: shows it.
std::filesystem::path FromUnixPath(const std::string& path);
std::string Environment(const char* name);
std::filesystem::path ServerDll();
std::filesystem::path WorkDir();
int UnitPort();

// An entry point of the server DLL, which stays loaded in this process.
FARPROC Export(const char* name);
// What regsvr32 (/u) does: the DLL's own registration, which must succeed.
void RegisterServer(bool unregister = false);
std::wstring RegistryText(HKEY root, const std::wstring& key, const wchar_t* name);

// Dispatches the thread's messages until done() holds or the time is up.
bool PumpUntil(const std::function<bool()>& done, DWORD timeoutMs);
void PumpFor(DWORD ms);

// Owned Variants for arguments, and one that refers to target as type.
VARIANT Text(const std::wstring& value);
VARIANT Long(long value);
VARIANT Bool(bool value);
VARIANT Reference(VARTYPE type, void* target);
std::string Hex(HRESULT hr);

// A call as a host builds it: the member and its parameters by name, the
// positional arguments in written order, then the named ones. A property
// let names its value DISPID_PROPERTYPUT. The arguments are cleared at the end.
struct RawCall {
  RawCall(IDispatch* object, std::wstring member, std::vector<VARIANT> positional = {},
          WORD flags = DISPATCH_METHOD);
  RawCall(const RawCall&) = delete;
  RawCall& operator=(const RawCall&) = delete;
  ~RawCall();
  // Runs the call once.
  HRESULT Run();

  IDispatch* object;
  std::wstring member;
  std::vector<VARIANT> positional;
  std::vector<std::pair<std::wstring, VARIANT>> named;
  std::vector<DISPID> namedIds;  // the named parameters' DISPIDs, when given rather than looked up
  WORD flags;
  VARIANT result;
  UINT argumentError = 12345;
};

// An automation object reached the way script hosts reach it: by name. A
// call that fails is a failed check.
class LateBound {
 public:
  explicit LateBound(IDispatch* object) : object_(object) {}
  void Call(const wchar_t* name, std::vector<VARIANT> arguments = {});
  long GetLong(const wchar_t* name);
  void Put(const wchar_t* name, VARIANT value);

 private:
  IDispatch* object_;
};

// Connetti to the test's unit; arguments passed by value, as scripts pass
// literals, except the port, passed by reference as compiled hosts pass it.
void Connect(LateBound client, long protocol, long localPort, const std::filesystem::path& folder);
// A UDP port nobody uses on loopback right now.
long FreeUdpPort();
// A file's bytes; empty when it cannot be read.
std::string FileBytes(const std::filesystem::path& file);

struct Event {
  DISPID id;
  long number;        // CambioStatoConnessione, CambioStatoDB
  std::wstring text;  // OnDebug
  DWORD thread;
};

// A sink for __clsClient that keeps every event it receives.
class EventSink final : public IDispatch {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // lives as long as the test's server
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*,
                                   UINT*) override;

  std::vector<Event> events;
  // The states of CambioStatoConnessione in arrival order.
  std::vector<long> States() const;
  // The OnDebug lines from the event at from on, each ending in a newline.
  std::wstring DebugLines(std::size_t from = 0) const;
};

// The server, created by its ProgID as CreateObject does, with a sink on the
// connection point of its events. A group cannot go on without it: it exits
// when creation fails.
struct Created {
  Created();
  ~Created();
  Created(const Created&) = delete;
  Created& operator=(const Created&) = delete;
  LateBound Client() { return LateBound(object); }
  // Pumps until CambioStatoConnessione brings one of the states; true when
  // the first of them came.
  bool AwaitState(std::initializer_list<long> states, DWORD limit = 30000);

  IDispatch* object = nullptr;
  IConnectionPoint* point = nullptr;
  DWORD cookie = 0;
  EventSink sink;
};

}  // namespace host
