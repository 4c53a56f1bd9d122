// Runs the library's io_context on the host's thread, from the host's own
// message loop: a message-only window whose timer and posted wake-ups run the
// handlers that are ready, so that every event reaches the host on its
// thread, between its messages, as the events of a form's controls do.
#pragma once

#include <windows.h>

#include <boost/asio/io_context.hpp>
#include <functional>

namespace camrelay::com {

class ApartmentLoop {
 public:
  // around(run) is called with the work of one turn; the object uses it to
  // keep itself alive while its handlers run.
  explicit ApartmentLoop(std::function<void(const std::function<void()>&)> around);
  ~ApartmentLoop();
  ApartmentLoop(const ApartmentLoop&) = delete;
  ApartmentLoop& operator=(const ApartmentLoop&) = delete;

  boost::asio::io_context& Context() { return io_; }
  // Asks for a turn as soon as the host's loop gets to it: called after
  // every call of the host, which may have posted work.
  void Wake();

 private:
  static LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  void RunReady();

  boost::asio::io_context io_{1};
  std::function<void(const std::function<void()>&)> around_;
  HWND window_ = nullptr;
  bool running_ = false;
  bool wakePosted_ = false;
};

}  // namespace camrelay::com
