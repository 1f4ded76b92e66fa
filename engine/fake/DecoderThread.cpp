#include "DecoderThread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>

namespace norvo_fake {

DecoderThread::DecoderThread() : mQueue(std::make_shared<Queue>()) {
    std::promise<int> tid;
    std::future<int> ready = tid.get_future();
    std::shared_ptr<Queue> queue = mQueue;
    mThread = std::thread([queue, &tid] {
        // Named, so that tests can tell the engine's threads from the test's own.
        pthread_setname_np(pthread_self(), "FakeNorvo");
        tid.set_value(static_cast<int>(syscall(SYS_gettid)));
        loop(queue);
    });
    mThreadId = ready.get();
}

DecoderThread::~DecoderThread() {
    {
        std::lock_guard<std::mutex> guard(mQueue->lock);
        mQueue->exit = true;
    }
    mQueue->condition.notify_all();
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach();
    } else {
        mThread.join();
    }
}

void DecoderThread::post(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> guard(mQueue->lock);
        mQueue->tasks.push_back(std::move(task));
    }
    mQueue->condition.notify_all();
}

void DecoderThread::runAndWait(std::function<void()> task) {
    if (mThread.get_id() == std::this_thread::get_id()) {
        task();
        return;
    }
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    post([&task, &done] {
        task();
        done.set_value();
    });
    finished.wait();
}

void DecoderThread::loop(const std::shared_ptr<Queue>& queue) {
    std::unique_lock<std::mutex> lock(queue->lock);
    for (;;) {
        queue->condition.wait(lock, [&queue] { return queue->exit || !queue->tasks.empty(); });
        if (queue->tasks.empty()) return;  // exit requested and nothing left to run
        std::function<void()> task = std::move(queue->tasks.front());
        queue->tasks.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace norvo_fake
