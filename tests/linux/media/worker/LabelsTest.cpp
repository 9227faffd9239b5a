#include "hosts/linux/media/worker/Labels.h"

#include <doctest/doctest.h>

using namespace cadora;

namespace {

using Texts = std::map<std::string, std::string>;

} // namespace

TEST_CASE("the labels that studios write are read whatever their case, and written anew") {
    const Labels labels = labelsFrom({{"bpm", "127.6"},
                                      {"ISRC", "us-s1z-99-00001"},
                                      {"replaygain_track_gain", "+3.1 dB"},
                                      {"replaygain_track_peak", "0.5"},
                                      {"engineer", "Someone"}},
                                     1.0F);
    CHECK(labels.beatsPerMinute == 128);
    CHECK(labels.freeform == Texts{{"ISRC", "USS1Z9900001"},
                                   {"REPLAYGAIN_TRACK_GAIN", "3.10 dB"},
                                   {"REPLAYGAIN_TRACK_PEAK", "0.500000"}});
}

TEST_CASE("labels that make no sense are left out") {
    const Labels labels = labelsFrom({{"TBPM", "1e9"},
                                      {"ISRC", "Adobe Audition"},
                                      {"REPLAYGAIN_TRACK_GAIN", "nan"},
                                      {"REPLAYGAIN_ALBUM_GAIN", std::string(100000, '9')},
                                      {"REPLAYGAIN_TRACK_PEAK", "-1"}},
                                     1.0F);
    CHECK(labels.beatsPerMinute == 0);
    CHECK(labels.freeform.empty());
}

TEST_CASE("ReplayGain is told of the sound as it was turned down") {
    const Labels labels =
        labelsFrom({{"REPLAYGAIN_TRACK_GAIN", "-7 dB"}, {"REPLAYGAIN_TRACK_PEAK", "2.0"}}, 0.5F);
    CHECK(labels.freeform.at("REPLAYGAIN_TRACK_GAIN") == "-0.98 dB");
    CHECK(labels.freeform.at("REPLAYGAIN_TRACK_PEAK") == "1.000000");
}

TEST_CASE("only a picture of bounded size that the container can hold is a cover") {
    std::vector<std::uint8_t> picture = {0xff, 0xd8, 0xff, 0xe0};
    CHECK(isCover(picture));
    picture.resize(largestCover + 1);
    CHECK_FALSE(isCover(picture));
    picture = {'G', 'I', 'F', '8'};
    CHECK_FALSE(isCover(picture));
    CHECK_FALSE(isCover({}));
}

TEST_CASE("the labels take the same room whatever the numbers of the sound") {
    const Labels labels = labelsFrom({{"BPM", "90"}}, 1.0F);
    CHECK(labelItems(labels, 0, 0, 0).size() == labelItems(labels, 1024, 1023, 1LL << 40).size());
}
