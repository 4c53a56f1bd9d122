// panel: Show brings up the diagnostic panel as a window; what the screen
// shows of it is not blank; "Invia" sends the typed string on UDP, and the send row is
// not there on TCP.
#include <windows.h>
#include <commctrl.h>

#include <iterator>
#include <set>
#include <string>

#include "camrelay.h"
#include "camrelay/enums.h"
#include "host_support.h"
#include "platform/windows/codepage.h"

namespace fs = std::filesystem;
using namespace host;

namespace {

constexpr wchar_t kTitle[] = L"CAMRELAY by SENTROVA";
constexpr int kTwipsPerPixel = 15;

HWND PanelWindow() { return FindWindowW(nullptr, kTitle); }

HWND ChildWith(HWND parent, const wchar_t* windowClass, const wchar_t* text) {
  return FindWindowExW(parent, nullptr, windowClass, text);
}

// The edit box where a string is typed: the one edit that is not read-only.
HWND TypingField(HWND panel) {
  for (HWND child = FindWindowExW(panel, nullptr, L"Edit", nullptr); child;
       child = FindWindowExW(panel, child, L"Edit", nullptr))
    if (!(GetWindowLongW(child, GWL_STYLE) & ES_READONLY)) return child;
  return nullptr;
}

// The colours the screen shows of the window, its frame and controls
// included, each as red << 16 | green << 8 | blue.
std::set<unsigned> Colours(HWND window) {
  RECT frame;
  GetWindowRect(window, &frame);
  const int width = frame.right - frame.left, height = frame.bottom - frame.top;
  BITMAPINFO info{};
  info.bmiHeader = {sizeof(BITMAPINFOHEADER), width, height, 1, 24, BI_RGB, 0, 0, 0, 0, 0};
  HDC screen = GetDC(nullptr);
  HDC memory = CreateCompatibleDC(screen);
  void* bits = nullptr;
  HBITMAP bitmap = CreateDIBSection(memory, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  HGDIOBJ previous = SelectObject(memory, bitmap);
  HDC source = GetWindowDC(window);
  CHECK(BitBlt(memory, 0, 0, width, height, source, 0, 0, SRCCOPY) != FALSE, "the panel is copied off the screen");
  ReleaseDC(window, source);
  GdiFlush();
  const int stride = (width * 3 + 3) & ~3;
  const auto* pixels = static_cast<const unsigned char*>(bits);
  std::set<unsigned> colours;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const unsigned char* p = pixels + y * stride + x * 3;
      colours.insert(p[0] | p[1] << 8 | p[2] << 16);
    }
  SelectObject(memory, previous);
  DeleteObject(bitmap);
  DeleteDC(memory);
  ReleaseDC(nullptr, screen);
  return colours;
}

bool HasRed(const std::set<unsigned>& colours) {
  for (unsigned colour : colours)
    if ((colour >> 16) >= 200 && ((colour >> 8) & 0xFF) <= 80 && (colour & 0xFF) <= 80) return true;
  return false;
}

// The text of one panel of the window's status bar.
std::wstring StatusBarText(HWND panel, int part) {
  const HWND bar = FindWindowExW(panel, nullptr, STATUSCLASSNAMEW, nullptr);
  if (!bar) return L"(no status bar)";
  std::wstring text(LOWORD(SendMessageW(bar, SB_GETTEXTLENGTHW, part, 0)) + 1, L'\0');
  SendMessageW(bar, SB_GETTEXTW, part, reinterpret_cast<LPARAM>(text.data()));
  text.resize(lstrlenW(text.c_str()));
  return text;
}

bool UnitLogHas(const std::string& text) {
  return FileBytes(FromUnixPath(Environment("CAMRELAY_UNIT_LOG"))).find(text) != std::string::npos;
}

int WindowHeight(HWND window) {
  RECT frame;
  GetWindowRect(window, &frame);
  return frame.bottom - frame.top;
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
  CHECK(WindowHeight(panel) == 8900 / kTwipsPerPixel, "on UDP the panel is 8900 twips high");
  CHECK(ChildWith(panel, L"Static", L"Dati di rete locale") && ChildWith(panel, L"Static", L"TX:") &&
            ChildWith(panel, L"Static", L"Invia una stringa al VideoSentrova:"),
        "the panel carries its captions");
  const auto colours = Colours(panel);
  CHECK(colours.size() > 2, "the screen shows the drawn panel (" + std::to_string(colours.size()) + " colours)");
  // The status area, at once: nothing has resized or repainted the panel
  // since Show.
  CHECK(StatusBarText(panel, 1) == L"Non connesso",
        "the status bar's \"connesso\" panel reads Non connesso, not " +
            camrelay::platform::windows::FromWide(StatusBarText(panel, 1)));
  CHECK(HasRed(colours), "the status drawing shows \"Non connesso\" in red");

  const HWND field = TypingField(panel);
  const HWND invia = ChildWith(panel, L"Button", L"Invia");
  CHECK(field && invia && IsWindowVisible(invia), "on UDP the send row is shown");
  SendMessageW(field, WM_SETTEXT, 0, reinterpret_cast<LPARAM>(L"PROVA-PANNELLO-42"));
  SendMessageW(invia, BM_CLICK, 0, 0);
  CHECK(PumpUntil([] { return UnitLogHas("PROVA-PANNELLO-42"); }, 5000), "\"Invia\" sends the typed string");

  client.Call(L"Hide");
  PumpFor(300);
  CHECK(!IsWindowVisible(panel), "Hide takes the panel away");

  Connect(client, camrelay::sckTCPProtocol, 0, folder);
  const HWND tcpPanel = Shown(client);
  CHECK(tcpPanel && WindowHeight(tcpPanel) == 8400 / kTwipsPerPixel, "on TCP the panel is 8400 twips high");
  const HWND tcpInvia = tcpPanel ? ChildWith(tcpPanel, L"Button", L"Invia") : nullptr;
  CHECK(tcpInvia && !IsWindowVisible(tcpInvia), "on TCP the send row is hidden");
  client.Call(L"Disconnetti");
  PumpFor(300);
  CHECK(!PanelWindow() || !IsWindowVisible(PanelWindow()), "Disconnetti takes the panel away");
}
