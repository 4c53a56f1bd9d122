#include "com/connection_point.h"

#include <olectl.h>

#include <new>

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

PointEnumerator::PointEnumerator(std::vector<IConnectionPoint*> points, ULONG next)
    : points_(std::move(points)), next_(next) {
  for (IConnectionPoint* point : points_) point->AddRef();
}

PointEnumerator::~PointEnumerator() {
  for (IConnectionPoint* point : points_) point->Release();
}

HRESULT STDMETHODCALLTYPE PointEnumerator::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IEnumConnectionPoints)) {
    *object = static_cast<IEnumConnectionPoints*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE PointEnumerator::AddRef() { return InterlockedIncrement(&references_); }

ULONG STDMETHODCALLTYPE PointEnumerator::Release() {
  const ULONG left = InterlockedDecrement(&references_);
  if (left == 0) delete this;
  return left;
}

HRESULT STDMETHODCALLTYPE PointEnumerator::Next(ULONG count, IConnectionPoint** points, ULONG* fetched) {
  if (!points || (count > 1 && !fetched)) return E_POINTER;
  ULONG given = 0;
  for (; given < count && next_ < points_.size(); ++given, ++next_) {
    points[given] = points_[next_];
    points[given]->AddRef();
  }
  if (fetched) *fetched = given;
  return given == count ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE PointEnumerator::Skip(ULONG count) {
  const ULONG left = static_cast<ULONG>(points_.size()) - next_;
  next_ += count < left ? count : left;
  return count <= left ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE PointEnumerator::Reset() {
  next_ = 0;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE PointEnumerator::Clone(IEnumConnectionPoints** copy) {
  if (!copy) return E_POINTER;
  *copy = new (std::nothrow) PointEnumerator(points_, next_);
  return *copy ? S_OK : E_OUTOFMEMORY;
}

}  // namespace camrelay::com
