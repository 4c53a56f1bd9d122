#include "com/dispatch.h"

#include <vector>

namespace camrelay::com {
namespace {

// The function the call reaches, or null. The caller releases it.
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

// A by-reference argument that refers to nothing, directly or through the
// Variant it refers to. Automation has no use for one, and the platform's
// conversions read through the pointer without looking.
bool RefersToNothing(const VARIANT& argument) {
  const VARIANT* value = &argument;
  // A Variant may refer to a Variant, which may refer again: a few steps
  // are plenty, and a longer chain is no argument a host means.
  for (int depth = 0; depth < 4; ++depth) {
    if (!(V_VT(value) & VT_BYREF)) return false;
    if (!V_BYREF(value)) return true;
    if (V_VT(value) != (VT_BYREF | VT_VARIANT)) return false;
    value = V_VARIANTREF(value);
  }
  return true;
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
    if (!(description.wParamFlags & PARAMFLAG_FOPT)) return DISP_E_PARAMNOTOPTIONAL;
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
  const HRESULT hr = PassByReference(slot, copy, given, declared);
  return FAILED(hr) ? DISP_E_TYPEMISMATCH : hr;
}

// The parameters a caller passes: all but a trailing return value or locale.
UINT CallerParameters(const FUNCDESC& function) {
  UINT count = 0;
  for (SHORT p = 0; p < function.cParams; ++p)
    if (!(function.lprgelemdescParam[p].paramdesc.wParamFlags & (PARAMFLAG_FRETVAL | PARAMFLAG_FLCID))) ++count;
  return count;
}

// Each parameter's argument, in declared order, from the positional ones
// (which arrive last first) and the named ones (which come first, named by
// the parameter's position); null where the caller left one out. On failure
// argumentError is the offending argument's index in rgvarg.
HRESULT ArgumentsByPosition(const DISPPARAMS& params, UINT parameters, std::vector<const VARIANT*>& byPosition,
                            UINT& argumentError) {
  if (params.cArgs > parameters || params.cNamedArgs > params.cArgs) return DISP_E_BADPARAMCOUNT;
  byPosition.assign(parameters, nullptr);
  const UINT positional = params.cArgs - params.cNamedArgs;
  for (UINT i = 0; i < positional; ++i) byPosition[i] = &params.rgvarg[params.cArgs - 1 - i];
  for (UINT i = 0; i < params.cNamedArgs; ++i) {
    const DISPID position = params.rgdispidNamedArgs[i];
    if (position < 0 || static_cast<UINT>(position) >= parameters || byPosition[position]) {
      argumentError = i;
      return DISP_E_PARAMNOTFOUND;
    }
    byPosition[position] = &params.rgvarg[i];
  }
  return S_OK;
}

// The index in rgvarg of the argument given for a position.
UINT IndexOf(const DISPPARAMS& params, const VARIANT* argument) {
  return static_cast<UINT>(argument - params.rgvarg);
}

bool IsPropertyPut(WORD flags, const DISPPARAMS& params) {
  return (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) && params.cNamedArgs == 1 &&
         params.rgdispidNamedArgs && params.rgdispidNamedArgs[0] == DISPID_PROPERTYPUT;
}

}  // namespace

HRESULT InvokeByTypeInfo(ITypeInfo* info, void* object, DISPID member, WORD flags, DISPPARAMS* params,
                         VARIANT* result, EXCEPINFO* exception, UINT* argumentError) {
  if (!params || (params->cArgs && !params->rgvarg) || (params->cNamedArgs && !params->rgdispidNamedArgs))
    return E_INVALIDARG;
  UINT unused = 0;
  UINT& errorIndex = argumentError ? *argumentError : unused;
  for (UINT i = 0; i < params->cArgs; ++i)
    if (RefersToNothing(params->rgvarg[i])) {
      errorIndex = i;
      return DISP_E_TYPEMISMATCH;
    }
  // A property's new value is one argument by value: the platform converts
  // it as the let declares.
  if (IsPropertyPut(flags, *params)) {
    if (params->cArgs != 1) return DISP_E_BADPARAMCOUNT;
    return info->Invoke(object, member, flags, params, result, exception, argumentError);
  }
  FUNCDESC* function = FindFunction(info, member, flags);
  if (!function) return DISP_E_MEMBERNOTFOUND;

  const UINT parameters = CallerParameters(*function);
  std::vector<const VARIANT*> byPosition;
  HRESULT hr = ArgumentsByPosition(*params, parameters, byPosition, errorIndex);
  VARIANT missing;
  VariantInit(&missing);
  V_VT(&missing) = VT_ERROR;
  V_ERROR(&missing) = DISP_E_PARAMNOTFOUND;
  // The platform's Invoke sees every parameter, in place, by position.
  std::vector<VARIANT> arguments(parameters), copies(parameters);
  for (auto& copy : copies) VariantInit(&copy);
  for (UINT position = 0; position < parameters && SUCCEEDED(hr); ++position) {
    const VARIANT* given = byPosition[position];
    VARIANT& slot = arguments[parameters - 1 - position];
    hr = Adapt(info, function->lprgelemdescParam[position], given ? *given : missing, slot,
               copies[parameters - 1 - position]);
    if (hr == DISP_E_TYPEMISMATCH && given) errorIndex = IndexOf(*params, given);
  }
  info->ReleaseFuncDesc(function);
  if (SUCCEEDED(hr)) {
    DISPPARAMS adapted{arguments.data(), nullptr, parameters, 0};
    hr = info->Invoke(object, member, flags, &adapted, result, exception, argumentError);
  }
  for (auto& copy : copies) VariantClear(&copy);
  return hr;
}

}  // namespace camrelay::com
