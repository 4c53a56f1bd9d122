// panel: Show brings up the diagnostic panel as a window, its status drawn at
// once; "Invia" sends the typed string on UDP, and the send row is not there
// on TCP.
#include <windows.h>
#include <commctrl.h>

#include <algorithm>
#include <vector>
#include <string>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"
#include "platform/windows/codepage.h"

namespace fs = std::filesystem;
using namespace host;
using camrelay::platform::windows::FromWide;

namespace {

constexpr wchar_t kTitle[] = L"CAMRELAY by SENTROVA";

HWND PanelWindow() { return FindWindowW(nullptr, kTitle); }

// Whether the screen shows red (the status drawing's "Non connesso") in the
// window, its frame and controls included.
bool ShowsRed(HWND window) {
  RECT frame;
  GetWindowRect(window, &frame);
  const int width = frame.right - frame.left, height = frame.bottom - frame.top;
  HDC source = GetWindowDC(window), memory = CreateCompatibleDC(source);
  HBITMAP bitmap = CreateCompatibleBitmap(source, width, height);
  HGDIOBJ previous = SelectObject(memory, bitmap);
  CHECK(BitBlt(memory, 0, 0, width, height, source, 0, 0, SRCCOPY) != FALSE, "the panel is copied off the screen");
  SelectObject(memory, previous);
  BITMAPINFO info{};
  info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, -height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  std::vector<DWORD> pixels(static_cast<std::size_t>(width) * height);
  GetDIBits(memory, bitmap, 0, height, pixels.data(), &info, DIB_RGB_COLORS);
  DeleteObject(bitmap);
  DeleteDC(memory);
  ReleaseDC(window, source);
  return std::any_of(pixels.begin(), pixels.end(),
                     [](DWORD c) { return (c >> 16 & 0xFF) >= 200 && (c >> 8 & 0xFF) <= 80 && (c & 0xFF) <= 80; });
}

// Show, then the panel once it is up and drawn; null when it never shows.
HWND Shown(LateBound client) {
  client.Call(L"Show");
  PumpUntil([] { return PanelWindow() && IsWindowVisible(PanelWindow()); }, 5000);
  PumpFor(500);
  return PanelWindow() && IsWindowVisible(PanelWindow()) ? PanelWindow() : nullptr;
}

}  // namespace

void Panel() {
  Created server;
  LateBound client = server.Client();
  const fs::path folder = WorkDir() / "host";

  Connect(client, camrelay::sckUDPProtocol, FreeUdpPort(), folder);
  PumpFor(300);
  CHECK(PanelWindow() == nullptr || !IsWindowVisible(PanelWindow()), "the panel is hidden until Show");
  const HWND panel = Shown(client);
  if (!CHECK(panel != nullptr, "Show brings up the window \"CAMRELAY by SENTROVA\"")) return;
  CHECK(GetMenuState(GetSystemMenu(panel, FALSE), SC_CLOSE, MF_BYCOMMAND) == static_cast<UINT>(-1),
        "the panel's window menu has no Close");
  CHECK(FindWindowExW(panel, nullptr, L"Static", L"Invia una stringa al VideoSentrova:"),
        "the panel carries its captions");
  // The status area, at once: nothing has resized or repainted the panel
  // since Show. Its "connesso" part reads Non connesso, drawn in red.
  const HWND bar = FindWindowExW(panel, nullptr, STATUSCLASSNAMEW, nullptr);
  wchar_t status[64] = L"(no status bar)";
  if (bar && LOWORD(SendMessageW(bar, SB_GETTEXTLENGTHW, 1, 0)) < 64)
    SendMessageW(bar, SB_GETTEXTW, 1, reinterpret_cast<LPARAM>(status));
  CHECK(std::wstring(status) == L"Non connesso", "the status bar reads " + FromWide(status));
  CHECK(ShowsRed(panel), "the screen shows the status drawing's \"Non connesso\" in red");

  // The send row: the one edit that is not read-only, and "Invia".
  HWND field = FindWindowExW(panel, nullptr, L"Edit", nullptr);
  while (field && (GetWindowLongW(field, GWL_STYLE) & ES_READONLY))
    field = FindWindowExW(panel, field, L"Edit", nullptr);
  const HWND invia = FindWindowExW(panel, nullptr, L"Button", L"Invia");
  CHECK(field && invia && IsWindowVisible(invia), "on UDP the send row is shown");
  SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"PROVA-PANNELLO-42"));
  SendMessageW(invia, BM_CLICK, 0, 0);
  const fs::path log = FromUnixPath(Environment("CAMRELAY_UNIT_LOG"));
  CHECK(PumpUntil([&] { return FileBytes(log).find("PROVA-PANNELLO-42") != std::string::npos; }, 5000),
        "\"Invia\" sends the typed string");

  client.Call(L"Hide");
  PumpFor(300);
  CHECK(!IsWindowVisible(panel), "Hide takes the panel away");

  Connect(client, camrelay::sckTCPProtocol, 0, folder);
  const HWND tcpPanel = Shown(client);
  const HWND tcpInvia = tcpPanel ? FindWindowExW(tcpPanel, nullptr, L"Button", L"Invia") : nullptr;
  CHECK(tcpInvia && !IsWindowVisible(tcpInvia), "on TCP the send row is hidden");
  client.Call(L"Disconnetti");
  PumpFor(300);
  CHECK(!PanelWindow() || !IsWindowVisible(PanelWindow()), "Disconnetti takes the panel away");
}
