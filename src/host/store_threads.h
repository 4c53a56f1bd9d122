// Threads that store what the links download, away from the loop that runs
// the links: with a distant server each store waits for the network, and on
// the loop every link would wait for every other unit's rows. Each thread
// uses one server connection at a time, so a pool of as many connections
// never makes a store wait for another. One thread runs its jobs in the
// order they were given.
#pragma once

#include <boost/asio/io_context.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "camrelay/clsClient.h"

namespace camrelay::host {

class StoreThreads {
 public:
  // `then` of each store is posted to io, which is kept running meanwhile.
  StoreThreads(boost::asio::io_context& io, int threads);
  // Waits for the store in hand on each thread; stores not yet begun are
  // dropped, and their links never hear back (the loop has stopped).
  ~StoreThreads();
  StoreThreads(const StoreThreads&) = delete;
  StoreThreads& operator=(const StoreThreads&) = delete;

  // What a client is given with clsClient::RunStoresWith. Each link has one
  // store at most in hand, so the queue is as long as the links at most.
  clsClient::StoreRunner Runner();

 private:
  void Work();

  boost::asio::io_context& io_;
  std::mutex mutex_;
  std::condition_variable queued_;
  std::deque<std::function<void()>> jobs_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace camrelay::host
