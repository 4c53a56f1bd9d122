// The connection point of the event interface __clsClient: hosts advise
// their sinks here, and the object raises its events through it.
#pragma once

#include <ocidl.h>

#include <utility>
#include <vector>

namespace camrelay::com {

class EventSource final : public IConnectionPoint {
 public:
  // container is the object the point belongs to; it is not owned, the
  // object keeps the point alive and the point keeps the object alive.
  EventSource(IConnectionPointContainer* container, REFIID events);
  ~EventSource();

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override;
  HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** container) override;
  HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override;
  HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override;
  HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) override;

  // Calls the event on every sink, with one argument passed by reference
  // as the event interface declares it. A sink's failure does not stop the
  // others.
  void Raise(DISPID event, VARIANT& byReferenceArgument);
  // Drops every sink: the object is going away.
  void DisconnectAll();

 private:
  IConnectionPointContainer* container_;
  IID events_;
  std::vector<std::pair<DWORD, IDispatch*>> sinks_;
  DWORD nextCookie_ = 1;
};

}  // namespace camrelay::com
