// Local-reference hygiene for the Java tests: how many JNI local references the calling thread
// holds right now, so that a test can compare the count before and after a callback.
#pragma once

namespace wws_test {

// vm is the process's JavaVM*, passed untyped so that this header fits either jni.h. The calling
// thread must be attached. Returns -1 when the JVM offers no tool interface for counting.
int liveLocalReferences(void* vm);

}  // namespace wws_test
