#include "com/class_factory.h"

#include <new>

#include "com/automation_object.h"
#include "com/module.h"

namespace camrelay::com {

ClassFactory::ClassFactory() { AddModuleReference(); }
ClassFactory::~ClassFactory() { ReleaseModuleReference(); }

HRESULT STDMETHODCALLTYPE ClassFactory::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IClassFactory)) {
    *object = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE ClassFactory::AddRef() { return InterlockedIncrement(&references_); }

ULONG STDMETHODCALLTYPE ClassFactory::Release() {
  const ULONG left = InterlockedDecrement(&references_);
  if (left == 0) delete this;
  return left;
}

HRESULT STDMETHODCALLTYPE ClassFactory::CreateInstance(IUnknown* outer, REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (outer) return CLASS_E_NOAGGREGATION;
  AutomationObject* created = nullptr;
  const HRESULT hr = AutomationObject::Create(&created);
  if (FAILED(hr)) return hr;
  const HRESULT result = created->QueryInterface(iid, object);
  created->Release();
  return result;
}

HRESULT STDMETHODCALLTYPE ClassFactory::LockServer(BOOL lock) {
  if (lock)
    AddModuleReference();
  else
    ReleaseModuleReference();
  return S_OK;
}

}  // namespace camrelay::com
