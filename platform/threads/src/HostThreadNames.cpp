// On a device, android::Thread::run names its thread and applies its priority. The host libutils
// ignores both; this layer installs a creation hook (used for threads that can call Java, the
// libutils default) that does the same, so thread names and nice values are real on the host.
// The hook can also refuse a creation, as a device does when it runs out of threads.
#include <host/HostThreads.h>
#include <utils/AndroidThreads.h>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <new>
#include <string>

namespace {

std::mutex gFailLock;
std::string gFailNext;  // guarded by gFailLock; empty: nothing to refuse

bool refuseCreation(const char* name) {
    std::lock_guard<std::mutex> guard(gFailLock);
    if (gFailNext.empty() || name == nullptr || gFailNext != name) return false;
    gFailNext.clear();
    return true;
}

struct ThreadStart {
    android_thread_func_t entry;
    void* userData;
    char name[16];  // the kernel keeps 15 characters
    int priority;
};

int trampoline(void* arg) {
    ThreadStart start = *static_cast<ThreadStart*>(arg);
    delete static_cast<ThreadStart*>(arg);
    if (start.name[0] != '\0') pthread_setname_np(pthread_self(), start.name);
    // Negative nice values need privileges; without them the thread keeps the default, as a
    // device's unprivileged process would.
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), start.priority);
    return start.entry(start.userData);
}

int createNamedThread(android_thread_func_t entry, void* userData, const char* name,
                      int32_t priority, size_t stackSize, android_thread_id_t* threadId) {
    if (refuseCreation(name)) return 0;
    ThreadStart* start = new (std::nothrow) ThreadStart{entry, userData, {}, priority};
    if (start == nullptr) return 0;
    if (name != nullptr) strncpy(start->name, name, sizeof(start->name) - 1);
    int created = androidCreateRawThreadEtc(trampoline, start, name, priority, stackSize, threadId);
    if (created == 0) delete start;
    return created;
}

struct InstallHook {
    InstallHook() { androidSetCreateThreadFunc(createNamedThread); }
} gInstallHook;

}  // namespace

namespace android {
namespace host {

void failNextThreadCreation(const char* name) {
    std::lock_guard<std::mutex> guard(gFailLock);
    gFailNext = name == nullptr ? "" : name;
}

}  // namespace host
}  // namespace android
