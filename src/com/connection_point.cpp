#include "com/connection_point.h"

#include <olectl.h>

namespace camrelay::com {

EventSource::EventSource(IConnectionPointContainer* container, REFIID events)
    : container_(container), events_(events) {}

EventSource::~EventSource() { DisconnectAll(); }

HRESULT STDMETHODCALLTYPE EventSource::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IConnectionPoint)) {
    *object = static_cast<IConnectionPoint*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

// The point lives exactly as long as its object: its references are the
// object's.
ULONG STDMETHODCALLTYPE EventSource::AddRef() { return container_->AddRef(); }
ULONG STDMETHODCALLTYPE EventSource::Release() { return container_->Release(); }

HRESULT STDMETHODCALLTYPE EventSource::GetConnectionInterface(IID* iid) {
  if (!iid) return E_POINTER;
  *iid = events_;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE EventSource::GetConnectionPointContainer(IConnectionPointContainer** container) {
  if (!container) return E_POINTER;
  *container = container_;
  container_->AddRef();
  return S_OK;
}

HRESULT STDMETHODCALLTYPE EventSource::Advise(IUnknown* sink, DWORD* cookie) {
  if (!sink || !cookie) return E_POINTER;
  *cookie = 0;
  IDispatch* dispatch = nullptr;
  if (FAILED(sink->QueryInterface(events_, reinterpret_cast<void**>(&dispatch))) &&
      FAILED(sink->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(&dispatch))))
    return CONNECT_E_CANNOTCONNECT;
  *cookie = nextCookie_++;
  sinks_.emplace_back(*cookie, dispatch);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE EventSource::Unadvise(DWORD cookie) {
  for (auto it = sinks_.begin(); it != sinks_.end(); ++it) {
    if (it->first != cookie) continue;
    IDispatch* sink = it->second;
    sinks_.erase(it);
    sink->Release();
    return S_OK;
  }
  return CONNECT_E_NOCONNECTION;
}

HRESULT STDMETHODCALLTYPE EventSource::EnumConnections(IEnumConnections** connections) {
  if (connections) *connections = nullptr;
  return E_NOTIMPL;
}

void EventSource::Raise(DISPID event, VARIANT& byReferenceArgument) {
  // A sink may advise or unadvise from inside its handler: call the sinks
  // connected when the event started, each held while it runs.
  std::vector<IDispatch*> sinks;
  for (const auto& [cookie, sink] : sinks_) {
    sink->AddRef();
    sinks.push_back(sink);
  }
  for (IDispatch* sink : sinks) {
    DISPPARAMS params{&byReferenceArgument, nullptr, 1, 0};
    sink->Invoke(event, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, nullptr, nullptr, nullptr);
    sink->Release();
  }
}

void EventSource::DisconnectAll() {
  auto sinks = std::move(sinks_);
  sinks_.clear();
  for (const auto& [cookie, sink] : sinks) sink->Release();
}

}  // namespace camrelay::com
