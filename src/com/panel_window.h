// The diagnostic panel as a top-level window, drawn from the link's panel
// model: shown while the model says visible, redrawn after every call of the
// host and every turn of the loop, and a few times a second while shown.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace camrelay::link {
class frmClient;
}

namespace camrelay::com {

class PanelWindow {
 public:
  // form gives the current link (null when there is none); afterSend is
  // called once "Invia" has handed the typed text to the link.
  PanelWindow(std::function<link::frmClient*()> form, std::function<void()> afterSend);
  ~PanelWindow();
  PanelWindow(const PanelWindow&) = delete;
  PanelWindow& operator=(const PanelWindow&) = delete;

  void Refresh();

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  void Create();
  void Layout();
  void Update(link::frmClient& form);
  void SendTypedString();

  std::function<link::frmClient*()> form_;
  std::function<void()> afterSend_;
  HWND window_ = nullptr;
  HWND statusBar_ = nullptr;
  HFONT font_ = nullptr;
  std::vector<HWND> controls_;
  std::vector<std::string> shown_;  // what each control shows now
  std::string statusShown_[2];      // and each panel of the status bar
  long pctColour_ = 0;
  int height_ = 0;
  bool sendRowVisible_ = false;
};

}  // namespace camrelay::com
