#include "KeywordSpotter.h"

#include <algorithm>

namespace norvo_ps {

std::unique_ptr<KeywordSpotter> KeywordSpotter::create(std::shared_ptr<const ModelSet> modelSet,
                                                       const std::vector<size_t>& keywords,
                                                       std::string* error) {
    std::unique_ptr<KeywordSpotter> spotter(new KeywordSpotter());
    // Only the phrase words go into this recognizer's dictionary: loading the full dictionary
    // again for every decoder would cost a few hundred milliseconds each, for words it never uses.
    spotter->mRecognizer = Recognizer::open(modelSet->acousticModel(), "",
                                            modelSet->detectionDelayFrames(),
                                            modelSet->frequencyWarp(), error);
    if (spotter->mRecognizer == nullptr) return nullptr;
    for (const auto& word : modelSet->words()) {
        if (!spotter->mRecognizer->addWord(word.first, word.second) ||
            spotter->mRecognizer->lookup(word.first).empty()) {
            *error = "cannot add word '" + word.first + "' (" + word.second + ")";
            return nullptr;
        }
    }
    std::vector<std::pair<std::string, std::string>> phrases;
    for (size_t index : keywords) {
        const ModelSet::Keyword& keyword = modelSet->keywords().at(index);
        phrases.emplace_back(keyword.phrase, keyword.thresholdText);
    }
    if (!spotter->mRecognizer->setKeywords(phrases, error)) return nullptr;
    spotter->mModelSet = std::move(modelSet);
    spotter->mKeywords = keywords;
    spotter->mHistory.assign(static_cast<size_t>(kHistorySamples), 0);
    // The lead-in: the noise floor alone, at its level for the speech level assumed before any
    // audio, the same samples for every stream (so that what a stream hears depends only on the
    // audio, not on how the caller cut it).
    const size_t leadIn = static_cast<size_t>(kLeadInFrames * spotter->mRecognizer->samplesPerFrame());
    NoiseFloor floor;
    floor.reset();
    floor.setLevel(AudioLevels::kInitialSpeechDbfs, 0);
    spotter->mMeanSamples.assign(leadIn + static_cast<size_t>(kMeanLeadSamples + kMeanSoundSamples), 0);
    for (size_t i = 0; i < leadIn; ++i) spotter->mMeanSamples[i] = floor.next(0);
    spotter->mFloorOnly.assign(static_cast<size_t>(spotter->mRecognizer->samplesPerFrame()), 0);
    return spotter;
}

void KeywordSpotter::feed(const int16_t* samples, size_t count, int64_t firstSample,
                          std::vector<Detection>* out) {
    if (count == 0) return;
    if (mInSession && firstSample != mNext) endSession(out);
    if (!mInSession) startAt(firstSample);
    // In pieces the history can hold together with what it still has to decode.
    const size_t piece = static_cast<size_t>(kSampleRate);
    for (size_t done = 0; done < count; done += piece) {
        size_t length = std::min(piece, count - done);
        remember(samples + done, length, firstSample + static_cast<int64_t>(done));
        decodeRemembered(out);
    }
}

void KeywordSpotter::endSession(std::vector<Detection>* out) {
    if (!mInSession) return;
    // The recognizer shows a detection only once it is detectionDelayFrames old, counted in
    // decoded frames: a phrase that ends the audio needs a little silence after it to show.
    const int64_t frames = mModelSet->detectionDelayFrames() + kFlushFrames;
    if (measureMeanWhenDue(true)) decodeRemembered(out);
    mEnding = true;
    for (int64_t i = 0; i < frames && mRecognizer->inUtterance(); ++i) {
        processFloorOnly();
        collect(out);
    }
    mRecognizer->endUtterance();
    collect(out);
    mEnding = false;
    mInSession = false;
    mReported.clear();
    mReportedEnd = -1;
}

void KeywordSpotter::startAt(int64_t sample) {
    mInSession = true;
    mNext = sample;
    mHistoryStart = sample;
    mFirstSound = -1;
    mMeanMeasured = false;
    mLevels.reset(sample);
    mFloor.reset();
    mBand.reset();
    beginStream(sample, Mean::kReset);
}

void KeywordSpotter::beginStream(int64_t from, Mean mean, int64_t meanBegin, int64_t meanEnd) {
    if (!mRecognizer->startStream()) mRecognizerFailed = true;
    // The restart has ended the utterance, at which PocketSphinx updates the mean itself: a mean
    // of ours is set after it.
    if (mean == Mean::kReset) mRecognizer->resetCepstralMean();
    const size_t leadIn = static_cast<size_t>(kLeadInFrames * mRecognizer->samplesPerFrame());
    if (mean == Mean::kMeasure) {
        // Measured after the same lead-in, so that the front end's noise estimate starts as the
        // decoder's does.
        const int64_t capacity = static_cast<int64_t>(mHistory.size());
        for (int64_t i = meanBegin; i < meanEnd; ++i) {
            mMeanSamples[leadIn + static_cast<size_t>(i - meanBegin)] =
                    mHistory[static_cast<size_t>(i % capacity)];
        }
        mRecognizer->measureCepstralMean(mMeanSamples.data(),
                                         leadIn + static_cast<size_t>(meanEnd - meanBegin), leadIn);
    }
    mRecognizer->process(mMeanSamples.data(), leadIn);
    mStreamStart = from;
    mBase = from - static_cast<int64_t>(leadIn);
    mFed = from;
}

void KeywordSpotter::processFloorOnly() {
    for (int16_t& sample : mFloorOnly) sample = mFloor.next(0);
    mRecognizer->process(mFloorOnly.data(), mFloorOnly.size());
}

void KeywordSpotter::remember(const int16_t* samples, size_t count, int64_t firstSample) {
    const size_t capacity = mHistory.size();
    for (size_t i = 0; i < count; ++i) {
        if (mLevels.add(samples[i])) {
            mFloor.setLevel(mLevels.speechDbfs(), mLevels.framesSinceSound());
            if (mFirstSound < 0 && mLevels.framesSinceSound() == 1) {  // this frame
                mFirstSound = mLevels.framedEnd() - AudioLevels::kFrameSamples;
            }
        }
        mHistory[static_cast<size_t>(firstSample + static_cast<int64_t>(i)) % capacity] =
                mFloor.next(mBand.next(samples[i], firstSample + static_cast<int64_t>(i),
                                       mLevels.speechDbfs()));
    }
    mNext = firstSample + static_cast<int64_t>(count);
    mHistoryStart = std::max(mHistoryStart, mNext - static_cast<int64_t>(capacity));
}

void KeywordSpotter::decodeRemembered(std::vector<Detection>* out) {
    const int64_t capacity = static_cast<int64_t>(mHistory.size());
    const int64_t frame = mRecognizer->samplesPerFrame();
    // One frame at a time, looking for reports after each: when a detection shows depends only on
    // the audio, not on how the caller cut it into pieces.
    while (mFed < mNext) {
        int64_t offset = mFed % capacity;
        int64_t length = std::min({frame, mNext - mFed, capacity - offset});
        if (!mRecognizer->process(mHistory.data() + offset, static_cast<size_t>(length))) {
            // Nothing to report from a failed decode; a fresh stream from here on is the best left.
            mRecognizerFailed = true;
            restart(mNext);
            return;
        }
        mFed += length;
        size_t before = out->size();
        collect(out);
        if (measureMeanWhenDue(false)) continue;
        if (out->size() != before) {
            // The recognizer would list the same detections again until it restarts; what it has
            // heard since the report's end is decoded again.
            restart(mReportedEnd + 1);
        } else if (mFed - mBase >= kRestartIntervalSamples) {
            restart(std::max(mReportedEnd + 1, mFed - kRefeedSamples));
        }
    }
}

void KeywordSpotter::restart(int64_t from) {
    ++mRestarts;
    beginStream(std::min(std::max(from, mHistoryStart), mNext), Mean::kKeep);
}

bool KeywordSpotter::measureMeanWhenDue(bool final) {
    if (mMeanMeasured || mFirstSound < 0) return false;
    // Measured when decoding reaches the stretch's end, not when the caller's audio does: where
    // decoding starts again must not depend on how the caller cut the audio.
    if (mFed - mFirstSound < (final ? kMinMeanSamples : kMeanSoundSamples)) return false;
    mMeanMeasured = true;
    const int64_t begin = std::max(mFirstSound - kMeanLeadSamples, mHistoryStart);
    const int64_t end = std::min(mFed, mFirstSound + kMeanSoundSamples);
    // Decoded again from the stretch's start, or from the stream's start or the last report's end
    // when that came later: what lies before them was reported already, and a phrase decoded
    // again after its report would be reported again once mReported has forgotten it.
    beginStream(std::max({begin, mStreamStart, mReportedEnd + 1}), Mean::kMeasure, begin, end);
    return true;
}

KeywordSpotter::Isolation KeywordSpotter::isolation(const Detection& detection) const {
    const int64_t pause = mModelSet->commandPauseSamples();
    if (!mModelSet->keywords()[detection.keyword].command || pause == 0) return Isolation::kAlone;
    // The recognizer's phrase boundaries are a few frames uncertain: the pauses are looked for a
    // little away from them.
    const int64_t margin = 5 * AudioLevels::kFrameSamples;
    const int64_t before = detection.beginSample - margin;
    const int64_t after = detection.endSample + 1 + margin;
    if (!mLevels.isPause(before - pause, before)) return Isolation::kInSpeech;
    if (mEnding && after + pause > mLevels.framedEnd()) {
        // Nothing follows the audio's end: what there is up to it must be quiet.
        return mLevels.framedEnd() - after < AudioLevels::kFrameSamples ||
                               mLevels.isPause(after, mLevels.framedEnd())
                       ? Isolation::kAlone
                       : Isolation::kInSpeech;
    }
    if (after + pause > mLevels.framedEnd()) return Isolation::kNotYetKnown;
    return mLevels.isPause(after, after + pause) ? Isolation::kAlone : Isolation::kInSpeech;
}

bool KeywordSpotter::overlapsReported(int64_t begin, int64_t end) const {
    for (const Range& range : mReported) {
        if (begin <= range.end && range.begin <= end) return true;
    }
    return false;
}

void KeywordSpotter::collect(std::vector<Detection>* out) {
    mRecognizer->segments(&mSegments);
    if (mSegments.empty()) return;
    const int64_t frame = mRecognizer->samplesPerFrame();
    std::vector<Detection> found;
    for (const Recognizer::Segment& segment : mSegments) {
        Detection detection;
        bool known = false;
        for (size_t index : mKeywords) {
            if (mModelSet->keywords()[index].phrase == segment.phrase) {
                detection.keyword = index;
                known = true;
            }
        }
        if (!known) continue;
        detection.startFrame = segment.startFrame;
        detection.endFrame = segment.endFrame;
        // A phrase may seem to begin in the lead-in; it cannot have begun before the stream.
        detection.beginSample = std::max(mBase + segment.startFrame * frame, mStreamStart);
        detection.endSample = std::min(mBase + (segment.endFrame + 1) * frame, mFed) - 1;
        detection.scoreLog10 = segment.scoreLog10;
        detection.decidedAt = mFed;
        if (detection.endSample < detection.beginSample) continue;
        if (overlapsReported(detection.beginSample, detection.endSample)) continue;
        // A command inside a sentence is not one; one whose end is still being heard is looked at
        // again with the next frames (the recognizer keeps listing it).
        if (isolation(detection) != Isolation::kAlone) continue;
        found.push_back(detection);
    }
    // Two keywords heard in the same stretch of audio: the better match is the one said.
    std::stable_sort(found.begin(), found.end(), [](const Detection& a, const Detection& b) {
        return a.scoreLog10 > b.scoreLog10;
    });
    std::vector<Detection> accepted;
    for (const Detection& detection : found) {
        bool clash = false;
        for (const Detection& kept : accepted) {
            clash |= detection.beginSample <= kept.endSample &&
                     kept.beginSample <= detection.endSample;
        }
        if (!clash) accepted.push_back(detection);
    }
    std::sort(accepted.begin(), accepted.end(),
              [](const Detection& a, const Detection& b) { return a.beginSample < b.beginSample; });
    for (const Detection& detection : accepted) {
        mReported.push_back(Range{detection.beginSample, detection.endSample});
        mReportedEnd = std::max(mReportedEnd, detection.endSample);
        out->push_back(detection);
    }
    // Reports older than the history cannot be re-fed, so they cannot come back either.
    mReported.erase(
            std::remove_if(mReported.begin(), mReported.end(),
                           [this](const Range& range) { return range.end < mHistoryStart; }),
            mReported.end());
}

}  // namespace norvo_ps
