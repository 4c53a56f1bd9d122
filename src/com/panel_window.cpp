#include "com/panel_window.h"

#include <commctrl.h>

#include <array>

#include "com/module.h"
#include "platform/windows/codepage.h"

namespace camrelay::com {

using platform::windows::FromWide;
using platform::windows::ToWide;

namespace {

constexpr wchar_t kWindowClass[] = L"CamRelayPanel";
constexpr UINT_PTR kRedrawTimer = 1;
constexpr UINT kRedrawInterval = 250;  // ms
constexpr int kWidth = 640;            // pixels
constexpr int kTwipsPerPixel = 15;     // at 96 dots per inch
constexpr int kVuotoWidth = 200;       // the status bar's first panel

enum class Kind { Label, Log, Edit, Button, Status };

// One control: what it shows, where it sits (x, y, width, height) and
// whether it belongs to the send row.
struct PanelControl {
  int id;
  Kind kind;
  std::string panel::PanelModel::*text;  // null: a fixed caption
  const char* caption;
  RECT place;
  bool sendRow;
};

using Model = panel::PanelModel;
constexpr int kIdPct = 120, kIdTxtSendStr = 121, kIdCmdSendStr = 122;

const std::array<PanelControl, 25>& Controls() {
  static const std::array<PanelControl, 25> controls{{
      {100, Kind::Label, &Model::LblLocal, nullptr, {10, 8, 300, 16}, false},
      {101, Kind::Label, &Model::lblLocalIp, nullptr, {10, 26, 300, 16}, false},
      {102, Kind::Label, &Model::lblLocalPort, nullptr, {10, 44, 300, 16}, false},
      {103, Kind::Label, &Model::LblTypeCon, nullptr, {10, 62, 300, 16}, false},
      {104, Kind::Label, &Model::LblRemote, nullptr, {320, 8, 300, 16}, false},
      {105, Kind::Label, &Model::lblRemoteIp, nullptr, {320, 26, 300, 16}, false},
      {106, Kind::Label, &Model::lblRemotePort, nullptr, {320, 44, 300, 16}, false},
      {107, Kind::Label, &Model::LblRemoteOut, nullptr, {320, 66, 300, 16}, false},
      {108, Kind::Label, &Model::lblRemoteIpOut, nullptr, {320, 84, 300, 16}, false},
      {109, Kind::Label, &Model::lblRemotePortOut, nullptr, {320, 102, 300, 16}, false},
      {110, Kind::Label, &Model::LblStato, nullptr, {10, 88, 300, 16}, false},
      {111, Kind::Label, &Model::LblStatoTCP, nullptr, {10, 106, 300, 16}, false},
      {112, Kind::Label, &Model::LblTimeOut, nullptr, {10, 124, 300, 16}, false},
      {113, Kind::Label, &Model::LblTentativiRicezione, nullptr, {10, 142, 300, 16}, false},
      {114, Kind::Label, &Model::LblRichiesta, nullptr, {320, 124, 300, 34}, false},
      {115, Kind::Label, nullptr, "TX:", {10, 164, 40, 16}, false},
      {116, Kind::Log, &Model::txtTxData, nullptr, {10, 182, 610, 80}, false},
      {117, Kind::Label, nullptr, "RX:", {10, 268, 40, 16}, false},
      {118, Kind::Log, &Model::txtRxData, nullptr, {10, 286, 610, 80}, false},
      {119, Kind::Log, &Model::Label3, nullptr, {10, 372, 300, 70}, false},
      {123, Kind::Log, &Model::Label4, nullptr, {320, 372, 300, 70}, false},
      {kIdPct, Kind::Status, &Model::pct, nullptr, {0, 0, 0, 0}, false},
      {124, Kind::Label, &Model::LblSendStr, nullptr, {10, 452, 300, 16}, true},
      {kIdTxtSendStr, Kind::Edit, nullptr, "", {10, 470, 500, 22}, true},
      {kIdCmdSendStr, Kind::Button, &Model::CmdSendStr, nullptr, {520, 470, 100, 22}, true},
  }};
  return controls;
}

HWND MakeControl(HWND parent, const PanelControl& control) {
  const wchar_t* windowClass = L"STATIC";
  DWORD style = WS_CHILD | WS_VISIBLE;
  DWORD extended = 0;
  switch (control.kind) {
    case Kind::Label:
    case Kind::Status:
      style |= SS_LEFT | SS_NOPREFIX;
      break;
    case Kind::Log:
      windowClass = L"EDIT";
      style |= ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL | WS_VSCROLL;
      extended = WS_EX_CLIENTEDGE;
      break;
    case Kind::Edit:
      windowClass = L"EDIT";
      style |= ES_AUTOHSCROLL | WS_TABSTOP;
      extended = WS_EX_CLIENTEDGE;
      break;
    case Kind::Button:
      windowClass = L"BUTTON";
      style |= BS_PUSHBUTTON | WS_TABSTOP;
      break;
  }
  const RECT& r = control.place;
  const std::wstring caption = control.caption ? ToWide(control.caption) : L"";
  return CreateWindowExW(extended, windowClass, caption.c_str(), style, r.left, r.top, r.right, r.bottom, parent,
                         reinterpret_cast<HMENU>(static_cast<INT_PTR>(control.id)), ModuleInstance(), nullptr);
}

void RegisterWindowClass(WNDPROC procedure) {
  WNDCLASSW windowClass{};
  if (GetClassInfoW(ModuleInstance(), kWindowClass, &windowClass)) return;
  windowClass.lpfnWndProc = procedure;
  windowClass.hInstance = ModuleInstance();
  windowClass.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
  windowClass.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
  windowClass.lpszClassName = kWindowClass;
  RegisterClassW(&windowClass);
}

}  // namespace

PanelWindow::PanelWindow(std::function<panel::PanelModel()> model, std::function<void(const std::string&)> send)
    : model_(std::move(model)), send_(std::move(send)) {}

PanelWindow::~PanelWindow() {
  if (window_) {
    SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
    DestroyWindow(window_);
  }
  if (font_) DeleteObject(font_);
}

void PanelWindow::Create() {
  INITCOMMONCONTROLSEX common{sizeof common, ICC_BAR_CLASSES};
  InitCommonControlsEx(&common);
  RegisterWindowClass(&PanelWindow::WindowProc);
  const std::wstring caption = ToWide(panel::PanelModel{}.caption);
  window_ = CreateWindowExW(0, kWindowClass, caption.c_str(), WS_OVERLAPPEDWINDOW, CW_USEDEFAULT, CW_USEDEFAULT,
                            kWidth, panel::kHeightUDP / kTwipsPerPixel, nullptr, nullptr, ModuleInstance(), nullptr);
  SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  // The panel goes away only through Hide or Disconnetti: no Close in its
  // window menu (the item at position 6, addressed by position).
  RemoveMenu(GetSystemMenu(window_, FALSE), 6, MF_BYPOSITION);
  font_ = CreateFontW(-11, 0, 0, 0, FW_NORMAL, FALSE, FALSE, FALSE, ANSI_CHARSET, OUT_DEFAULT_PRECIS,
                      CLIP_DEFAULT_PRECIS, DEFAULT_QUALITY, DEFAULT_PITCH | FF_SWISS, L"MS Sans Serif");
  for (const auto& control : Controls()) {
    controls_.push_back(MakeControl(window_, control));
    SendMessageW(controls_.back(), WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
  }
  shown_.assign(controls_.size(), std::string("\x01"));  // nothing shown yet
  // The status drawing lies over the bar: the bar must not paint over it.
  statusBar_ = CreateWindowExW(0, STATUSCLASSNAMEW, L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 0, 0, window_,
                               nullptr, ModuleInstance(), nullptr);
  SendMessageW(statusBar_, WM_SETFONT, reinterpret_cast<WPARAM>(font_), FALSE);
  // The window had its first size before it knew this object: lay the
  // status bar's panels out now, or the status text would go to a panel
  // that does not exist yet and the status drawing would have no size.
  Layout();
  SetTimer(window_, kRedrawTimer, kRedrawInterval, nullptr);
}

void PanelWindow::Refresh() {
  const panel::PanelModel model = model_();
  if (!model.visible) {
    if (window_) ShowWindow(window_, SW_HIDE);
    return;
  }
  if (!window_) Create();
  Update(model);
  if (!IsWindowVisible(window_)) ShowWindow(window_, SW_SHOWNORMAL);
}

void PanelWindow::Update(const panel::PanelModel& model) {
  const auto& controls = Controls();
  for (std::size_t i = 0; i < controls.size(); ++i) {
    const auto& control = controls[i];
    if (!control.text) continue;
    const std::string& text = model.*control.text;
    if (text == shown_[i]) continue;
    shown_[i] = text;
    SetWindowTextW(controls_[i], ToWide(text).c_str());
    // A log shows its latest lines.
    if (control.kind == Kind::Log) SendMessageW(controls_[i], EM_LINESCROLL, 0, 0x7fffffff);
  }
  if (model.pctColour != pctColour_) {
    pctColour_ = model.pctColour;
    InvalidateRect(GetDlgItem(window_, kIdPct), nullptr, TRUE);
  }
  for (const auto& [part, text] : {std::pair{0, &model.sbarVuoto}, std::pair{1, &model.sbarConnesso}}) {
    if (*text == statusShown_[part]) continue;
    statusShown_[part] = *text;
    SendMessageW(statusBar_, SB_SETTEXTW, part, reinterpret_cast<LPARAM>(ToWide(*text).c_str()));
  }
  const int height = model.height > 0 ? model.height : panel::kHeightUDP;
  if (height != height_ || model.sendRowVisible != sendRowVisible_) {
    height_ = height;
    sendRowVisible_ = model.sendRowVisible;
    for (std::size_t i = 0; i < controls.size(); ++i)
      if (controls[i].sendRow) ShowWindow(controls_[i], sendRowVisible_ ? SW_SHOW : SW_HIDE);
    RECT frame;
    GetWindowRect(window_, &frame);
    SetWindowPos(window_, nullptr, 0, 0, frame.right - frame.left, height_ / kTwipsPerPixel,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  }
}

void PanelWindow::Layout() {
  RECT client;
  GetClientRect(window_, &client);
  SendMessageW(statusBar_, WM_SIZE, 0, 0);
  const int parts[2] = {kVuotoWidth, -1};
  SendMessageW(statusBar_, SB_SETPARTS, 2, reinterpret_cast<LPARAM>(parts));
  // The status drawing sits over the "connesso" panel.
  RECT connesso;
  SendMessageW(statusBar_, SB_GETRECT, 1, reinterpret_cast<LPARAM>(&connesso));
  MapWindowPoints(statusBar_, window_, reinterpret_cast<POINT*>(&connesso), 2);
  SetWindowPos(GetDlgItem(window_, kIdPct), HWND_TOP, connesso.left + 2, connesso.top + 2,
               connesso.right - connesso.left - 4, connesso.bottom - connesso.top - 4, SWP_NOACTIVATE);
}

void PanelWindow::SendTypedString() {
  const HWND edit = GetDlgItem(window_, kIdTxtSendStr);
  std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(edit)) + 1, L'\0');
  text.resize(static_cast<std::size_t>(GetWindowTextW(edit, text.data(), static_cast<int>(text.size()))));
  send_(FromWide(text));
}

LRESULT CALLBACK PanelWindow::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* panel = reinterpret_cast<PanelWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (panel) {
    switch (message) {
      case WM_CLOSE:
        return 0;  // only Hide or Disconnetti take the panel away
      case WM_SIZE:
        panel->Layout();
        return 0;
      case WM_TIMER:
        panel->Refresh();
        return 0;
      case WM_COMMAND:
        if (LOWORD(wParam) == kIdCmdSendStr && HIWORD(wParam) == BN_CLICKED) panel->SendTypedString();
        return 0;
      case WM_CTLCOLORSTATIC:
        if (GetDlgCtrlID(reinterpret_cast<HWND>(lParam)) == kIdPct) {
          const HDC dc = reinterpret_cast<HDC>(wParam);
          SetTextColor(dc, static_cast<COLORREF>(panel->pctColour_));
          SetBkColor(dc, GetSysColor(COLOR_BTNFACE));
          return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_BTNFACE));
        }
        break;
    }
  }
  return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace camrelay::com
