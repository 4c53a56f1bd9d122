#include "com/automation_object.h"

#include <olectl.h>

#include <exception>
#include <new>
#include <vector>

#include "com/automation_strings.h"
#include "com/dispatch.h"
#include "com/module.h"

namespace camrelay::com {

namespace {

constexpr DISPID kCambioStatoConnessione = 1;
constexpr DISPID kCambioStatoDB = 2;
constexpr DISPID kOnDebug = 3;

VARIANT_BOOL ToVariantBool(bool value) { return value ? VARIANT_TRUE : VARIANT_FALSE; }

// A zero-based array of strings in a Variant.
HRESULT ToStringArray(const std::vector<std::string>& items, VARIANT* value) {
  SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 0, static_cast<ULONG>(items.size()));
  if (!array) return E_OUTOFMEMORY;
  for (LONG i = 0; i < static_cast<LONG>(items.size()); ++i) {
    BSTR item = ToBstr(items[static_cast<std::size_t>(i)]);
    SafeArrayPutElement(array, &i, item);
    SysFreeString(item);
  }
  V_VT(value) = VT_ARRAY | VT_BSTR;
  V_ARRAY(value) = array;
  return S_OK;
}

}  // namespace

HRESULT AutomationObject::Create(AutomationObject** created) {
  ITypeInfo* dispatchInfo = nullptr;
  ITypeInfo* classInfo = nullptr;
  HRESULT hr = LoadTypeInfo(IID__clsClient, &dispatchInfo);
  if (SUCCEEDED(hr)) hr = LoadTypeInfo(CLSID_clsClient, &classInfo);
  if (FAILED(hr)) {
    if (dispatchInfo) dispatchInfo->Release();
    return hr;
  }
  try {
    *created = new AutomationObject(dispatchInfo, classInfo);
    return S_OK;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  } catch (const std::exception&) {
    return E_FAIL;
  }
}

AutomationObject::AutomationObject(ITypeInfo* dispatchInfo, ITypeInfo* classInfo)
    : dispatchInfo_(dispatchInfo),
      classInfo_(classInfo),
      events_(this, DIID___clsClient),
      loop_([this](const std::function<void()>& turn) {
        AddRef();
        turn();
        panel_.Refresh();
        Release();
      }),
      client_(std::make_unique<clsClient>(loop_.Context())),
      panel_([this] { return client_->Panel(); },
             [this](const std::string& text) {
               client_->SendTypedString(text);
               loop_.Wake();
             }) {
  AddModuleReference();
  Subscribe();
}

AutomationObject::~AutomationObject() {
  // The link goes down without telling anyone: the host has let go.
  client_->CambioStatoConnessione = nullptr;
  client_->CambioStatoDB = nullptr;
  client_->OnDebug = nullptr;
  events_.DisconnectAll();
  dispatchInfo_->Release();
  classInfo_->Release();
  ReleaseModuleReference();
}

void AutomationObject::Subscribe() {
  client_->CambioStatoConnessione = [this](StatoConnessioneEnum Stato) {
    RaiseNumber(kCambioStatoConnessione, Stato);
  };
  client_->CambioStatoDB = [this](StatoDBEnum Statodb) { RaiseNumber(kCambioStatoDB, Statodb); };
  client_->OnDebug = [this](const std::string& Message) { RaiseDebug(Message); };
}

void AutomationObject::RaiseNumber(DISPID event, long value) {
  VARIANT argument;
  VariantInit(&argument);
  V_VT(&argument) = VT_BYREF | VT_I4;
  V_I4REF(&argument) = &value;
  events_.Raise(event, argument);
}

void AutomationObject::RaiseDebug(const std::string& message) {
  BSTR text = ToBstr(message);
  VARIANT argument;
  VariantInit(&argument);
  V_VT(&argument) = VT_BYREF | VT_BSTR;
  V_BSTRREF(&argument) = &text;
  events_.Raise(kOnDebug, argument);
  SysFreeString(text);
}

template <class Body>
HRESULT AutomationObject::Call(const char* member, Body&& body) {
  AddRef();  // a sink may release the host's last reference from an event
  try {
    body();
  } catch (const std::exception& error) {
    RaiseDebug(std::string(member) + ": " + error.what());
  }
  loop_.Wake();
  panel_.Refresh();
  Release();
  return S_OK;
}

template <class T, class Get>
HRESULT AutomationObject::Read(const char* member, T* value, Get&& get) {
  if (!value) return E_POINTER;
  *value = T{};
  return Call(member, [&] { *value = get(); });
}

HRESULT AutomationObject::ReadText(const char* member, BSTR* value, std::string (clsClient::*get)()) {
  return Read(member, value, [&] { return ToBstr((client_.get()->*get)()); });
}

// ---- IUnknown. ---------------------------------------------------------------

HRESULT STDMETHODCALLTYPE AutomationObject::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, IID__clsClient))
    *object = static_cast<_clsClient*>(this);
  else if (IsEqualIID(iid, IID_IConnectionPointContainer))
    *object = static_cast<IConnectionPointContainer*>(this);
  else if (IsEqualIID(iid, IID_IProvideClassInfo) || IsEqualIID(iid, IID_IProvideClassInfo2))
    *object = static_cast<IProvideClassInfo2*>(this);
  else {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG STDMETHODCALLTYPE AutomationObject::AddRef() { return InterlockedIncrement(&references_); }

ULONG STDMETHODCALLTYPE AutomationObject::Release() {
  const ULONG left = InterlockedDecrement(&references_);
  if (left == 0) {
    // Sinks that hold a reference back to us must not see us half gone.
    references_ = 1;
    delete this;
  }
  return left;
}

// ---- IDispatch, from the type library. -----------------------------------------

HRESULT STDMETHODCALLTYPE AutomationObject::GetTypeInfoCount(UINT* count) {
  if (!count) return E_POINTER;
  *count = 1;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AutomationObject::GetTypeInfo(UINT index, LCID, ITypeInfo** info) {
  if (!info) return E_POINTER;
  *info = nullptr;
  if (index != 0) return DISP_E_BADINDEX;
  dispatchInfo_->AddRef();
  *info = dispatchInfo_;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AutomationObject::GetIDsOfNames(REFIID, LPOLESTR* names, UINT count, LCID,
                                                          DISPID* ids) {
  return dispatchInfo_->GetIDsOfNames(names, count, ids);
}

HRESULT STDMETHODCALLTYPE AutomationObject::Invoke(DISPID member, REFIID, LCID, WORD flags, DISPPARAMS* params,
                                                   VARIANT* result, EXCEPINFO* exception, UINT* argumentError) {
  return InvokeByTypeInfo(dispatchInfo_, static_cast<_clsClient*>(this), member, flags, params, result, exception,
                          argumentError);
}

// ---- Events and class information. ----------------------------------------------

HRESULT STDMETHODCALLTYPE AutomationObject::EnumConnectionPoints(IEnumConnectionPoints** points) {
  if (!points) return E_POINTER;
  *points = new (std::nothrow) PointEnumerator({&events_});
  return *points ? S_OK : E_OUTOFMEMORY;
}

HRESULT STDMETHODCALLTYPE AutomationObject::FindConnectionPoint(REFIID iid, IConnectionPoint** point) {
  if (!point) return E_POINTER;
  *point = nullptr;
  if (!IsEqualIID(iid, DIID___clsClient)) return CONNECT_E_NOCONNECTION;
  events_.AddRef();
  *point = &events_;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AutomationObject::GetClassInfo(ITypeInfo** info) {
  if (!info) return E_POINTER;
  classInfo_->AddRef();
  *info = classInfo_;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AutomationObject::GetGUID(DWORD kind, GUID* guid) {
  if (!guid) return E_POINTER;
  if (kind != GUIDKIND_DEFAULT_SOURCE_DISP_IID) {
    *guid = GUID_NULL;
    return E_INVALIDARG;
  }
  *guid = DIID___clsClient;
  return S_OK;
}

// ---- Properties. ----------------------------------------------------------------

HRESULT STDMETHODCALLTYPE AutomationObject::get_StringaConnDB(BSTR* value) {
  return ReadText("StringaConnDB", value, &clsClient::StringaConnDB);
}
HRESULT STDMETHODCALLTYPE AutomationObject::put_StringaConnDB(BSTR value) {
  return Call("StringaConnDB", [&] { client_->StringaConnDB(FromBstr(value)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::put_VideoCicle(LONG value) {
  return Call("VideoCicle", [&] { client_->VideoCicle(value); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_VideoCicle(LONG* value) {
  return Read("VideoCicle", value, [&] { return LONG{client_->VideoCicle()}; });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_CameraPreview(LONG* value) {
  return Read("CameraPreview", value, [&] { return LONG{client_->CameraPreview()}; });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_CurrentTimeFileVideo(double* value) {
  return Read("CurrentTimeFileVideo", value, [&] { return client_->CurrentTimeFileVideo(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::put_CurrentTimeFileVideo(double value) {
  return Call("CurrentTimeFileVideo", [&] { client_->CurrentTimeFileVideo(value); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_RemoteHost(BSTR* value) {
  return ReadText("RemoteHost", value, &clsClient::RemoteHost);
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_RemotePort(LONG* value) {
  return Read("RemotePort", value, [&] { return LONG{client_->RemotePort()}; });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_LocalPort(LONG* value) {
  return Read("LocalPort", value, [&] { return LONG{client_->LocalPort()}; });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_Connesso(VARIANT_BOOL* value) {
  return Read("Connesso", value, [&] { return ToVariantBool(client_->Connesso()); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_ImagePreview(BSTR* value) {
  return ReadText("ImagePreview", value, &clsClient::ImagePreview);
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_StringaErroreConnessione(BSTR* value) {
  return ReadText("StringaErroreConnessione", value, &clsClient::StringaErroreConnessione);
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_PwdCrypted(VARIANT_BOOL* value) {
  return Read("PwdCrypted", value, [&] { return ToVariantBool(client_->PwdCrypted()); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_Protocol(::sckProtocol* value) {
  if (!value) return E_POINTER;
  *value = ::sckProtocolError;
  return Call("Protocol", [&] { *value = static_cast<::sckProtocol>(client_->Protocol()); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::put_Protocol(::sckProtocol value) {
  return Call("Protocol", [&] { client_->Protocol(static_cast<camrelay::sckProtocol>(value)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_StringaRicevuta(BSTR* value) {
  return ReadText("StringaRicevuta", value, &clsClient::StringaRicevuta);
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_VettoreStringaRicevuta(VARIANT* value) {
  if (!value) return E_POINTER;
  VariantInit(value);
  return Call("VettoreStringaRicevuta", [&] { ToStringArray(client_->VettoreStringaRicevuta(), value); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_StringaCodiceAccesso(BSTR* value) {
  return ReadText("StringaCodiceAccesso", value, &clsClient::StringaCodiceAccesso);
}
HRESULT STDMETHODCALLTYPE AutomationObject::put_StringaCodiceAccesso(BSTR value) {
  return Call("StringaCodiceAccesso", [&] { client_->StringaCodiceAccesso(FromBstr(value)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_RemotePasswordType(short* value) {
  return Read("RemotePasswordType", value, [&] { return static_cast<short>(client_->RemotePasswordType()); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_p_NewStringaPassWord(BSTR* value) {
  return ReadText("p_NewStringaPassWord", value, &clsClient::p_NewStringaPassWord);
}
HRESULT STDMETHODCALLTYPE AutomationObject::put_p_NewStringaPassWord(BSTR value) {
  return Call("p_NewStringaPassWord", [&] { client_->p_NewStringaPassWord(FromBstr(value)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_FileMultimediaSize(LONG* value) {
  return Read("FileMultimediaSize", value, [&] { return LONG{client_->FileMultimediaSize()}; });
}
HRESULT STDMETHODCALLTYPE AutomationObject::get_TentativiTimeOut(short* value) {
  return Read("TentativiTimeOut", value, [&] { return static_cast<short>(client_->TentativiTimeOut()); });
}

// ---- Methods. -------------------------------------------------------------------

namespace {
std::string TextArgument(BSTR* value) { return value ? FromBstr(*value) : std::string(); }
}  // namespace

HRESULT STDMETHODCALLTYPE AutomationObject::Show() {
  return Call("Show", [&] { client_->Show(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::Hide() {
  return Call("Hide", [&] { client_->Hide(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::AttivaPreview(BSTR* strCommand) {
  return Call("AttivaPreview", [&] { client_->AttivaPreview(TextArgument(strCommand)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::FermaPreview() {
  return Call("FermaPreview", [&] { client_->FermaPreview(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UpLoadProgrammazione() {
  return Call("UpLoadProgrammazione", [&] { client_->UpLoadProgrammazione(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UpLoadProgCamEvents() {
  return Call("UpLoadProgCamEvents", [&] { client_->UpLoadProgCamEvents(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownLoadProgrammazione() {
  return Call("DownLoadProgrammazione", [&] { client_->DownLoadProgrammazione(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::ScaricaLog() {
  return Call("ScaricaLog", [&] { client_->ScaricaLog(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::CaricaLog() {
  return Call("CaricaLog", [&] { client_->CaricaLog(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::CancellaLog() {
  return Call("CancellaLog", [&] { client_->CancellaLog(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownLoadStrCommand(BSTR strCommand) {
  return Call("DownLoadStrCommand", [&] { client_->DownLoadStrCommand(FromBstr(strCommand)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownLoadStreamImage(BSTR* strCommand) {
  return Call("DownLoadStreamImage", [&] { client_->DownLoadStreamImage(TextArgument(strCommand)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownloadCamEvents() {
  return Call("DownloadCamEvents", [&] { client_->DownloadCamEvents(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownloadProgCamEvents() {
  return Call("DownloadProgCamEvents", [&] { client_->DownloadProgCamEvents(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownloadMultimediaFile(BSTR* strFileName) {
  return Call("DownloadMultimediaFile", [&] { client_->DownloadMultimediaFile(TextArgument(strFileName)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UploadStrCommand(BSTR* strCommand) {
  return Call("UploadStrCommand", [&] { client_->UploadStrCommand(TextArgument(strCommand)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UpLoadMessaggiWave(BSTR* strDirName) {
  return Call("UpLoadMessaggiWave", [&] { client_->UpLoadMessaggiWave(TextArgument(strDirName)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UpLoadAggiornamento(BSTR* strFileName) {
  return Call("UpLoadAggiornamento", [&] { client_->UpLoadAggiornamento(TextArgument(strFileName)); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::DownLoadMessaggiWave() {
  return Call("DownLoadMessaggiWave", [&] { client_->DownLoadMessaggiWave(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::RichiestaDiConnessione() {
  return Call("RichiestaDiConnessione", [&] { client_->RichiestaDiConnessione(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::Connetti(BSTR* RemoteHost, LONG* RemotePort, LONG* LocalPort,
                                                     VARIANT_BOOL* ViewRunTimeError, ::sckProtocol* WinsockProtocol,
                                                     VARIANT* CurrDir) {
  return Call("Connetti", [&] {
    client_->Connetti(TextArgument(RemoteHost), RemotePort ? *RemotePort : 0, LocalPort ? *LocalPort : 0,
                      ViewRunTimeError && *ViewRunTimeError != VARIANT_FALSE,
                      WinsockProtocol ? static_cast<camrelay::sckProtocol>(*WinsockProtocol) : sckUDPProtocol,
                      OptionalText(CurrDir));
  });
}
HRESULT STDMETHODCALLTYPE AutomationObject::Disconnetti() {
  return Call("Disconnetti", [&] { client_->Disconnetti(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::ApriDB() {
  return Call("ApriDB", [&] { client_->ApriDB(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::ChiudiDB() {
  return Call("ChiudiDB", [&] { client_->ChiudiDB(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UploadCodInstallatore() {
  return Call("UploadCodInstallatore", [&] { client_->UploadCodInstallatore(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::UploadCodUtente() {
  return Call("UploadCodUtente", [&] { client_->UploadCodUtente(); });
}
HRESULT STDMETHODCALLTYPE AutomationObject::AnnullaRichiesta() {
  return Call("AnnullaRichiesta", [&] { client_->AnnullaRichiesta(); });
}

}  // namespace camrelay::com
