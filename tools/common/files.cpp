#include "common/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace tools {
namespace {

constexpr const char* STANDARD = "-";

} // namespace

void ThrowFileError(const std::string& name, const char* action) {
    const int error = errno;
    const std::string reason = name + ": cannot be " + action + ": " + std::strerror(error);
    if (error == EPIPE) {
        throw ClosedPipe(reason);
    }
    throw std::runtime_error(reason);
}

std::string ReadFile(const std::string& path, size_t maxSize) {
    InputFile input(path);
    std::string text;
    for (std::string_view block = input.ReadBlock(); !block.empty(); block = input.ReadBlock()) {
        text += block;
        if (text.size() > maxSize) {
            throw std::runtime_error(input.Name() + ": longer than " + std::to_string(maxSize) + " bytes");
        }
    }
    return text;
}

void WriteFile(const std::string& path, std::string_view text) {
    OutputFile output(path);
    output.Write(text);
    output.Commit();
}

InputFile::InputFile(const std::string& path)
    : m_name(path == STANDARD ? "standard input" : path),
      m_file(path == STANDARD ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (m_file < 0) {
        ThrowFileError(m_name, "opened");
    }
}

InputFile::~InputFile() {
    close(m_file);
}

bool InputFile::IsSameFile(const struct stat& other) const {
    struct stat own {};
    return S_ISREG(other.st_mode) && fstat(m_file, &own) == 0 && own.st_dev == other.st_dev &&
           own.st_ino == other.st_ino;
}

std::string_view InputFile::ReadBlock() {
    if (m_rest.empty() && !m_isEnded) {
        ssize_t size = 0;
        do {
            size = read(m_file, m_buffer.data(), m_buffer.size());
        } while (size < 0 && errno == EINTR);
        if (size < 0) {
            ThrowFileError(m_name, "read");
        }
        m_rest = {m_buffer.data(), static_cast<size_t>(size)};
        m_isEnded = size == 0;
    }
    return std::exchange(m_rest, {});
}

bool InputFile::ReadLine(std::string& line) {
    line.clear();
    std::string_view block = ReadBlock();
    const bool hasLine = !block.empty();
    for (; !block.empty(); block = ReadBlock()) {
        const size_t end = block.find('\n');
        line += block.substr(0, std::min(end, MAX_LINE + 1 - line.size()));
        if (end != std::string_view::npos) {
            m_rest = block.substr(end + 1);
            break;
        }
    }
    return hasLine;
}

OutputFile::OutputFile(const std::string& path, const InputFile* input)
    : m_name(path == STANDARD ? "standard output" : path) {
    struct stat old {};
    const bool exists = (path == STANDARD ? fstat(STDOUT_FILENO, &old) : stat(path.c_str(), &old)) == 0;
    if (exists && input != nullptr && input->IsSameFile(old)) {
        throw std::runtime_error(m_name + ": cannot be written: it is the input file");
    }
    if (path == STANDARD) {
        m_file = dup(STDOUT_FILENO);
    } else if (exists && (!S_ISREG(old.st_mode) || access(path.c_str(), W_OK) != 0)) {
        m_file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        m_target = exists ? std::filesystem::canonical(path).string() : path;
        m_temporary = m_target + "." + std::to_string(getpid()) + ".tmp";
        m_file = open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }
    if (m_file < 0) {
        ThrowFileError(m_name, "opened");
    }
    if (exists && !m_temporary.empty()) {
        // fchown may fail: only root can set another user as the owner.
        [[maybe_unused]] const int result = fchown(m_file, old.st_uid, old.st_gid);
        fchmod(m_file, old.st_mode & 07777);
    }
}

OutputFile::~OutputFile() {
    if (m_file >= 0) {
        close(m_file);
    }
    if (!m_temporary.empty()) {
        unlink(m_temporary.c_str());
    }
}

void OutputFile::Write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(m_file, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            ThrowFileError(m_name, "written");
        }
    }
}

void OutputFile::Commit() {
    const bool isClosed = close(std::exchange(m_file, -1)) == 0; // some file systems report a full disk only in close()
    if (!isClosed || (!m_temporary.empty() && std::rename(m_temporary.c_str(), m_target.c_str()) != 0)) {
        ThrowFileError(m_name, "written");
    }
    m_temporary.clear();
}

} // namespace tools
