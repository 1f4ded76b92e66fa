#!/usr/bin/env bash
# Runs JUnit 5 tests in a JVM with -Xcheck:jni and fails on any JNI warning, not only on test
# failures: a JNI misuse must never pass unnoticed.
#   run_junit.sh <java> <library dirs, ':'-separated> <class path> [console launcher options...]
# Extra JVM options (system properties such as -Dsoak.buffers=N) come from WWS_JVM_OPTIONS.
set -uo pipefail
java=$1 libs=$2 classpath=$3
shift 3
log=$(mktemp)
# The JVM's own compiler and GC threads are fixed in number, so that tests which count the
# process's threads see only what the library starts and ends.
# shellcheck disable=SC2086  # WWS_JVM_OPTIONS is a list of options
"$java" -Xcheck:jni -XX:-UseDynamicNumberOfCompilerThreads -XX:-UseDynamicNumberOfGCThreads \
  ${WWS_JVM_OPTIONS:-} -Djava.library.path="$libs" \
  -jar /usr/share/java/junit-platform-console-standalone.jar \
  --class-path "$classpath" --disable-banner --details=tree "$@" 2>&1 | tee "$log"
status=${PIPESTATUS[0]}
# Every message HotSpot's -Xcheck:jni can print: misuse warnings and fatal errors in native
# methods, local-reference capacity overruns, calls inside critical regions, failed registrations.
jni_warnings='(WARNING|FATAL ERROR) in native method|^WARNING: JNI |^WARNING!! |^Warning: Calling other JNI functions|^Warning: .* on register of |JNI warning'
if grep -qE "$jni_warnings" "$log"; then
  echo "run_junit: JNI warnings above count as failures" >&2
  status=1
fi
rm -f "$log"
exit "$status"
