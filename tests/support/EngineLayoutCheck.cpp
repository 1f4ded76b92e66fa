// Compiled for 32-bit ARM by the test suite: the engine header checks its record layouts against
// the engine binary's offsets with static_asserts when built for that target.
#include <norvo/NorvoApi.h>

static_assert(sizeof(void*) == 4, "this check must be compiled for 32-bit ARM");
