package velmar.speech.test;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

// Not a test of the library. The suite runs it alone, under the same runner as every Java test, to
// show two things: the runner fails on a JNI warning even when every JUnit test passes (the misuse
// chosen is one that every -Xcheck:jni build reports), and the local-reference counter that the
// callback tests rely on sees references a native method keeps.
class JniWarningProbe {
    @Test
    void countsLocalReferencesAndTriggersAWarning() {
        assertEquals(5, FakeNorvo.misuseJni(5));
    }
}
