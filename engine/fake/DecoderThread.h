// A decoder's processing thread in the fake engine: runs posted tasks in order on one OS thread and
// reports that thread's kernel id, so the service can renice a real thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace norvo_fake {

class DecoderThread {
  public:
    // Starts the thread; returns once its kernel thread id is known.
    DecoderThread();
    // Runs the tasks already posted, then joins. When destroyed on its own thread (a callback
    // deleting its decoder) the thread is detached instead.
    ~DecoderThread();

    DecoderThread(const DecoderThread&) = delete;
    DecoderThread& operator=(const DecoderThread&) = delete;

    int threadId() const { return mThreadId; }
    void post(std::function<void()> task);
    // Posts task and blocks until it has run.
    void runAndWait(std::function<void()> task);

  private:
    // Kept alive by the thread itself, so a detached thread never touches freed memory.
    struct Queue {
        std::mutex lock;
        std::condition_variable condition;
        std::deque<std::function<void()>> tasks;  // guarded by lock
        bool exit = false;                        // guarded by lock
    };
    static void loop(const std::shared_ptr<Queue>& queue);

    std::shared_ptr<Queue> mQueue;
    int mThreadId = 0;  // written once before the constructor returns
    std::thread mThread;
};

}  // namespace norvo_fake
