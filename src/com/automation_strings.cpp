#include "com/automation_strings.h"

#include <stdexcept>

#include "platform/windows/codepage.h"

namespace camrelay::com {

using platform::windows::FromWide;
using platform::windows::ToWide;

std::string FromBstr(BSTR text) { return text ? FromWide({text, SysStringLen(text)}) : std::string(); }

BSTR ToBstr(const std::string& text) {
  const std::wstring wide = ToWide(text);
  return SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
}

std::optional<std::string> OptionalText(const VARIANT* argument) {
  if (!argument) return std::nullopt;
  const VARIANT* value = V_VT(argument) == (VT_BYREF | VT_VARIANT) ? V_VARIANTREF(argument) : argument;
  if (V_VT(value) == VT_ERROR && V_ERROR(value) == DISP_E_PARAMNOTFOUND) return std::nullopt;
  VARIANT text;
  VariantInit(&text);
  if (FAILED(VariantChangeType(&text, const_cast<VARIANT*>(value), 0, VT_BSTR)))
    throw std::runtime_error("the argument cannot be read as text");
  std::string result = FromBstr(V_BSTR(&text));
  VariantClear(&text);
  return result;
}

}  // namespace camrelay::com
