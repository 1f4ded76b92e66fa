// Native object addresses kept in Java long fields ("mNativeInstance").
//
// The address travels as an unsigned integer: on a 32-bit process the upper half of the long is
// then zero. A signed conversion would copy the top bit of an address above 2 GiB into the upper
// half, and Java would see a negative, foreign-looking value.
#ifndef VELMAR_JNI_POINTER_H
#define VELMAR_JNI_POINTER_H

#include <jni.h>

#include <cstdint>

inline jlong pointerToJavaLong(const void* pointer) {
    return static_cast<jlong>(reinterpret_cast<uintptr_t>(pointer));
}

template <typename T>
T* javaLongToPointer(jlong value) {
    return reinterpret_cast<T*>(static_cast<uintptr_t>(value));
}

#endif  // VELMAR_JNI_POINTER_H
