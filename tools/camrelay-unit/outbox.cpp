#include "outbox.h"

#include <algorithm>

namespace camrelay::unit {

Outbox::Outbox(boost::asio::io_context& io, Send send, Reset reset)
    : timer_(io), send_(std::move(send)), reset_(std::move(reset)) {}

void Outbox::Post(std::vector<Outgoing> items) {
  const bool idle = queue_.empty();
  const auto now = Clock::now();
  for (auto& item : items) {
    lastDue_ = std::max(now + std::chrono::milliseconds(item.delayMs), lastDue_);
    queue_.push_back({lastDue_, std::move(item)});
  }
  // A queue that was waiting already has the timer set for its first entry,
  // which stays first.
  if (idle) Flush();
}

void Outbox::Flush() {
  while (!queue_.empty() && queue_.front().due <= Clock::now()) {
    Outgoing item = std::move(queue_.front().item);
    queue_.pop_front();
    if (item.reset) {
      queue_.clear();
      reset_();
      return;
    }
    send_(item.message);
  }
  if (!queue_.empty()) Arm();
}

void Outbox::Arm() {
  timer_.expires_at(queue_.front().due);
  timer_.async_wait([this](const boost::system::error_code& error) {
    // An aborted wait means the outbox is gone or going: touch nothing.
    if (!error) Flush();
  });
}

}  // namespace camrelay::unit
