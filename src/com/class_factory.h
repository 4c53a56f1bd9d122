// The class factory of CamRelay.clsClient.
#pragma once

#include <unknwn.h>

namespace camrelay::com {

class ClassFactory final : public IClassFactory {
 public:
  ClassFactory();
  ~ClassFactory();

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;

 private:
  LONG references_ = 1;
};

}  // namespace camrelay::com
