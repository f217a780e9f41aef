// Reads the frames of a file in tests/data/uper; its README.md describes the format.
#pragma once

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bytes.h"

struct UperFrame {
    std::string name;
    Bytes bytes;
    size_t leafCount = 0;
    std::string leafCrc;
    std::vector<std::string> leaves; // all leaves, or a selection of more than 200
};

inline std::vector<UperFrame> uperFrames(const std::string& path) {
    std::ifstream in(path);
    std::vector<UperFrame> frames;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string first;
        std::string rest;
        words >> first >> rest;
        if (first == "frame") {
            frames.emplace_back().name = rest;
        } else if (first == "hex") {
            const Bytes more = hex(rest);
            frames.back().bytes.insert(frames.back().bytes.end(), more.begin(), more.end());
        } else if (first == "leaves") {
            frames.back().leafCount = std::stoul(rest);
            words >> frames.back().leafCrc;
        } else if (!first.empty() && first != "#") {
            frames.back().leaves.push_back(line);
        }
    }
    return frames;
}
