#include "CallbackRegistry.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace norvo_ps {

thread_local int CallbackRegistry::tCallDepth = 0;

void CallbackRegistry::log(int level, const char* format, ...) {
    if (logging.load(std::memory_order_acquire) == nullptr) return;
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string message(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) vsnprintf(&message[0], message.size() + 1, format, args);
    va_end(args);
    call(logging, level, kComponent, message.c_str());
}

}  // namespace norvo_ps
