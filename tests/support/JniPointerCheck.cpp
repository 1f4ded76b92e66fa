// Built for 32-bit ARM and run under qemu: addresses above 2 GiB must reach Java's long field with
// the upper half zero, and come back as the same address.
#include <cstdint>
#include <cstdio>
#include <initializer_list>

#include "JniPointer.h"

static_assert(sizeof(void*) == 4, "this check is meant for a 32-bit target");

int main() {
    int failures = 0;
    for (uint32_t address : {0x00001000u, 0x7ffff000u, 0x80000000u, 0xb6f01234u, 0xfffff000u}) {
        void* pointer = reinterpret_cast<void*>(static_cast<uintptr_t>(address));
        const jlong value = pointerToJavaLong(pointer);
        if (value != static_cast<jlong>(address)) {
            printf("0x%08x became 0x%016llx in Java\n", address,
                   static_cast<unsigned long long>(value));
            ++failures;
        }
        if (javaLongToPointer<void>(value) != pointer) {
            printf("0x%08x did not come back from Java\n", address);
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
