// Work in chunks over a fixed set of threads, finished in any order and
// handed back in the order it was submitted.
//
// The thread that submits (the reader, framing records) is one of the
// `threads` lanes: when enough chunks wait, it takes one itself rather than
// stand idle, so `threads` matches the cores to keep busy. Lanes are
// numbered 0 (the submitter) to threads-1; `work` runs on any lane, each lane
// one chunk at a time, so a lane's own state needs no lock. `emit` runs on
// the submitting thread only, in submission order, inside submit() and
// drain().
//
// Contract: at most 4 x threads chunks are in flight (waiting, worked on or
// done but not yet emitted), which bounds memory whatever the input size.
// The destructor stops the threads; chunks not drained are dropped.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "Kiv/Types.h"

namespace Bgpcomm {

template <class Chunk>
class ChunkPool {
  public:
    using Work = std::function<void(Chunk&, unsigned lane)>;
    using Emit = std::function<void(Chunk&)>;

    ChunkPool(unsigned threads, Work work, Emit emit)
        : threads_(threads < 1 ? 1 : threads), work_(std::move(work)), emit_(std::move(emit)) {
        for (unsigned lane = 1; lane < threads_; ++lane)
            workers_.emplace_back([this, lane] { workerLoop(lane); });
    }
    ~ChunkPool() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        workCv_.notify_all();
        for (std::thread& worker : workers_)
            worker.join();
    }

    void submit(std::unique_ptr<Chunk> chunk) {
        std::unique_lock<std::mutex> lock(mutex_);
        pending_.emplace_back(nextSeq_++, std::move(chunk));
        workCv_.notify_one();
        // Help while the other lanes have enough queued; wait when too much
        // is in flight.
        while (pending_.size() > threads_ || nextSeq_ - nextEmit_ > 4 * U64(threads_))
            step(lock);
        emitReady(lock);
    }
    // Every chunk submitted, worked and emitted.
    void drain() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (nextEmit_ < nextSeq_)
            step(lock);
    }

  private:
    using Item = std::pair<U64, std::unique_ptr<Chunk>>;

    // On the submitting thread: work a waiting chunk, or wait for one to be
    // done; then emit what is ready.
    void step(std::unique_lock<std::mutex>& lock) {
        if (!pending_.empty()) {
            Item item = std::move(pending_.front());
            pending_.pop_front();
            lock.unlock();
            work_(*item.second, 0);
            lock.lock();
            done_.emplace(item.first, std::move(item.second));
        } else if (done_.find(nextEmit_) == done_.end()) {
            doneCv_.wait(lock);
        }
        emitReady(lock);
    }
    void emitReady(std::unique_lock<std::mutex>& lock) {
        for (auto it = done_.find(nextEmit_); it != done_.end(); it = done_.find(nextEmit_)) {
            std::unique_ptr<Chunk> chunk = std::move(it->second);
            done_.erase(it);
            lock.unlock();
            emit_(*chunk);
            chunk.reset();
            lock.lock();
            ++nextEmit_;
        }
    }
    void workerLoop(unsigned lane) {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            workCv_.wait(lock, [this] { return stop_ || !pending_.empty(); });
            if (stop_)
                return;
            Item item = std::move(pending_.front());
            pending_.pop_front();
            lock.unlock();
            work_(*item.second, lane);
            lock.lock();
            done_.emplace(item.first, std::move(item.second));
            doneCv_.notify_one();
        }
    }

    unsigned const threads_;
    Work work_;
    Emit emit_;
    std::mutex mutex_;
    std::condition_variable workCv_;
    std::condition_variable doneCv_;
    std::deque<Item> pending_;
    std::map<U64, std::unique_ptr<Chunk>> done_;
    U64 nextSeq_ = 0;
    U64 nextEmit_ = 0;
    bool stop_ = false;
    std::vector<std::thread> workers_;
};

}  // namespace Bgpcomm
