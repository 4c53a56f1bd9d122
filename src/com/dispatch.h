// IDispatch::Invoke driven by the type library, as late-binding hosts need it.
#pragma once

#include <oaidl.h>

namespace camrelay::com {

// Invokes the member through the type library's description, with the
// arguments put in place here rather than by the platform, whose handling of
// named and left-out by-reference arguments differs between implementations
// (one passes a default value where a pointer belongs). Named arguments go to
// their parameter's position; arguments that the interface takes by
// reference but the caller passes by value (a script passing a literal, or a
// variable held in a Variant) are first coerced to the declared type, as
// automation does for by-value arguments, and the callee works on that copy;
// arguments left out take their declared defaults, or arrive as "missing" in
// an optional Variant. The call is refused, and the member never runs, when
// an argument refers to nothing or cannot take the declared type
// (DISP_E_TYPEMISMATCH), a required one is left out
// (DISP_E_PARAMNOTOPTIONAL), there are more than the member takes
// (DISP_E_BADPARAMCOUNT), or a name matches no parameter or one already
// given (DISP_E_PARAMNOTFOUND).
HRESULT InvokeByTypeInfo(ITypeInfo* info, void* object, DISPID member, WORD flags, DISPPARAMS* params,
                         VARIANT* result, EXCEPINFO* exception, UINT* argumentError);

}  // namespace camrelay::com
