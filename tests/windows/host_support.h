// What the Windows test host needs around the server: checks that count
// failures, the unit's whereabouts, a message pump, late-bound calls as
// hosts make them, and the server created with a sink that records its events.
#pragma once

#include <windows.h>
#include <ocidl.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace host {

// A failed check prints where and why and makes the program fail; the
// group goes on, so one run shows every fault.
bool Check(bool condition, const std::string& what, const char* file, int line);
#define CHECK(condition, what) ::host::Check((condition), (what), __FILE__, __LINE__)
int Failures();

// A POSIX path the test's script hands over in the environment variable
// named, as Wine's drive Z: shows it.
std::filesystem::path PathFrom(const char* variable);
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

// Members reached the way script hosts reach them: by name. A call that
// fails is a failed check.
void Call(IDispatch* object, const wchar_t* name, std::vector<VARIANT> arguments = {});
long GetLong(IDispatch* object, const wchar_t* name);
void Put(IDispatch* object, const wchar_t* name, VARIANT value);

// Connetti to the test's unit; arguments passed by value, as scripts pass
// literals, except the port, passed by reference as compiled hosts pass it.
void Connect(IDispatch* client, long protocol, long localPort, const std::filesystem::path& folder);
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
};

// The server, created by its ProgID as CreateObject does, with a sink on the
// connection point of its events. A group cannot go on without it: it exits
// when creation fails.
struct Created {
  Created();
  ~Created();
  Created(const Created&) = delete;
  Created& operator=(const Created&) = delete;
  // Pumps until CambioStatoConnessione brings state; false when it does not
  // come within the limit.
  bool AwaitState(long state, DWORD limit = 30000);

  IDispatch* object = nullptr;
  IConnectionPoint* point = nullptr;
  DWORD cookie = 0;
  EventSink sink;
};

}  // namespace host
