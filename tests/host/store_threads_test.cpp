// The threads a host stores on: the loop goes on while a store runs, and
// what follows the store comes back on the loop's own thread.
#include <gtest/gtest.h>

#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <future>
#include <thread>

#include "host/store_threads.h"

using namespace camrelay::host;
using namespace std::chrono_literals;

TEST(StoreThreads, TheLoopGoesOnWhileAStoreRunsAndHearsBackOnItsThread) {
  boost::asio::io_context io;
  StoreThreads threads(io, 2);
  std::promise<void> timerFired;
  bool storeSawTheTimer = false;
  std::thread::id storedOn, thenOn;
  // The store waits for a timer of the loop: a store run on the loop would
  // wait its 5 s out and miss it.
  threads.Runner()(
      [&] {
        storeSawTheTimer = timerFired.get_future().wait_for(5s) == std::future_status::ready;
        storedOn = std::this_thread::get_id();
      },
      [&] { thenOn = std::this_thread::get_id(); });
  boost::asio::steady_timer timer(io, 10ms);
  timer.async_wait([&](auto) { timerFired.set_value(); });
  io.run();  // ends once the store is back: it kept the loop from running out
  EXPECT_TRUE(storeSawTheTimer);
  EXPECT_NE(storedOn, std::this_thread::get_id());
  EXPECT_EQ(thenOn, std::this_thread::get_id());
}
