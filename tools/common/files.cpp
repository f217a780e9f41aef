#include "common/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace tools {
namespace {

constexpr const char* STANDARD = "-";

// Returns true if the path names an existing file; fills `status`. `standard` is the file of the path "-".
bool GetStatus(const std::string& path, int standard, struct stat& status) {
    return (path == STANDARD ? fstat(standard, &status) : stat(path.c_str(), &status)) == 0;
}

bool IsSameFile(const struct stat& left, const struct stat& right) {
    return S_ISREG(left.st_mode) && left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Formats an error with the reason in errno.
std::string FormatError(const std::string& name, const char* action) {
    return name + ": cannot be " + action + ": " + std::strerror(errno);
}

} // namespace

void ThrowOutputError(const std::string& name) {
    const bool isClosed = errno == EPIPE;
    const std::string error = FormatError(name, "written");
    if (isClosed) {
        throw ClosedPipe(error);
    }
    throw OutputError(error);
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
        throw std::runtime_error(FormatError(m_name, "opened"));
    }
}

InputFile::~InputFile() {
    close(m_file);
}

void InputFile::Fill() {
    if (m_isEnded) {
        return;
    }
    std::copy(m_rest.begin(), m_rest.end(), m_buffer.begin());
    m_rest = {m_buffer.data(), m_rest.size()};
    pollfd readiness{m_file, POLLIN, 0};
    if (m_output != nullptr && poll(&readiness, 1, 0) == 0) {
        m_output->Flush();
    }
    ssize_t size = 0;
    do {
        size = read(m_file, m_buffer.data() + m_rest.size(), m_buffer.size() - m_rest.size());
    } while (size < 0 && errno == EINTR);
    if (size < 0) {
        throw std::runtime_error(FormatError(m_name, "read"));
    }
    m_rest = {m_buffer.data(), m_rest.size() + static_cast<size_t>(size)};
    m_isEnded = size == 0;
}

std::string_view InputFile::Peek(size_t size) {
    while (m_rest.size() < size && !m_isEnded) {
        Fill();
    }
    return m_rest;
}

size_t InputFile::Read(char* bytes, size_t size) {
    const size_t copied = Peek(1).copy(bytes, size);
    m_rest.remove_prefix(copied);
    return copied;
}

std::string_view InputFile::ReadBlock() {
    Peek(1);
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

OutputFile::OutputFile(const std::string& path, std::span<const std::string> inputs)
    : m_name(path == STANDARD ? "standard output" : path) {
    struct stat old {};
    const bool exists = GetStatus(path, STDOUT_FILENO, old);
    for (const std::string& input : inputs) {
        struct stat status {};
        if (exists && GetStatus(input, STDIN_FILENO, status) && IsSameFile(old, status)) {
            throw std::runtime_error(m_name + ": cannot be written: it is the input file");
        }
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
        throw std::runtime_error(FormatError(m_name, "opened"));
    }
    if (exists && !m_temporary.empty()) {
        // fchown may fail: only root can set another user as the owner.
        [[maybe_unused]] const int result = fchown(m_file, old.st_uid, old.st_gid);
        fchmod(m_file, old.st_mode & 07777);
    }
    m_isTerminal = isatty(m_file) == 1;
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
    m_buffer += text;
    if (m_isTerminal || m_buffer.size() >= InputFile::BLOCK_SIZE) {
        Flush();
    }
}

void OutputFile::Flush() {
    for (std::string_view text = m_buffer; !text.empty();) {
        const ssize_t written = write(m_file, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            ThrowOutputError(m_name);
        }
    }
    m_buffer.clear();
}

void OutputFile::Commit() {
    Flush();
    const bool isClosed = close(std::exchange(m_file, -1)) == 0; // some file systems report a full disk only in close()
    if (!isClosed || (!m_temporary.empty() && std::rename(m_temporary.c_str(), m_target.c_str()) != 0)) {
        ThrowOutputError(m_name);
    }
    m_temporary.clear();
}

} // namespace tools
