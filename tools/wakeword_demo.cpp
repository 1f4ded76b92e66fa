// Host program: creates a wake-word service on the fake engine, initialises it, dumps it and
// destroys it, printing what happened at each step.
#include <norvo_fake/FakeNorvo.h>
#include <unistd.h>

#include <cstdio>

#include "WakeWordService.h"

using android::sp;
using velmar::AudioStream;
using velmar::AudioStreamFormat;
using velmar::WakeWordService;

int main() {
    const char* wakeWords[] = {"HEYVELMAR"};
    sp<AudioStream> stream = new AudioStream(AudioStreamFormat{AUDIO_FORMAT_PCM_16_BIT, 16000, 1});

    printf("creating the service (fake engine)\n");
    sp<WakeWordService> service = new WakeWordService(
            "velmar.speech.wakewordservice", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, stream,
            nullptr, "/system/local/models/WW/norvo.manifest", nullptr, nullptr, nullptr, nullptr,
            wakeWords, 1, false, false, false, false, false, false, false, false, -19, 320, 0, 9);
    printf("initialize: status %d\n", service->mInitStatus);
    printf("engine calls during initialize: %zu\n", norvo_fake::calls().size());
    for (const norvo_fake::Call& call : norvo_fake::calls()) printf("  %s\n", call.op.c_str());

    printf("dump:\n");
    fflush(stdout);
    service->dump(STDOUT_FILENO, android::Vector<android::String16>());

    size_t before = norvo_fake::calls().size();
    service->release();
    service.clear();
    std::vector<norvo_fake::Call> calls = norvo_fake::calls();
    printf("destroyed: %zu engine calls during teardown\n", calls.size() - before);
    for (size_t i = before; i < calls.size(); ++i) printf("  %s\n", calls[i].op.c_str());
    return 0;
}
