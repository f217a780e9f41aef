#include "frame_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "common/hex.h"
#include "text.h"

namespace sim {

std::vector<std::vector<uint8_t>> ReadFrames(std::istream& in, const std::string& name, size_t most) {
    std::vector<std::vector<uint8_t>> frames;
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
        std::vector<uint8_t> frame;
        std::string problem = tools::AppendHex(std::string_view(line).substr(0, line.find('#')), frame);
        if (problem.empty() && frame.size() > most) {
            problem = FormatText("%zu bytes; at most %zu fit", frame.size(), most);
        }
        if (!problem.empty()) {
            throw std::runtime_error(FormatText("%s:%zu: %s", name.c_str(), number, problem.c_str()));
        }
        if (!frame.empty()) {
            frames.push_back(std::move(frame));
        }
    }
    if (in.bad()) {
        throw std::runtime_error(name + ": cannot be read: " + std::strerror(errno));
    }
    if (frames.empty()) {
        throw std::runtime_error(name + ": holds no frame");
    }
    return frames;
}

std::vector<std::vector<uint8_t>> ReadFrameFile(const std::string& path, size_t most) {
    std::ifstream in(path);
    if (!in) {
        throw std::runtime_error(path + ": cannot be opened: " + std::strerror(errno));
    }
    return ReadFrames(in, path, most);
}

} // namespace sim
