// Real-time WAV injector.
//
// This declaration carries only the type the service holds; the injector thread arrives with the
// capture change. Until then the service never creates one.
#ifndef VELMAR_WAKE_WORD_INJECTOR_H
#define VELMAR_WAKE_WORD_INJECTOR_H

#include <utils/RefBase.h>

namespace velmar {

class WakeWordInjector : public virtual android::RefBase {};

}  // namespace velmar

#endif  // VELMAR_WAKE_WORD_INJECTOR_H
