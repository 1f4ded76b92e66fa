package velmar.speech.test;

import org.junit.jupiter.api.Test;

/**
 * Not a test of the library: it passes as a JUnit test but makes HotSpot print a JNI warning. The
 * suite runs it alone to show that the test runner fails on such warnings.
 */
class JniWarningProbe {
    @Test
    void leaksLocalReferences() {
        FakeNorvo.leakLocalReferences(64);
    }
}
