// IDispatch::Invoke driven by the type library, as late-binding hosts need it.
#pragma once

#include <oaidl.h>

namespace camrelay::com {

// Invokes the member through the type library's description. Arguments that
// the interface takes by reference but the caller passes by value (a script
// passing a literal, or a variable held in a Variant) are first coerced to
// the declared type, as automation does for by-value arguments, and the
// callee works on that copy; trailing arguments left out take their declared
// defaults, or arrive as "missing" in an optional Variant.
HRESULT InvokeByTypeInfo(ITypeInfo* info, void* object, DISPID member, WORD flags, DISPPARAMS* params,
                         VARIANT* result, EXCEPINFO* exception, UINT* argumentError);

}  // namespace camrelay::com
