// Host control of thread creation for tests: the platform can refuse to create a thread (out of
// memory, thread limit), and the code that asks for one must cope. Thread-safe.
#ifndef HOST_THREADS_HOST_THREADS_H
#define HOST_THREADS_HOST_THREADS_H

namespace android {
namespace host {

// The next android::Thread started under this name (as passed to run(), which may be longer than
// the 15 characters the kernel keeps) fails to start, once.
void failNextThreadCreation(const char* name);

}  // namespace host
}  // namespace android

#endif  // HOST_THREADS_HOST_THREADS_H
