// The settings store on Windows: the per-user registry key where desktop
// programs' GetSetting and SaveSetting keep theirs,
// HKEY_CURRENT_USER\Software\VB and VBA Program Settings\<application>\<section>,
// one string value per key.
#include <windows.h>

#include <stdexcept>

#include "component/settings.h"
#include "platform/windows/codepage.h"

namespace camrelay::component {

namespace {

using platform::windows::FromWide;
using platform::windows::ToWide;

const std::wstring kSettingsRoot = L"Software\\VB and VBA Program Settings\\";

std::wstring SectionKey(const std::string& application, const std::string& section) {
  return kSettingsRoot + ToWide(application) + L"\\" + ToWide(section);
}

}  // namespace

std::string SettingsStore::GetSetting(const std::string& Section, const std::string& Key,
                                      const std::string& Default) const {
  const std::wstring key = SectionKey(application_, Section), name = ToWide(Key);
  DWORD bytes = 0;
  if (RegGetValueW(HKEY_CURRENT_USER, key.c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, nullptr, &bytes) !=
      ERROR_SUCCESS)
    return Default;
  std::wstring value(bytes / sizeof(wchar_t), L'\0');
  if (RegGetValueW(HKEY_CURRENT_USER, key.c_str(), name.c_str(), RRF_RT_REG_SZ, nullptr, value.data(), &bytes) !=
      ERROR_SUCCESS)
    return Default;
  value.resize(bytes / sizeof(wchar_t));
  while (!value.empty() && value.back() == L'\0') value.pop_back();
  return FromWide(value);
}

void SettingsStore::SaveSetting(const std::string& Section, const std::string& Key,
                                const std::string& Setting) const {
  const std::wstring key = SectionKey(application_, Section), name = ToWide(Key), value = ToWide(Setting);
  HKEY handle = nullptr;
  LSTATUS status = RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &handle,
                                   nullptr);
  if (status == ERROR_SUCCESS) {
    status = RegSetValueExW(handle, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                            static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(handle);
  }
  if (status != ERROR_SUCCESS)
    throw std::runtime_error("cannot write the setting " + Key + " (registry error " + std::to_string(status) + ")");
}

}  // namespace camrelay::component
