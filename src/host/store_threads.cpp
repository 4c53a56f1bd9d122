#include "host/store_threads.h"

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <exception>

namespace camrelay::host {

StoreThreads::StoreThreads(boost::asio::io_context& io, int threads) : io_(io) {
  for (int i = 0; i < std::max(1, threads); ++i) threads_.emplace_back([this] { Work(); });
}

StoreThreads::~StoreThreads() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    jobs_.clear();
  }
  queued_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

clsClient::StoreRunner StoreThreads::Runner() {
  return [this](std::function<void()> work, std::function<void()> then) {
    // The loop must not run out of work while a store is away from it.
    auto guard = std::make_shared<boost::asio::executor_work_guard<boost::asio::io_context::executor_type>>(
        io_.get_executor());
    {
      std::lock_guard lock(mutex_);
      jobs_.push_back([this, work = std::move(work), then = std::move(then), guard]() mutable {
        work();
        boost::asio::post(io_, std::move(then));
        guard->reset();
      });
    }
    queued_.notify_one();
  };
}

void StoreThreads::Work() {
  for (;;) {
    std::function<void()> job;
    {
      std::unique_lock lock(mutex_);
      queued_.wait(lock, [this] { return stopping_ || !jobs_.empty(); });
      if (stopping_) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    try {
      job();
    } catch (const std::exception&) {
      // A store reports its own failures; nothing it throws may end the
      // thread and with it every store after.
    }
  }
}

}  // namespace camrelay::host
