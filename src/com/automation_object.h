// CamRelay.clsClient as automation sees it: the dual interface _clsClient
// over the library's clsClient, its events raised through the connection
// point of __clsClient, and the diagnostic panel as a window. Every member
// answers S_OK: a failure reaches the host only as an OnDebug line.
#pragma once

#include <ocidl.h>

#include <memory>

#include "camrelay.h"
#include "camrelay/clsClient.h"
#include "com/apartment_loop.h"
#include "com/connection_point.h"
#include "com/panel_window.h"

namespace camrelay::com {

class AutomationObject final : public _clsClient, public IConnectionPointContainer,
                               public IProvideClassInfo2 {
 public:
  static HRESULT Create(AutomationObject** created);

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override;
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, LCID locale, ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, LCID locale,
                                          DISPID* ids) override;
  HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID locale, WORD flags, DISPPARAMS* params,
                                   VARIANT* result, EXCEPINFO* exception, UINT* argumentError) override;

  HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override;
  HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override;
  HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** info) override;
  HRESULT STDMETHODCALLTYPE GetGUID(DWORD kind, GUID* guid) override;

  HRESULT STDMETHODCALLTYPE get_StringaConnDB(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_StringaConnDB(BSTR value) override;
  HRESULT STDMETHODCALLTYPE put_VideoCicle(LONG value) override;
  HRESULT STDMETHODCALLTYPE get_VideoCicle(LONG* value) override;
  HRESULT STDMETHODCALLTYPE get_CameraPreview(LONG* value) override;
  HRESULT STDMETHODCALLTYPE get_CurrentTimeFileVideo(double* value) override;
  HRESULT STDMETHODCALLTYPE put_CurrentTimeFileVideo(double value) override;
  HRESULT STDMETHODCALLTYPE get_RemoteHost(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_RemotePort(LONG* value) override;
  HRESULT STDMETHODCALLTYPE get_LocalPort(LONG* value) override;
  HRESULT STDMETHODCALLTYPE get_Connesso(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE get_ImagePreview(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_StringaErroreConnessione(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_PwdCrypted(VARIANT_BOOL* value) override;
  HRESULT STDMETHODCALLTYPE get_Protocol(::sckProtocol* value) override;
  HRESULT STDMETHODCALLTYPE put_Protocol(::sckProtocol value) override;
  HRESULT STDMETHODCALLTYPE get_StringaRicevuta(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE get_VettoreStringaRicevuta(VARIANT* value) override;
  HRESULT STDMETHODCALLTYPE get_StringaCodiceAccesso(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_StringaCodiceAccesso(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_RemotePasswordType(short* value) override;
  HRESULT STDMETHODCALLTYPE get_p_NewStringaPassWord(BSTR* value) override;
  HRESULT STDMETHODCALLTYPE put_p_NewStringaPassWord(BSTR value) override;
  HRESULT STDMETHODCALLTYPE get_FileMultimediaSize(LONG* value) override;
  HRESULT STDMETHODCALLTYPE get_TentativiTimeOut(short* value) override;
  HRESULT STDMETHODCALLTYPE Show() override;
  HRESULT STDMETHODCALLTYPE Hide() override;
  HRESULT STDMETHODCALLTYPE AttivaPreview(BSTR* strCommand) override;
  HRESULT STDMETHODCALLTYPE FermaPreview() override;
  HRESULT STDMETHODCALLTYPE UpLoadProgrammazione() override;
  HRESULT STDMETHODCALLTYPE UpLoadProgCamEvents() override;
  HRESULT STDMETHODCALLTYPE DownLoadProgrammazione() override;
  HRESULT STDMETHODCALLTYPE ScaricaLog() override;
  HRESULT STDMETHODCALLTYPE CaricaLog() override;
  HRESULT STDMETHODCALLTYPE CancellaLog() override;
  HRESULT STDMETHODCALLTYPE DownLoadStrCommand(BSTR strCommand) override;
  HRESULT STDMETHODCALLTYPE DownLoadStreamImage(BSTR* strCommand) override;
  HRESULT STDMETHODCALLTYPE DownloadCamEvents() override;
  HRESULT STDMETHODCALLTYPE DownloadProgCamEvents() override;
  HRESULT STDMETHODCALLTYPE DownloadMultimediaFile(BSTR* strFileName) override;
  HRESULT STDMETHODCALLTYPE UploadStrCommand(BSTR* strCommand) override;
  HRESULT STDMETHODCALLTYPE UpLoadMessaggiWave(BSTR* strDirName) override;
  HRESULT STDMETHODCALLTYPE UpLoadAggiornamento(BSTR* strFileName) override;
  HRESULT STDMETHODCALLTYPE DownLoadMessaggiWave() override;
  HRESULT STDMETHODCALLTYPE RichiestaDiConnessione() override;
  HRESULT STDMETHODCALLTYPE Connetti(BSTR* RemoteHost, LONG* RemotePort, LONG* LocalPort, VARIANT_BOOL* ViewRunTimeError, ::sckProtocol* WinsockProtocol, VARIANT* CurrDir) override;
  HRESULT STDMETHODCALLTYPE Disconnetti() override;
  HRESULT STDMETHODCALLTYPE ApriDB() override;
  HRESULT STDMETHODCALLTYPE ChiudiDB() override;
  HRESULT STDMETHODCALLTYPE UploadCodInstallatore() override;
  HRESULT STDMETHODCALLTYPE UploadCodUtente() override;
  HRESULT STDMETHODCALLTYPE AnnullaRichiesta() override;

 private:
  AutomationObject(ITypeInfo* dispatchInfo, ITypeInfo* classInfo);
  ~AutomationObject();
  void Subscribe();
  // Runs one member: a failure becomes the OnDebug line "<member>: <reason>";
  // then the loop is woken for what the call posted, and the panel redrawn.
  template <class Body>
  HRESULT Call(const char* member, Body&& body);
  template <class T, class Get>
  HRESULT Read(const char* member, T* value, Get&& get);
  HRESULT ReadText(const char* member, BSTR* value, std::string (clsClient::*get)());
  void RaiseNumber(DISPID event, long value);
  void RaiseDebug(const std::string& message);

  LONG references_ = 1;
  ITypeInfo* dispatchInfo_;
  ITypeInfo* classInfo_;
  // Declared in the order they must come up; they go down in reverse, the
  // panel first and the sinks last, so the client's last events still
  // reach them.
  EventSource events_;
  ApartmentLoop loop_;
  std::unique_ptr<clsClient> client_;
  PanelWindow panel_;
};

}  // namespace camrelay::com
