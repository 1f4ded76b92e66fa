// A program outside the tree, built against an installed copy of the library through its
// pkg-config file: it creates a service on the installed engine and library and reports what it
// found. Exits 0 when the service initialised on the model set named by its argument.
#include <WakeWordService.h>
#include <norvo/NorvoApi.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    android::sp<velmar::AudioStream> stream = new velmar::AudioStream(
            velmar::AudioStreamFormat{AUDIO_FORMAT_PCM_16_BIT, 16000, 1});
    const char* wakeWords[] = {"HEYVELMAR"};
    android::sp<velmar::WakeWordService> service = new velmar::WakeWordService(
            "consumer", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
            nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, stream, nullptr,
            argv[1], "/models/aed/static.manifest", nullptr, nullptr, nullptr,
            wakeWords, 1, false, true, false, false, false, false, false, false, 0, 320, 0, 9);
    printf("engine: %s\n", NorvoApi_GetAttributes());
    printf("service initialised: %d\n", service->mInitStatus);
    return service->mInitStatus == 0 ? 0 : 1;
}
