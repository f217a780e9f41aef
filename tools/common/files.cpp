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

[[noreturn]] void Fail(const std::string& name, const char* what) {
    throw std::runtime_error(name + ": cannot be " + what + ": " + std::strerror(errno));
}

} // namespace

std::string ReadFile(const std::string& path, size_t most) {
    InputFile input(path);
    std::string text;
    for (std::string_view piece = input.Piece(); !piece.empty(); piece = input.Piece()) {
        text += piece;
        if (text.size() > most) {
            throw std::runtime_error(input.Name() + ": longer than " + std::to_string(most) + " bytes");
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
        Fail(m_name, "opened");
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

std::string_view InputFile::Piece() {
    if (m_rest.empty() && !m_isEnded) {
        ssize_t size = 0;
        do {
            size = read(m_file, m_buffer.data(), m_buffer.size());
        } while (size < 0 && errno == EINTR);
        if (size < 0) {
            Fail(m_name, "read");
        }
        m_rest = {m_buffer.data(), static_cast<size_t>(size)};
        m_isEnded = size == 0;
    }
    return std::exchange(m_rest, {});
}

bool InputFile::Line(std::string& line) {
    line.clear();
    std::string_view piece = Piece();
    const bool isThere = !piece.empty();
    for (; !piece.empty(); piece = Piece()) {
        const size_t end = piece.find('\n');
        line += piece.substr(0, std::min(end, MAX_LINE + 1 - line.size()));
        if (end != std::string_view::npos) {
            m_rest = piece.substr(end + 1);
            break;
        }
    }
    return isThere;
}

OutputFile::OutputFile(const std::string& path, const InputFile* input)
    : m_name(path == STANDARD ? "standard output" : path) {
    struct stat old {};
    const bool isThere = (path == STANDARD ? fstat(STDOUT_FILENO, &old) : stat(path.c_str(), &old)) == 0;
    if (isThere && input != nullptr && input->IsSameFile(old)) {
        throw std::runtime_error(m_name + ": cannot be written: it is the input file");
    }
    if (path == STANDARD) {
        m_file = dup(STDOUT_FILENO);
    } else if (isThere && (!S_ISREG(old.st_mode) || access(path.c_str(), W_OK) != 0)) {
        m_file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    } else {
        m_target = isThere ? std::filesystem::canonical(path).string() : path;
        m_temporary = m_target + "." + std::to_string(getpid()) + ".tmp";
        m_file = open(m_temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }
    if (m_file < 0) {
        Fail(m_name, "opened");
    }
    if (isThere && !m_temporary.empty()) {
        // Only root can keep another user as owner; for others the file changes its owner.
        [[maybe_unused]] const int owner = fchown(m_file, old.st_uid, old.st_gid);
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

void OutputFile::Write(std::string_view piece) {
    while (!piece.empty()) {
        const ssize_t taken = write(m_file, piece.data(), piece.size());
        if (taken >= 0) {
            piece.remove_prefix(static_cast<size_t>(taken));
        } else if (errno != EINTR) {
            Fail(m_name, "written");
        }
    }
}

void OutputFile::Commit() {
    const bool isClosed = close(std::exchange(m_file, -1)) == 0; // some file systems report a full disk only now
    if (!isClosed || (!m_temporary.empty() && std::rename(m_temporary.c_str(), m_target.c_str()) != 0)) {
        Fail(m_name, "written");
    }
    m_temporary.clear();
}

} // namespace tools
