// The diagnostic panel as a top-level window, drawn from the link's panel
// model: shown while the model says visible, redrawn after every call of the
// host and every turn of the loop, and a few times a second while shown.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "camrelay/panel.h"

namespace camrelay::com {

class PanelWindow {
 public:
  // model gives the panel's state now; send is what "Invia" does with the
  // typed text.
  PanelWindow(std::function<panel::PanelModel()> model, std::function<void(const std::string&)> send);
  ~PanelWindow();
  PanelWindow(const PanelWindow&) = delete;
  PanelWindow& operator=(const PanelWindow&) = delete;

  void Refresh();

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  void Create();
  void Layout();
  void Update(const panel::PanelModel& model);
  void SendTypedString();

  std::function<panel::PanelModel()> model_;
  std::function<void(const std::string&)> send_;
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
