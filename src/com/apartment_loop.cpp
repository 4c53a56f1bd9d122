#include "com/apartment_loop.h"

#include "com/module.h"

namespace camrelay::com {

namespace {

constexpr wchar_t kWindowClass[] = L"CamRelayApartmentLoop";
constexpr UINT kWakeMessage = WM_APP + 1;
// Socket completions and timers are looked at this often (ms) even when
// nothing wakes the loop.
constexpr UINT kPollInterval = 10;

void RegisterWindowClass(WNDPROC procedure) {
  WNDCLASSW windowClass{};
  if (GetClassInfoW(ModuleInstance(), kWindowClass, &windowClass)) return;
  windowClass.lpfnWndProc = procedure;
  windowClass.hInstance = ModuleInstance();
  windowClass.lpszClassName = kWindowClass;
  RegisterClassW(&windowClass);
}

}  // namespace

ApartmentLoop::ApartmentLoop(std::function<void(const std::function<void()>&)> around) : around_(std::move(around)) {
  RegisterWindowClass(&ApartmentLoop::WindowProc);
  window_ = CreateWindowExW(0, kWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, ModuleInstance(), nullptr);
  SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  SetTimer(window_, 1, kPollInterval, nullptr);
}

ApartmentLoop::~ApartmentLoop() {
  KillTimer(window_, 1);
  SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
  DestroyWindow(window_);
}

void ApartmentLoop::Wake() {
  if (wakePosted_) return;
  wakePosted_ = PostMessageW(window_, kWakeMessage, 0, 0) != FALSE;
}

void ApartmentLoop::RunReady() {
  // A host that pumps messages inside an event handler (a message box)
  // would come back here while a handler is on the stack: the loop does not
  // run inside itself, the outer turn goes on when the handler returns.
  if (running_) return;
  around_([this] {
    running_ = true;
    io_.restart();
    io_.poll();
    running_ = false;
  });
}

LRESULT CALLBACK ApartmentLoop::WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* loop = reinterpret_cast<ApartmentLoop*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (loop && (message == WM_TIMER || message == kWakeMessage)) {
    if (message == kWakeMessage) loop->wakePosted_ = false;
    loop->RunReady();
    return 0;
  }
  return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace camrelay::com
