// What a host learns of the class before it calls it: the registered type
// library (typelib), and the event source found by walking the object's
// connection points and by asking the class for its default source
// (discovery).
#include <windows.h>
#include <ocidl.h>

#include <string>
#include <vector>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"
#include "platform/windows/codepage.h"

using namespace host;
using camrelay::platform::windows::FromWide;

namespace {

std::string NameOf(ITypeInfo* info, MEMBERID id = MEMBERID_NIL) {
  BSTR name = nullptr;
  info->GetDocumentation(id, &name, nullptr, nullptr, nullptr);
  const std::string text = name ? FromWide(name) : "";
  SysFreeString(name);
  return text;
}

// The interface a coclass marks as its default source, by name.
std::string DefaultSourceOf(ITypeInfo* coclass) {
  int flags = 0;
  for (UINT i = 0; SUCCEEDED(coclass->GetImplTypeFlags(i, &flags)); ++i) {
    HREFTYPE reference = 0;
    ITypeInfo* source = nullptr;
    if (flags != (IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE) ||
        FAILED(coclass->GetRefTypeOfImplType(i, &reference)) || FAILED(coclass->GetRefTypeInfo(reference, &source)))
      continue;
    const std::string name = NameOf(source);
    source->Release();
    return name;
  }
  return "";
}

// The states' names as the type library gives them, in the order of their values.
std::vector<std::string> StateNames(ITypeLib* library) {
  std::vector<std::string> names;
  ITypeInfo* info = nullptr;
  MEMBERID id = 0;
  USHORT found = 1;
  std::wstring search = L"StatoConnessioneEnum";
  if (FAILED(library->FindName(search.data(), 0, &info, &id, &found)) || found == 0) return names;
  TYPEATTR* attributes = nullptr;
  info->GetTypeAttr(&attributes);
  for (WORD i = 0; i < attributes->cVars; ++i) {
    VARDESC* v = nullptr;
    info->GetVarDesc(i, &v);
    names.push_back(V_I4(v->lpvarValue) == i ? NameOf(info, v->memid) : "(a value out of order)");
    info->ReleaseVarDesc(v);
  }
  info->ReleaseTypeAttr(attributes);
  info->Release();
  return names;
}

// Advises a sink on point and checks that an event arrives through it:
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
  if (CHECK(info->GetClassInfo(&coclass) == S_OK && coclass, "the class's type information")) {
    CHECK(NameOf(coclass) == "clsClient" && DefaultSourceOf(coclass) == "__clsClient",
          "it describes clsClient, whose default source is __clsClient");
    coclass->Release();
  }
  info->Release();

  IConnectionPointContainer* container = nullptr;
  object->QueryInterface(IID_IConnectionPointContainer, reinterpret_cast<void**>(&container));
  IConnectionPoint* point = nullptr;
  if (CHECK(container && SUCCEEDED(container->FindConnectionPoint(source, &point)),
            "the default source's point is found")) {
    CheckEventsArrive(object, point, "through the default source");
    point->Release();
  }
  if (container) container->Release();
}

}  // namespace

void TypeLibrary() {
  ITypeLib* library = nullptr;
  if (!CHECK(SUCCEEDED(LoadRegTypeLib(LIBID_CamRelay, 1, 0, 0, &library)), "the registered type library loads"))
    return;
  BSTR name = nullptr;
  library->GetDocumentation(-1, &name, nullptr, nullptr, nullptr);
  CHECK(name && std::wstring(name) == L"CamRelay", "the library is called CamRelay");
  SysFreeString(name);
  // Compiled hosts call through the vtable and script hosts by name: the
  // interface must offer both.
  ITypeInfo* info = nullptr;
  if (CHECK(SUCCEEDED(library->GetTypeInfoOfGuid(IID__clsClient, &info)), "the library holds _clsClient")) {
    TYPEATTR* attributes = nullptr;
    info->GetTypeAttr(&attributes);
    CHECK(attributes->wTypeFlags & TYPEFLAG_FDUAL, "_clsClient is dual");
    info->ReleaseTypeAttr(attributes);
    info->Release();
  }
  // The console and the web page name the states as the library does; a
  // host reading the type library must see the same names for the same values.
  std::vector<std::string> states;
  for (int value = 0; value <= 57; ++value) states.emplace_back(camrelay::StatoConnessioneName(value));
  CHECK(StateNames(library) == states, "StatoConnessioneEnum matches the library's 0..57");
  library->Release();
}

void Discovery() {
  Created server;
  WalkPoints(server.object);
  DefaultSource(server.object);
}
