#include "make-music/WavFile.h"

#include <cmath>
#include <exception>
#include <iostream>
#include <map>
#include <string>

namespace {

int usage() {
    std::cerr
        << "usage: make-music [--seconds S] [--rate HZ] [--channels N] [--bits 16|24|32] [--seed N] OUT.wav\n"
           "Writes music-like sound; 32 bits are floating point. Without options: 30 s, 44100 Hz, stereo, "
           "16 bits, seed 1.\n";
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::string> options = {
        {"--seconds", "30"}, {"--rate", "44100"}, {"--channels", "2"}, {"--bits", "16"}, {"--seed", "1"}};
    if (argc < 2 || argc % 2 != 0) {
        return usage();
    }
    for (int i = 1; i + 1 < argc; i += 2) {
        const auto option = options.find(argv[i]);
        if (option == options.end()) {
            return usage();
        }
        option->second = argv[i + 1];
    }
    try {
        cadora::WavSettings settings;
        settings.music.rate = std::stoi(options["--rate"]);
        settings.music.channels = std::stoi(options["--channels"]);
        settings.music.seed = std::stoull(options["--seed"]);
        settings.frames = std::llround(std::stod(options["--seconds"]) * settings.music.rate);
        const int bits = std::stoi(options["--bits"]);
        settings.format = bits == 16   ? cadora::SampleFormat::int16
                          : bits == 24 ? cadora::SampleFormat::int24
                                       : cadora::SampleFormat::float32;
        const bool known = bits == 16 || bits == 24 || bits == 32;
        if (!known || settings.music.rate < 4000 || settings.music.rate > 768000 ||
            settings.music.channels < 1 || settings.music.channels > cadora::Music::maximalChannels) {
            return usage();
        }
        cadora::writeMusic(argv[argc - 1], settings);
    } catch (const std::exception& error) {
        std::cerr << "make-music: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
