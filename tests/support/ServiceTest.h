// The harness the service's tests share: per test a fresh fake engine, a silent host microphone,
// a log capture and a configuration to adjust before start(); the names the service gives its
// decoders; and the engine calls the tests read back.
#pragma once

#include <gtest/gtest.h>
#include <media/HostAudio.h>
#include <norvo_fake/FakeNorvo.h>

#include <string>
#include <vector>

#include "AudioFeed.h"
#include "LogCapture.h"
#include "ServiceFactory.h"
#include "Wait.h"

namespace wws_test {

constexpr const char* kTag = "WakeWordService";
constexpr const char* kInput = "WakeWordService_input_decoder";
constexpr const char* kPlayback = "WakeWordService_playback_decoder";
constexpr const char* kModelSet = "WakeWordService_modelset";
constexpr const char* kAed = "WakeWordService_audiopresence_decoder";
constexpr const char* kNtt = "wws_ntt";

// The arguments of every call of op, in order.
inline std::vector<std::vector<std::string>> argsOf(const std::string& op) {
    std::vector<std::vector<std::string>> args;
    for (const norvo_fake::Call& call : norvo_fake::callsOf(op)) args.push_back(call.args);
    return args;
}

// "name|value" of every client event pushed to decoderId, in order.
inline std::vector<std::string> clientEvents(const std::string& decoderId) {
    std::vector<std::string> events;
    for (const auto& args : argsOf("NorvoDecoder_PushClientEvents")) {
        if (args[0] == decoderId) events.push_back(args[2] + "|" + args[3]);
    }
    return events;
}

class ServiceTest : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        clearStatusReports();
        android::host::reset();
        android::host::attachSource(
                AUDIO_SOURCE_HOTWORD,
                new android::host::GeneratedPcm([](uint64_t, uint32_t) { return 0; }));
    }
    void TearDown() override {
        android::host::reset();
        velmar::gTestMode = false;
    }
    // Creates the service from config; its initialisation must succeed.
    android::sp<velmar::WakeWordService> start() {
        android::sp<velmar::WakeWordService> service = createService(config);
        EXPECT_EQ(0, service->mInitStatus);
        return service;
    }
    LogCapture log;
    ServiceConfig config;
};

}  // namespace wws_test

using android::sp;
using velmar::WakeWordService;
using wws_test::kAed;
using wws_test::kInput;
using wws_test::kModelSet;
using wws_test::kNtt;
using wws_test::kPlayback;
using wws_test::kTag;
using wws_test::sampleEvent;
using wws_test::ServiceConfig;
namespace host = android::host;
