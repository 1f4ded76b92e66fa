// The narrow-band fill: audio with nothing above 4 kHz gets a mirror image of its lower band at the
// mirror's level; wide-band audio passes sample for sample.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "BandExtension.h"

using norvo_ps::BandExtension;

namespace {

// Amplitude of the frequency hz in samples (Goertzel).
double amplitude(const std::vector<float>& samples, double hz) {
    const double w = 2 * M_PI * hz / 16000;
    double s1 = 0, s2 = 0;
    for (float x : samples) {
        const double s0 = x + 2 * std::cos(w) * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return 2 * std::sqrt(s1 * s1 + s2 * s2 - 2 * std::cos(w) * s1 * s2) / samples.size();
}

// One second of 1 kHz and 3 kHz at -20 dBFS each, through the fill; the last half second kept.
std::vector<float> tonesThrough(BandExtension* band, int64_t firstIndex) {
    std::vector<float> kept;
    for (int n = 0; n < 16000; ++n) {
        const double t = n / 16000.0;
        const double x = 3277 * (std::sin(2 * M_PI * 1000 * t) + std::sin(2 * M_PI * 3000 * t));
        const int16_t out = band->next(static_cast<int16_t>(std::lrint(x)), firstIndex + n, -20);
        if (n >= 8000) kept.push_back(out);
    }
    return kept;
}

}  // namespace

TEST(PsBandExtension, NarrowBandAudioGetsItsMirrorAndWideBandAudioPassesUnchanged) {
    BandExtension band;
    // Odd first index: the mirror's sign follows the caller's index, not the call count.
    std::vector<float> out = tonesThrough(&band, 12345);
    EXPECT_TRUE(band.narrowBand());
    const double mirrorDb = 20 * std::log10(amplitude(out, 5000) / amplitude(out, 3000));
    EXPECT_NEAR(BandExtension::kMirrorDb, mirrorDb, 0.5);  // 3 kHz mirrored to 5 kHz
    EXPECT_NEAR(BandExtension::kMirrorDb,
                20 * std::log10(amplitude(out, 7000) / amplitude(out, 1000)), 0.5);

    // White noise at speech level fills the band: after it has been heard, nothing is added.
    band.reset();
    uint32_t random = 1;
    int changed = 0;
    for (int n = 0; n < 32000; ++n) {
        random = random * 1664525u + 1013904223u;
        const int16_t x = static_cast<int16_t>(static_cast<int32_t>(random >> 16) / 8 - 4096);
        changed += band.next(x, n, -20) != x;
    }
    EXPECT_FALSE(band.narrowBand());
    EXPECT_EQ(0, changed);

    // Speech that stops leaves the decision as it was; quiet frames do not count.
    band.reset();
    tonesThrough(&band, 0);
    for (int n = 0; n < 16000; ++n) band.next(0, 16000 + n, -20);
    EXPECT_TRUE(band.narrowBand());
}
