// Counts the JNI local references the calling thread holds, through the JVM tool interface's heap
// walk, which reports every live local reference as a root. Built as a translation unit of its own:
// it needs the JDK's jvmti.h, whose jni.h must not meet libnativehelper's.
#include "LocalReferences.h"

#include <jvmti.h>

#include <cstring>

namespace wws_test {
namespace {

// Any non-zero tag marks the thread being counted.
constexpr jlong kCountedThread = 0x10ca1;

jint JNICALL countRoot(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info, jlong,
                       jlong, jlong, jlong*, jlong*, jint, void* counter) {
    if (kind == JVMTI_HEAP_REFERENCE_JNI_LOCAL && info != nullptr &&
        info->jni_local.thread_tag == kCountedThread) {
        ++*static_cast<int*>(counter);
    }
    // Roots only: nothing below them is followed.
    return 0;
}

jvmtiEnv* toolInterface(void* vm) {
    static jvmtiEnv* tools = [vm]() -> jvmtiEnv* {
        jvmtiEnv* env = nullptr;
        if (static_cast<JavaVM*>(vm)->GetEnv(reinterpret_cast<void**>(&env), JVMTI_VERSION_1_2) !=
            JNI_OK) {
            return nullptr;
        }
        jvmtiCapabilities wanted;
        memset(&wanted, 0, sizeof(wanted));
        wanted.can_tag_objects = 1;
        return env->AddCapabilities(&wanted) == JVMTI_ERROR_NONE ? env : nullptr;
    }();
    return tools;
}

}  // namespace

int liveLocalReferences(void* vm) {
    jvmtiEnv* tools = toolInterface(vm);
    if (tools == nullptr) return -1;
    jthread self = nullptr;
    if (tools->GetCurrentThread(&self) != JVMTI_ERROR_NONE) return -1;
    tools->SetTag(self, kCountedThread);
    jvmtiHeapCallbacks callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.heap_reference_callback = countRoot;
    int count = 0;
    const jvmtiError error = tools->FollowReferences(0, nullptr, nullptr, &callbacks, &count);
    tools->SetTag(self, 0);
    JNIEnv* env = nullptr;
    static_cast<JavaVM*>(vm)->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6);
    // The thread's own reference, made above, is not the caller's.
    if (env != nullptr) env->DeleteLocalRef(self);
    return error == JVMTI_ERROR_NONE ? count - 1 : -1;
}

}  // namespace wws_test
