// typelib: the registered type library against the automation interface
// hosts were compiled with, member by member, and against the library's
// own enumerations.
#include <windows.h>
#include <oaidl.h>

#include <string>
#include <vector>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"
#include "platform/windows/codepage.h"

using namespace host;
using camrelay::platform::windows::FromWide;

namespace {

struct Member {
  const char* name;
  INVOKEKIND kind;
  VARTYPE type;                      // of the property; VT_EMPTY for a method
  std::vector<const char*> params;   // a method's arguments
};

constexpr auto G = INVOKE_PROPERTYGET, P = INVOKE_PROPERTYPUT, M = INVOKE_FUNC;
constexpr VARTYPE kEnum = VT_USERDEFINED;

// _clsClient in interface order; a property's get and let are two entries.
const std::vector<Member> kMembers = {
    {"StringaConnDB", G, VT_BSTR, {}}, {"StringaConnDB", P, VT_BSTR, {}},
    {"VideoCicle", P, VT_I4, {}}, {"VideoCicle", G, VT_I4, {}},
    {"CameraPreview", G, VT_I4, {}},
    {"CurrentTimeFileVideo", G, VT_R8, {}}, {"CurrentTimeFileVideo", P, VT_R8, {}},
    {"RemoteHost", G, VT_BSTR, {}}, {"RemotePort", G, VT_I4, {}}, {"LocalPort", G, VT_I4, {}},
    {"Connesso", G, VT_BOOL, {}}, {"ImagePreview", G, VT_BSTR, {}},
    {"StringaErroreConnessione", G, VT_BSTR, {}}, {"PwdCrypted", G, VT_BOOL, {}},
    {"Protocol", G, kEnum, {}}, {"Protocol", P, kEnum, {}},
    {"StringaRicevuta", G, VT_BSTR, {}}, {"VettoreStringaRicevuta", G, VT_VARIANT, {}},
    {"StringaCodiceAccesso", G, VT_BSTR, {}}, {"StringaCodiceAccesso", P, VT_BSTR, {}},
    {"RemotePasswordType", G, VT_I2, {}},
    {"p_NewStringaPassWord", G, VT_BSTR, {}}, {"p_NewStringaPassWord", P, VT_BSTR, {}},
    {"FileMultimediaSize", G, VT_I4, {}}, {"TentativiTimeOut", G, VT_I2, {}},
    {"Show", M, VT_EMPTY, {}}, {"Hide", M, VT_EMPTY, {}},
    {"AttivaPreview", M, VT_EMPTY, {"strCommand"}}, {"FermaPreview", M, VT_EMPTY, {}},
    {"UpLoadProgrammazione", M, VT_EMPTY, {}}, {"UpLoadProgCamEvents", M, VT_EMPTY, {}},
    {"DownLoadProgrammazione", M, VT_EMPTY, {}}, {"ScaricaLog", M, VT_EMPTY, {}},
    {"CaricaLog", M, VT_EMPTY, {}}, {"CancellaLog", M, VT_EMPTY, {}},
    {"DownLoadStrCommand", M, VT_EMPTY, {"strCommand"}}, {"DownLoadStreamImage", M, VT_EMPTY, {"strCommand"}},
    {"DownloadCamEvents", M, VT_EMPTY, {}}, {"DownloadProgCamEvents", M, VT_EMPTY, {}},
    {"DownloadMultimediaFile", M, VT_EMPTY, {"strFileName"}}, {"UploadStrCommand", M, VT_EMPTY, {"strCommand"}},
    {"UpLoadMessaggiWave", M, VT_EMPTY, {"strDirName"}}, {"UpLoadAggiornamento", M, VT_EMPTY, {"strFileName"}},
    {"DownLoadMessaggiWave", M, VT_EMPTY, {}}, {"RichiestaDiConnessione", M, VT_EMPTY, {}},
    {"Connetti", M, VT_EMPTY,
     {"RemoteHost", "RemotePort", "LocalPort", "ViewRunTimeError", "WinsockProtocol", "CurrDir"}},
    {"Disconnetti", M, VT_EMPTY, {}}, {"ApriDB", M, VT_EMPTY, {}}, {"ChiudiDB", M, VT_EMPTY, {}},
    {"UploadCodInstallatore", M, VT_EMPTY, {}}, {"UploadCodUtente", M, VT_EMPTY, {}},
    {"AnnullaRichiesta", M, VT_EMPTY, {}},
};

std::vector<std::string> Names(ITypeInfo* info, MEMBERID id) {
  BSTR names[8] = {};
  UINT count = 0;
  info->GetNames(id, names, 8, &count);
  std::vector<std::string> result;
  for (UINT i = 0; i < count; ++i) {
    result.push_back(FromWide(names[i]));
    SysFreeString(names[i]);
  }
  return result;
}

// The type a property carries: its getter's result or its let's argument.
VARTYPE PropertyType(const FUNCDESC& f) {
  const TYPEDESC& t = f.invkind == INVOKE_PROPERTYGET ? *f.lprgelemdescParam[0].tdesc.lptdesc
                                                      : f.lprgelemdescParam[0].tdesc;
  return t.vt;
}

ITypeInfo* Find(ITypeLib* library, REFGUID guid, const char* what) {
  ITypeInfo* info = nullptr;
  CHECK(SUCCEEDED(library->GetTypeInfoOfGuid(guid, &info)), std::string("the library holds ") + what);
  return info;
}

void CheckInterface(ITypeInfo* info) {
  TYPEATTR* attributes = nullptr;
  info->GetTypeAttr(&attributes);
  CHECK(attributes->typekind == TKIND_DISPATCH || attributes->typekind == TKIND_INTERFACE, "_clsClient is dual");
  CHECK(attributes->wTypeFlags & TYPEFLAG_FDUAL, "_clsClient carries the dual flag");
  info->ReleaseTypeAttr(attributes);
  // The vtable half of the dual interface, where the members keep their order.
  ITypeInfo* vtable = info;
  HREFTYPE reference = 0;
  if (SUCCEEDED(info->GetRefTypeOfImplType(-1, &reference))) info->GetRefTypeInfo(reference, &vtable);
  vtable->GetTypeAttr(&attributes);
  const std::size_t count = attributes->cFuncs;
  vtable->ReleaseTypeAttr(attributes);
  CHECK(count == kMembers.size(), "_clsClient has " + std::to_string(kMembers.size()) + " members, not " +
                                      std::to_string(count));
  for (std::size_t i = 0; i < count && i < kMembers.size(); ++i) {
    FUNCDESC* f = nullptr;
    vtable->GetFuncDesc(static_cast<UINT>(i), &f);
    const Member& expected = kMembers[i];
    const auto names = Names(vtable, f->memid);
    const std::string where = "member " + std::to_string(i) + " (" + expected.name + ")";
    CHECK(!names.empty() && names[0] == expected.name, where + " is named " + (names.empty() ? "" : names[0]));
    CHECK(f->invkind == expected.kind, where + " is a " + (expected.kind == M ? "method" : "property accessor"));
    if (expected.kind != M) {
      CHECK(PropertyType(*f) == expected.type, where + " has its type");
    } else {
      CHECK(std::vector<std::string>(names.begin() + (names.empty() ? 0 : 1), names.end()) ==
                std::vector<std::string>(expected.params.begin(), expected.params.end()),
            where + " has its arguments, named as hosts know them");
      for (SHORT p = 0; p < f->cParams; ++p) {
        const TYPEDESC& type = f->lprgelemdescParam[p].tdesc;
        const bool byValue = expected.name == std::string("DownLoadStrCommand");
        CHECK(byValue || type.vt == VT_PTR, where + " takes argument " + std::to_string(p) + " by reference");
      }
    }
    vtable->ReleaseFuncDesc(f);
  }
  if (vtable != info) vtable->Release();
}

// The optional arguments and their defaults.
void CheckOptionals(ITypeInfo* info) {
  DISPID ids[1];
  auto function = [&](const wchar_t* name) -> FUNCDESC* {
    LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
    if (FAILED(info->GetIDsOfNames(names, 1, ids))) return nullptr;
    TYPEATTR* attributes = nullptr;
    info->GetTypeAttr(&attributes);
    const WORD count = attributes->cFuncs;
    info->ReleaseTypeAttr(attributes);
    for (WORD i = 0; i < count; ++i) {
      FUNCDESC* f = nullptr;
      info->GetFuncDesc(i, &f);
      if (f->memid == ids[0]) return f;
      info->ReleaseFuncDesc(f);
    }
    return nullptr;
  };
  auto flags = [](const FUNCDESC* f, int p) { return f->lprgelemdescParam[p].paramdesc.wParamFlags; };
  auto defaultOf = [](const FUNCDESC* f, int p) -> VARIANT& { return f->lprgelemdescParam[p].paramdesc.pparamdescex->varDefaultValue; };

  if (FUNCDESC* f = function(L"Connetti"); CHECK(f && f->cParams == 6, "Connetti takes six arguments")) {
    for (int p = 0; p < 3; ++p) CHECK(!(flags(f, p) & PARAMFLAG_FOPT), "Connetti's first three are required");
    CHECK((flags(f, 3) & PARAMFLAG_FHASDEFAULT) && V_BOOL(&defaultOf(f, 3)) == VARIANT_FALSE,
          "ViewRunTimeError defaults to False");
    CHECK((flags(f, 4) & PARAMFLAG_FHASDEFAULT) && V_I4(&defaultOf(f, 4)) == camrelay::sckUDPProtocol,
          "WinsockProtocol defaults to UDP");
    CHECK((flags(f, 5) & PARAMFLAG_FOPT) && !(flags(f, 5) & PARAMFLAG_FHASDEFAULT) &&
              f->lprgelemdescParam[5].tdesc.lptdesc->vt == VT_VARIANT,
          "CurrDir is an optional Variant without default, so that its absence shows");
    info->ReleaseFuncDesc(f);
  }
  if (FUNCDESC* f = function(L"DownLoadStrCommand"); CHECK(f && f->cParams == 1, "DownLoadStrCommand's argument")) {
    CHECK((flags(f, 0) & PARAMFLAG_FHASDEFAULT) && V_VT(&defaultOf(f, 0)) == VT_BSTR &&
              SysStringLen(V_BSTR(&defaultOf(f, 0))) == 0,
          "strCommand defaults to the empty string");
    info->ReleaseFuncDesc(f);
  }
}

void CheckEvents(ITypeInfo* info) {
  const char* expected[] = {"CambioStatoConnessione", "CambioStatoDB", "OnDebug"};
  TYPEATTR* attributes = nullptr;
  info->GetTypeAttr(&attributes);
  const WORD count = attributes->cFuncs;
  info->ReleaseTypeAttr(attributes);
  CHECK(count == 3, "__clsClient has three events");
  for (WORD i = 0; i < count && i < 3; ++i) {
    FUNCDESC* f = nullptr;
    info->GetFuncDesc(i, &f);
    const auto names = Names(info, f->memid);
    CHECK(f->memid == i + 1 && names.size() == 2 && names[0] == expected[i],
          std::string(expected[i]) + " has DISPID " + std::to_string(i + 1));
    CHECK(f->cParams == 1 && f->lprgelemdescParam[0].tdesc.vt == VT_PTR,
          std::string(expected[i]) + " passes its argument by reference");
    info->ReleaseFuncDesc(f);
  }
}

// The enumeration's members, as (name, value), in order.
std::vector<std::pair<std::string, long>> Enumeration(ITypeLib* library, const wchar_t* name) {
  std::vector<std::pair<std::string, long>> members;
  ITypeInfo* info = nullptr;
  MEMBERID id = 0;
  USHORT found = 1;
  std::wstring search = name;
  if (FAILED(library->FindName(search.data(), 0, &info, &id, &found)) || found == 0) return members;
  TYPEATTR* attributes = nullptr;
  info->GetTypeAttr(&attributes);
  for (WORD i = 0; i < attributes->cVars; ++i) {
    VARDESC* v = nullptr;
    info->GetVarDesc(i, &v);
    members.emplace_back(Names(info, v->memid).at(0), V_I4(v->lpvarValue));
    info->ReleaseVarDesc(v);
  }
  info->ReleaseTypeAttr(attributes);
  info->Release();
  return members;
}

void CheckEnumerations(ITypeLib* library) {
  std::vector<std::pair<std::string, long>> states;
  for (int value = 0; value <= 57; ++value)
    states.emplace_back(std::string(camrelay::StatoConnessioneName(value)), value);
  CHECK(Enumeration(library, L"StatoConnessioneEnum") == states, "StatoConnessioneEnum matches the library's 0..57");
  CHECK(Enumeration(library, L"StatoDBEnum") ==
            (std::vector<std::pair<std::string, long>>{{"cDbChiuso", camrelay::cDbChiuso},
                                                       {"cDbAperto", camrelay::cDbAperto}}),
        "StatoDBEnum");
  CHECK(Enumeration(library, L"sckProtocol") ==
            (std::vector<std::pair<std::string, long>>{{"sckProtocolError", camrelay::sckProtocolError},
                                                       {"sckTCPProtocol", camrelay::sckTCPProtocol},
                                                       {"sckUDPProtocol", camrelay::sckUDPProtocol}}),
        "sckProtocol");
}

}  // namespace

void TypeLibrary() {
  RegisterServer();
  ITypeLib* library = nullptr;
  if (!CHECK(SUCCEEDED(LoadRegTypeLib(LIBID_CamRelay, 1, 0, 0, &library)), "the registered type library loads"))
    return;
  BSTR name = nullptr, help = nullptr;
  library->GetDocumentation(-1, &name, &help, nullptr, nullptr);
  CHECK(name && std::wstring(name) == L"CamRelay", "the library is called CamRelay");
  CHECK(help && std::wstring(help) == L"Video Server per la gestione del VideoSentrova", "its help string");
  SysFreeString(name);
  SysFreeString(help);

  if (ITypeInfo* info = Find(library, IID__clsClient, "_clsClient")) {
    CheckInterface(info);
    CheckOptionals(info);
    info->Release();
  }
  if (ITypeInfo* info = Find(library, DIID___clsClient, "__clsClient")) {
    CheckEvents(info);
    info->Release();
  }
  if (ITypeInfo* info = Find(library, CLSID_clsClient, "the class clsClient")) {
    int flags = 0;
    HREFTYPE reference = 0;
    ITypeInfo* source = nullptr;
    BSTR sourceName = nullptr;
    for (UINT i = 0; SUCCEEDED(info->GetImplTypeFlags(i, &flags)); ++i) {
      if (flags != (IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE)) continue;
      info->GetRefTypeOfImplType(i, &reference);
      info->GetRefTypeInfo(reference, &source);
    }
    if (source) source->GetDocumentation(MEMBERID_NIL, &sourceName, nullptr, nullptr, nullptr);
    CHECK(sourceName && std::wstring(sourceName) == L"__clsClient", "the class's default source is __clsClient");
    SysFreeString(sourceName);
    if (source) source->Release();
    info->Release();
  }
  CheckEnumerations(library);
  library->Release();
}
