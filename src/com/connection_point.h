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

// The container's list of its connection points, for hosts that look for the
// event source by walking it rather than asking for __clsClient by name.
class PointEnumerator final : public IEnumConnectionPoints {
 public:
  // Holds a reference to each point for as long as it lives.
  explicit PointEnumerator(std::vector<IConnectionPoint*> points, ULONG next = 0);
  ~PointEnumerator();

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE Next(ULONG count, IConnectionPoint** points, ULONG* fetched) override;
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override;
  HRESULT STDMETHODCALLTYPE Reset() override;
  HRESULT STDMETHODCALLTYPE Clone(IEnumConnectionPoints** copy) override;

 private:
  LONG references_ = 1;
  std::vector<IConnectionPoint*> points_;
  ULONG next_;
};

}  // namespace camrelay::com
