// A Java string's modified-UTF-8 characters for the length of a native call, released on every
// path. get() is null for a null Java string or a failed conversion.
#ifndef VELMAR_JAVA_STRING_H
#define VELMAR_JAVA_STRING_H

#include <jni.h>

class JavaString {
  public:
    JavaString(JNIEnv* env, jstring string)
        : mEnv(env),
          mString(string),
          mChars(string == nullptr ? nullptr : env->GetStringUTFChars(string, nullptr)) {}
    ~JavaString() {
        if (mChars != nullptr) mEnv->ReleaseStringUTFChars(mString, mChars);
    }
    JavaString(const JavaString&) = delete;
    JavaString& operator=(const JavaString&) = delete;
    const char* get() const { return mChars; }

  private:
    JNIEnv* mEnv;
    jstring mString;
    const char* mChars;
};

#endif  // VELMAR_JAVA_STRING_H
