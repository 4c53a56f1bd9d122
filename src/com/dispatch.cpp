#include "com/dispatch.h"

#include <algorithm>
#include <vector>

namespace camrelay::com {
namespace {

// The function the call reaches, or null.
FUNCDESC* FindFunction(ITypeInfo* info, DISPID member, WORD flags) {
  TYPEATTR* attributes = nullptr;
  if (FAILED(info->GetTypeAttr(&attributes))) return nullptr;
  const WORD count = attributes->cFuncs;
  info->ReleaseTypeAttr(attributes);
  for (WORD i = 0; i < count; ++i) {
    FUNCDESC* function = nullptr;
    if (FAILED(info->GetFuncDesc(i, &function))) continue;
    if (function->memid == member && (function->invkind & flags)) return function;
    info->ReleaseFuncDesc(function);
  }
  return nullptr;
}

// The type a by-reference parameter points to, or VT_EMPTY for a by-value one.
VARTYPE ReferencedType(ITypeInfo* info, const TYPEDESC& type) {
  if (type.vt != VT_PTR) return VT_EMPTY;
  const TYPEDESC& target = *type.lptdesc;
  if (target.vt != VT_USERDEFINED) return target.vt;
  // Enumerations travel as 32-bit integers.
  ITypeInfo* referenced = nullptr;
  VARTYPE result = VT_EMPTY;
  if (SUCCEEDED(info->GetRefTypeInfo(target.hreftype, &referenced))) {
    TYPEATTR* attributes = nullptr;
    if (SUCCEEDED(referenced->GetTypeAttr(&attributes))) {
      if (attributes->typekind == TKIND_ENUM) result = VT_I4;
      referenced->ReleaseTypeAttr(attributes);
    }
    referenced->Release();
  }
  return result;
}

bool IsMissing(const VARIANT& argument) {
  return V_VT(&argument) == VT_ERROR && V_ERROR(&argument) == DISP_E_PARAMNOTFOUND;
}

const VARIANT& Dereferenced(const VARIANT& argument) {
  return V_VT(&argument) == (VT_BYREF | VT_VARIANT) ? *V_VARIANTREF(&argument) : argument;
}

// Makes slot refer to copy, which holds the value as the declared type.
HRESULT PassByReference(VARIANT& slot, VARIANT& copy, const VARIANT& value, VARTYPE declared) {
  const HRESULT hr = declared == VT_VARIANT ? VariantCopyInd(&copy, const_cast<VARIANT*>(&value))
                                            : VariantChangeType(&copy, const_cast<VARIANT*>(&Dereferenced(value)), 0,
                                                                declared);
  if (FAILED(hr)) return hr;
  VariantInit(&slot);
  V_VT(&slot) = VT_BYREF | declared;
  V_BYREF(&slot) = declared == VT_VARIANT ? static_cast<void*>(&copy) : &V_UI1(&copy);
  return S_OK;
}

// The argument at one position, as the member declares it: by reference
// where it says so, its default where the caller left it out.
HRESULT Adapt(ITypeInfo* info, const ELEMDESC& parameter, const VARIANT& given, VARIANT& slot, VARIANT& copy) {
  const VARTYPE declared = ReferencedType(info, parameter.tdesc);
  const PARAMDESC& description = parameter.paramdesc;
  if (IsMissing(given)) {
    if (description.wParamFlags & PARAMFLAG_FHASDEFAULT) {
      const VARIANT& fallback = description.pparamdescex->varDefaultValue;
      if (declared != VT_EMPTY) return PassByReference(slot, copy, fallback, declared);
      const HRESULT hr = VariantCopy(&copy, const_cast<VARIANT*>(&fallback));
      slot = copy;
      return hr;
    }
    // An optional Variant left out arrives as "missing", by reference when
    // the member takes it so, and its absence shows.
    if (declared == VT_VARIANT) return PassByReference(slot, copy, given, declared);
    slot = given;
    return S_OK;
  }
  if (declared == VT_EMPTY || V_VT(&given) == (VT_BYREF | declared)) {
    slot = given;
    return S_OK;
  }
  return PassByReference(slot, copy, given, declared);
}

}  // namespace

HRESULT InvokeByTypeInfo(ITypeInfo* info, void* object, DISPID member, WORD flags, DISPPARAMS* params,
                         VARIANT* result, EXCEPINFO* exception, UINT* argumentError) {
  FUNCDESC* function = params && params->cNamedArgs == 0 ? FindFunction(info, member, flags) : nullptr;
  if (!function) return info->Invoke(object, member, flags, params, result, exception, argumentError);

  // Arguments arrive last first; the caller may leave out trailing ones.
  const UINT given = params->cArgs;
  const UINT total = std::max<UINT>(given, static_cast<UINT>(function->cParams));
  VARIANT missing;
  VariantInit(&missing);
  V_VT(&missing) = VT_ERROR;
  V_ERROR(&missing) = DISP_E_PARAMNOTFOUND;
  std::vector<VARIANT> arguments(total), copies(total);
  for (auto& copy : copies) VariantInit(&copy);
  HRESULT hr = S_OK;
  for (UINT position = 0; position < total && SUCCEEDED(hr); ++position) {
    const UINT slot = total - 1 - position;
    const VARIANT& argument = position < given ? params->rgvarg[given - 1 - position] : missing;
    if (position >= static_cast<UINT>(function->cParams)) {
      arguments[slot] = argument;
      continue;
    }
    hr = Adapt(info, function->lprgelemdescParam[position], argument, arguments[slot], copies[slot]);
    if (FAILED(hr)) {
      if (argumentError) *argumentError = given - 1 - position;
      hr = DISP_E_TYPEMISMATCH;
    }
  }
  info->ReleaseFuncDesc(function);
  if (SUCCEEDED(hr)) {
    DISPPARAMS adapted{arguments.data(), nullptr, total, 0};
    hr = info->Invoke(object, member, flags, &adapted, result, exception, argumentError);
  }
  for (auto& copy : copies) VariantClear(&copy);
  return hr;
}

}  // namespace camrelay::com
